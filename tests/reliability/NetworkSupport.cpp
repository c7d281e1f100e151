#include "NetworkSupport.h"

#include <gmock/gmock.h>

#include "support/Effort.h"
#include "tool/ToolProcess.h"

namespace network {
namespace {

tool::Outcome RunSources(const Service& service,
                         const std::vector<std::pair<std::string, std::string>>& environment) {
  tool::Options options;
  options.environment = {{"MORVEN_BI_XMLA_HTTP_TIMEOUT", "1"}};
  for (const auto& variable : environment) options.environment.insert(variable);
  // Sets the kind, so that the first request is for the data sources.
  return tool::RunTool({"--url", service.url, "--target", service.targetName, "sources"}, options);
}

}  // namespace

Import::Import(const Service& service, const std::string& user, const std::string& password) {
  m_import.SetupConnInfo(support::Wide(service.url), support::Wide(user), support::Wide(password),
                         service.target, ServerInfo::kCLIXMLA);
}

Outcome Import::DataSources() {
  VXStringVector names;
  String errors;
  String warnings;
  const Clock::time_point begin = Clock::now();
  m_import.GetDataSourceNames(names, errors, warnings);
  const Clock::time_point returned = Clock::now();
  Outcome outcome{{}, support::Narrow(errors), SecondsSince(begin), returned};
  for (const String& name : names) outcome.names.push_back(support::Narrow(name));
  return outcome;
}

void ExpectOneErrorLine(const Service& service, const std::string& says, double seconds,
                        const std::vector<std::pair<std::string, std::string>>& environment) {
  const Clock::time_point begin = Clock::now();
  const tool::Outcome outcome = RunSources(service, environment);
  EXPECT_LT(SecondsSince(begin), (seconds + 0.5) * Slack());
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  const std::vector<std::string> lines = outcome.ErrorLines();
  ASSERT_GE(lines.size(), 2u) << outcome.err;
  ASSERT_LE(lines.size(), 3u) << outcome.err;
  EXPECT_THAT(lines[0], testing::StartsWith("xmla-import: error: "));
  EXPECT_THAT(lines[0], testing::HasSubstr(says));
  EXPECT_THAT(lines[1], testing::StartsWith("xmla-import: note: the failed request was DISCOVER_"));
  if (lines.size() > 2) {
    EXPECT_THAT(lines[2],
                testing::ContainsRegex("^xmla-import: note: (use --|.* comes? from .*; )"));
  }
}

void ExpectDataSources(const Service& service,
                       const std::vector<std::pair<std::string, std::string>>& environment) {
  const tool::Outcome outcome = RunSources(service, environment);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  std::string lines;
  for (const std::string& source : service.sources) lines += source + "\n";
  EXPECT_EQ(outcome.out, lines);
}

void Figure(const std::string& what, const std::string& outcome) {
  if (!testing::Test::HasFailure()) support::PrintFigure(what, outcome);
}

}  // namespace network
