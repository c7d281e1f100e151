#include "call/OutputFormat.h"

#include <algorithm>

#include "base/Text.h"
#include "call/Suggestion.h"
#include "call/UsageError.h"

namespace {

/// Extensions that people expect to select a format, and those that do.
constexpr std::string_view kSimilarExtensions[][2] = {
    {".htm", ".html"}, {".jsonl", ".ndjson"}, {".markdown", ".md"}, {".xls", ".xlsx"}};

bool HasExtension(std::string_view file, std::string_view extension) {
  const std::string_view name = file.substr(file.rfind('/') + 1);
  // A hidden file such as ".json" has no extension.
  return !extension.empty() && name.size() > extension.size() && name.ends_with(extension);
}

}  // namespace

bool Supports(const OutputFormat& format, std::string_view command) {
  return format.commands.empty() || command.empty() ||
         std::ranges::count(format.commands, command) > 0;
}

std::vector<std::string> NamesOf(OutputFormats formats, std::string_view command) {
  std::vector<std::string> names;
  for (const OutputFormat& format : formats)
    if (Supports(format, command)) names.emplace_back(format.name);
  return names;
}

const OutputFormat* FindFormat(OutputFormats formats, std::string_view name) {
  const auto found = std::ranges::find(formats, name, &OutputFormat::name);
  return found == formats.end() ? nullptr : &*found;
}

std::string ChooseFormat(OutputFormats formats, const std::string& given, std::string_view output,
                         std::string_view command) {
  const std::vector<std::string> supported = NamesOf(formats, command);
  const std::string others = "; formats of " + std::string(command) + ": " + Enumerated(supported);
  if (!given.empty()) {
    const OutputFormat* const format = FindFormat(formats, given);
    if (!format)
      throw UsageError(UnknownValue("--format", given, supported, Enumerated(supported)));
    if (!Supports(*format, command))
      throw UsageError(std::string(command) + " has no --format " + given + others);
    return given;
  }
  for (const OutputFormat& format : formats) {
    if (!HasExtension(output, format.extension)) continue;
    if (Supports(format, command)) return std::string(format.name);
    throw UsageError("the name " + Listed({std::string(output)}) + " selects the format " +
                     std::string(format.name) + ", which " + std::string(command) +
                     " does not have; use --format, or another name" + others);
  }
  for (const auto& [similar, extension] : kSimilarExtensions)
    if (HasExtension(output, similar))
      throw UsageError("the name " + Listed({std::string(output)}) +
                       " selects no format; use the extension " + std::string(extension) +
                       ", or --format");
  return std::string(formats.front().name);
}
