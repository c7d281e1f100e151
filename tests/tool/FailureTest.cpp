// What can go wrong between the tool and a provider: each a clear line, status 1, and with JSON a
// document.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SampleProvider.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::HasSubstr;

void ExpectFailure(const std::string& url, const std::string& says) {
  SCOPED_TRACE(url);
  for (const char* command : {"sources", "tree", "cube", "import"}) {
    const Outcome text = RunTool({"--url", url, command});
    EXPECT_EQ(text.status, 1) << command;
    EXPECT_EQ(text.out, "");
    EXPECT_THAT(text.err, HasSubstr("xmla-import: error: "));
    EXPECT_THAT(text.err, HasSubstr(says));
  }
  const Outcome json = RunTool({"--url", url, "sources", "--format", "json"});
  EXPECT_EQ(json.status, 1);
  ASSERT_EQ(json.Document()["errors"].size(), 1u);
  EXPECT_THAT(json.Document()["errors"][0].get<std::string>(), HasSubstr(says));
}

TEST(Failure, UnknownHost) {
  ExpectFailure("http://no-such-host.invalid/xmla", "no-such-host.invalid");
}

TEST(Failure, RefusedPort) {
  ExpectFailure("http://127.0.0.1:1/xmla", "Connection refused: http://127.0.0.1:1/xmla");
}

struct Mood {
  const char* mood;
  const char* says;
};

TEST(Failure, MisbehavingProvider) {
  const sample::Provider provider;
  const Mood moods[] = {
      {"status:503", "HTTP 503 Service Unavailable"},
      {"fault", "[64203] "},
      {"html", "web page"},
      {"truncate", "The connection was cut in the middle of the reply: transfer closed with "},
      {"empty", "empty"},
  };
  for (const Mood& mood : moods)
    ExpectFailure(provider.Url(sample::Kind::kAnalysisServices) + "?mood=" + mood.mood, mood.says);
}

TEST(Failure, OfAMessageWithItsNumberInBrackets) {
  ScriptedProvider::Script script = TwoSources();
  script.answer = [](const std::string&, const std::string&) {
    return support::FaultReply("Server.42", "two\nlines\tand a tab");
  };
  const ScriptedProvider provider(std::move(script));
  const Json errors =
      RunTool({"--url", provider.Url(), "sources", "--format", "json"}).Document()["errors"];
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_THAT(errors[0].get<std::string>(), testing::StartsWith("[64203] "));
  EXPECT_THAT(errors[0].get<std::string>(), HasSubstr("two lines and a tab"));
}

}  // namespace
}  // namespace tool
