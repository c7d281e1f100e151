#include "LastRequest.h"

#include <string_view>
#include <utility>

namespace {

thread_local NarrowString t_request;

/// The text of the first element of that name; the importer writes its elements without attributes.
std::string ElementText(std::string_view request, const std::string& name) {
  const std::string open = "<" + name + ">";
  const std::size_t at = request.find(open);
  if (at == std::string_view::npos) return {};
  const std::size_t begin = at + open.size();
  std::string text(request.substr(begin, request.find('<', begin) - begin));
  // The ampersand last: what it stands in front of is text by then.
  constexpr std::pair<const char*, const char*> kReferences[] = {{"&lt;", "<"},    {"&gt;", ">"},
                                                                 {"&quot;", "\""}, {"&apos;", "'"},
                                                                 {"&#13;", "\r"},  {"&amp;", "&"}};
  for (const auto& [reference, character] : kReferences)
    for (std::size_t i = text.find(reference); i != std::string::npos;
         i = text.find(reference, i + 1))
      text.replace(i, std::string_view(reference).size(), character);
  return text;
}

}  // namespace

void RememberRequest(const NarrowString& body) { t_request = body; }

std::string PlaceOfLastRequest() {
  const std::string_view request = t_request.view();
  const std::string hierarchy = ElementText(request, "HIERARCHY_UNIQUE_NAME");
  if (hierarchy.empty()) return {};
  std::string place = ElementText(request, "RequestType") + " of hierarchy \"" + hierarchy + "\"";
  const std::string level = ElementText(request, "LEVEL_UNIQUE_NAME");
  if (!level.empty()) place += ", level \"" + level + "\"";
  return place;
}
