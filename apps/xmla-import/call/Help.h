#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/LegendEntry.h"
#include "call/CommandForm.h"
#include "call/OutputFormat.h"

// The texts of --help and of the command help, in lines of at most 80 columns. They are made from
// the option tables and from HelpTexts.cpp.

struct HelpSource {
  const std::vector<CommandForm>& commands;
  std::span<const CommandOption> commonOptions;
  OutputFormats formats;
  std::span<const LegendEntry> legend;  ///< of the text format
};

std::string ToolHelp(const HelpSource& source);
std::string CommandHelp(const HelpSource& source, const CommandForm& command);
/// What a format is for, the extension that selects it, and the commands that have it.
std::string FormatHelp(const OutputFormat& format);
/// The text of a topic, such as "formats". Empty for an unknown topic.
std::string TopicHelp(const HelpSource& source, std::string_view topic);
/// The names of all topics that are not commands.
std::vector<std::string> HelpTopics();
