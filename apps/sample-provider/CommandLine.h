#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "SampleProvider.h"

namespace CLI {
class App;
}

namespace sample {

/// An option, as the manual page describes it.
struct OptionText {
  std::string names;
  std::string value;  ///< empty if the option has none
  std::string description;
};

/// The command line of xmla-sample-provider. Its texts are also those of the manual page. Only the
/// source file includes the parser, which takes seconds to compile.
class CommandLine {
 public:
  /// `version` is the number and, if known, the commit.
  explicit CommandLine(const std::string& version);
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  ~CommandLine();

  /// What the arguments ask for. None if they are wrong or ask for the help or the version: the
  /// answer has been written, and `status` is the exit status. Throws std::runtime_error if the
  /// mood is unknown, or the password cannot be read.
  std::optional<Options> Read(int argc, char** argv, int& status);
  std::string Description() const;
  std::vector<OptionText> OptionTexts() const;

 private:
  std::unique_ptr<CLI::App> m_app;
  Options m_options;
  int m_latency = 0;  // milliseconds
  std::string m_passwordFile;
};

}  // namespace sample
