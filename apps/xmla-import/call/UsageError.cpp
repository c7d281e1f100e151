#include "call/UsageError.h"

#include "base/Text.h"
#include "call/Suggestion.h"

std::string SeeHelp(std::string_view command) {
  return "; see xmla-import " + std::string(command) + (command.empty() ? "" : " ") + "--help";
}

std::string UnknownValue(std::string_view option, std::string_view value,
                         const std::vector<std::string>& values, std::string_view all) {
  return "unknown " + std::string(option) + ' ' + Listed({std::string(value)}) +
         DidYouMean(value, values) + "; expected one of: " + std::string(all);
}

std::string Enumerated(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) list += (list.empty() ? "" : ", ") + text;
  return list;
}
