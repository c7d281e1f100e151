#pragma once

#include <span>
#include <string_view>

/// The prose of the help for a command or a topic. A paragraph that begins with a blank is a list
/// of names and meanings if each line has a tab between them; otherwise it is shown as it is.
/// Others are wrapped. {formats} and {targets} stand for the lists of names, and {server-file} for
/// an example.
struct HelpText {
  std::string_view name;
  std::string_view summary;     ///< of a topic; a command has its own
  std::string_view paragraphs;  ///< separated by empty lines
  std::string_view examples;    ///< of a command: one line each
  std::string_view closing;     ///< of a command, after the examples
};

/// The text of a command, or of the whole tool (empty name).
const HelpText& CommandText(std::string_view name);
std::span<const HelpText> TopicTexts();
