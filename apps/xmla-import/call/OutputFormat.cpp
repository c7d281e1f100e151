#include "call/OutputFormat.h"

#include <algorithm>

#include "base/Text.h"
#include "call/Suggestion.h"
#include "call/UsageError.h"

namespace {

/// Extensions that people expect to select a format, and those that do.
constexpr std::string_view kSimilarExtensions[][2] = {
    {".htm", ".html"}, {".jsonl", ".ndjson"}, {".markdown", ".md"}, {".xls", ".xlsx"}};

/// Extensions of files that people expect to be text.
constexpr std::string_view kTextExtensions[] = {".txt", ".text", ".log"};

/// The extension in lower case, with the dot. A hidden file such as ".json" has none.
std::string ExtensionOf(std::string_view file) {
  const std::string_view name = file.substr(file.rfind('/') + 1);
  const std::size_t dot = name.rfind('.');
  if (dot == name.npos || dot == 0) return {};
  std::string extension(name.substr(dot));
  for (char& c : extension)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return extension;
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
  const std::string extension = ExtensionOf(output);
  if (extension.empty()) return std::string(formats.front().name);
  for (const OutputFormat& format : formats) {
    if (format.extension != extension) continue;
    if (Supports(format, command)) return std::string(format.name);
    throw UsageError("the name " + Listed({std::string(output)}) + " selects the format " +
                     std::string(format.name) + ", which " + std::string(command) +
                     " does not have; use --format, or another name" + others);
  }
  for (const auto& [similar, right] : kSimilarExtensions) {
    if (similar != extension) continue;
    const auto format = std::ranges::find(formats, right, &OutputFormat::extension);
    const bool hasRight = format != formats.end() && Supports(*format, command);
    throw UsageError("the name " + Listed({std::string(output)}) + " selects no format; use " +
                     (hasRight ? "the extension " + std::string(right) + ", or --format"
                               : "--format, or another name" + others));
  }
  return std::string(formats.front().name);
}

std::string UnknownExtensionNote(OutputFormats formats, const std::string& output,
                                 std::string_view command) {
  const std::string extension = ExtensionOf(output);
  const bool isKnown = extension.size() <= 1 ||
                       std::ranges::count(formats, extension, &OutputFormat::extension) > 0 ||
                       std::ranges::count(kTextExtensions, extension) > 0;
  if (isKnown || NamesOf(formats, command).size() == 1) return {};
  const std::string name(formats.front().name);
  return "the name " + Listed({output}) + " selects no format, so the format is " + name +
         "; to choose one, use --format";
}
