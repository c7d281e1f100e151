#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

/// What the command line knows about an output format.
struct OutputFormat {
  std::string_view name;
  std::string_view help;
  std::string_view extension = {};  ///< of an output file that selects the format, such as ".json"
  std::span<const std::string_view> commands = {};  ///< that support the format; empty: all
  bool isBinary = false;                            ///< cannot be shown on a terminal
};

using OutputFormats = std::span<const OutputFormat>;

/// An absent command, which has only messages, supports every format.
bool Supports(const OutputFormat& format, std::string_view command);
/// The names of all formats that the command supports.
std::vector<std::string> NamesOf(OutputFormats formats, std::string_view command);
/// The format with this name; null if there is none.
const OutputFormat* FindFormat(OutputFormats formats, std::string_view name);

/// The name of the format for a call: that of --format, else the one that the extension of the
/// output file selects (in any case), else the first. Throws UsageError for an unknown format, for
/// one that the command does not support, and for an extension that only resembles one.
std::string ChooseFormat(OutputFormats formats, const std::string& given, std::string_view output,
                         std::string_view command);
/// A note that the extension of the output file is unknown, and which format the file has. Empty if
/// nothing needs to be said: the file has no extension or a known one, or the command has only one
/// format.
std::string UnknownExtensionNote(OutputFormats formats, const std::string& output,
                                 std::string_view command);
