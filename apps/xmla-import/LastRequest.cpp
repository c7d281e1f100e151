#include "LastRequest.h"

#include <string_view>
#include <utility>

#include "Text.h"

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

std::string Described(const NarrowString& request) {
  std::string text = ElementText(request.view(), "RequestType");
  constexpr std::pair<const char*, const char*> kRestrictions[] = {
      {"PropertyName", " of property "}, {"CATALOG_NAME", " of catalog "},
      {"CUBE_NAME", ", cube "},          {"HIERARCHY_UNIQUE_NAME", ", hierarchy "},
      {"LEVEL_UNIQUE_NAME", ", level "}, {"MEMBER_UNIQUE_NAME", ", member "}};
  for (const auto& [element, words] : kRestrictions) {
    const std::string value = ElementText(request.view(), element);
    if (!value.empty()) text += words + Listed({OneLine(value)});
  }
  return text;
}

std::string PlaceOfLastRequest() {
  if (ElementText(t_request.view(), "HIERARCHY_UNIQUE_NAME").empty()) return {};
  return Described(t_request);
}
