#include "results/Formats.h"

#include <algorithm>

namespace {

struct Format {
  const char* name;
  std::unique_ptr<Form> (*make)(ResultText& text);
};

constexpr Format kFormats[] = {
    {"text", &MakeTextForm},
    {"json", &MakeJsonForm},
    {"html", &MakeHtmlForm},
};

}  // namespace

std::vector<std::string> FormatNames() {
  std::vector<std::string> names;
  for (const Format& format : kFormats) names.emplace_back(format.name);
  return names;
}

std::unique_ptr<Form> MakeForm(const std::string& format, ResultText& text) {
  const Format* const found = std::ranges::find(kFormats, format, &Format::name);
  return (found == std::end(kFormats) ? kFormats : found)->make(text);
}
