#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "SampleProvider.h"

namespace sample {

/// The command line of xmla-sample-provider. Its texts are also those of the manual page.
class CommandLine {
 public:
  /// `version` is the number and, if known, the commit.
  explicit CommandLine(const std::string& version);
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  CLI::App& App() { return m_app; }
  /// What the parsed command line asks for. Throws std::runtime_error if the mood is unknown, or
  /// the password cannot be read.
  Options Read() const;

 private:
  CLI::App m_app;
  Options m_options;
  int m_latency = 0;  // milliseconds
  std::string m_passwordFile;
};

}  // namespace sample
