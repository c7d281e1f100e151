#include <curl/curl.h>
#include <gmock/gmock.h>

#include <chrono>
#include <functional>
#include <set>

#include "MoodMemory.h"
#include "SampleClient.h"

namespace sample_test {
namespace {

using sample::Kind;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kType = "DBSCHEMA_CATALOGS";

struct MoodCase {
  std::string mood;
  int error;    // of the transfer
  long status;  // 0: no response arrived
  std::function<void(const Reply& reply, const Reply& proper)> check = {};
};

bool WellFormed(const std::string& body) { return Parse(body).wellFormed; }

void IsProper(const Reply& reply, const Reply& proper) { EXPECT_EQ(reply.body, proper.body); }
void IsFault(const Reply& reply, const Reply&) { EXPECT_NE(Parse(reply.body).faultText, ""); }
void IsBroken(const Reply& reply, const Reply& proper) {
  EXPECT_EQ(reply.body.size(), proper.body.size());
  EXPECT_FALSE(WellFormed(reply.body));
}
void IsHtml(const Reply& reply, const Reply&) {
  EXPECT_THAT(reply.headers, HasSubstr("Content-Type: text/html"));
  EXPECT_THAT(reply.body, HasSubstr("<title>"));
}
void IsRowsInAnotherCharset(const Reply& reply, const Reply& proper) {
  const Document document = Parse(reply.body);
  EXPECT_TRUE(document.wellFormed) << document.reason;
  EXPECT_EQ(document.rows, Parse(proper.body).rows);
  EXPECT_NE(reply.body, proper.body);
}
std::function<void(const Reply&, const Reply&)> HasBytes(std::size_t count) {
  return [count](const Reply& reply, const Reply& proper) {
    EXPECT_EQ(reply.body, proper.body.substr(0, count));
  };
}

const MoodCase kCases[] = {
    {"slow:1", CURLE_OK, 200, IsProper},
    {"drip:0", CURLE_OK, 200, IsProper},
    {"chunked", CURLE_OK, 200, IsProper},
    {"no-length", CURLE_OK, 200, IsProper},
    {"truncate:0", CURLE_PARTIAL_FILE, 200, HasBytes(0)},
    {"truncate:100", CURLE_PARTIAL_FILE, 200, HasBytes(100)},
    {"truncate", CURLE_PARTIAL_FILE, 200},
    {"cut:0", CURLE_GOT_NOTHING, 0},
    // libcurl treats the received part of the headers as a response.
    {"cut:20", CURLE_OK, 200, HasBytes(0)},
    {"reset", CURLE_RECV_ERROR, 0},
    {"reset:9999999", CURLE_OK, 200},
    {"wrong-length:10", CURLE_PARTIAL_FILE, 200, IsProper},
    {"wrong-length:-10", CURLE_OK, 200,
     [](const Reply& reply, const Reply& proper) {
       EXPECT_EQ(reply.body, proper.body.substr(0, proper.body.size() - 10));
     }},
    {"broken-chunks", CURLE_RECV_ERROR, 200, HasBytes(1000)},
    {"fault", CURLE_OK, 200, IsFault},
    {"fault-500", CURLE_OK, 500, IsFault},
    {"garble", CURLE_OK, 200, IsBroken},
    {"garble:5", CURLE_OK, 200, IsBroken},
    {"html", CURLE_OK, 200, IsHtml},
    {"empty", CURLE_OK, 200, HasBytes(0)},
    {"status", CURLE_OK, 503, IsHtml},
    {"status:404", CURLE_OK, 404, IsHtml},
    {"status:401", CURLE_OK, 401,
     [](const Reply& reply, const Reply&) {
       EXPECT_THAT(reply.headers, HasSubstr("WWW-Authenticate: Basic"));
     }},
    {"redirect", CURLE_OK, 302,
     [](const Reply& reply, const Reply&) {
       EXPECT_THAT(reply.headers, HasSubstr("Location: /elsewhere"));
     }},
    {"double-declaration", CURLE_OK, 200,
     [](const Reply& reply, const Reply&) {
       EXPECT_EQ(reply.body.rfind("<?xml version=\"1.0\"?><?xml version=\"1.0\"", 0), 0U);
     }},
    {"latin-1", CURLE_OK, 200, IsRowsInAnotherCharset},
    {"utf-16", CURLE_OK, 200, IsRowsInAnotherCharset},
    {"fault@DBSCHEMA_CATALOGS", CURLE_OK, 200, IsFault},
    {"fault@MDSCHEMA_CUBES", CURLE_OK, 200, IsProper},
    {"fault/1", CURLE_OK, 200, IsFault},
    {"fault/2", CURLE_OK, 200, IsProper},
};

TEST(Mood, EveryModeDoesWhatItSays) {
  for (const Kind kind : kKinds) {
    const sample::Provider provider;
    const Reply proper = Discover(provider.Url(kind), kType);
    for (const MoodCase& c : kCases) {
      SCOPED_TRACE(std::string(NameOfKind(kind)) + ", " + c.mood);
      const Reply reply = Discover(provider.Url(kind) + "?mood=" + c.mood, kType);
      // A reset can discard data sent before it.
      if (c.mood != "reset:9999999" || reply.error != CURLE_RECV_ERROR) {
        EXPECT_EQ(reply.error, c.error);
        EXPECT_EQ(reply.status, c.status);
      }
      if (c.check) c.check(reply, proper);
      EXPECT_EQ(Discover(provider.Url(kind), kType).body, proper.body) << "the next request";
    }
  }
}

TEST(Mood, SilenceLastsUntilTheClientGivesUp) {
  const sample::Provider provider;
  const std::string url = provider.Url(Kind::kAnalysisServices);
  Call call;
  call.timeoutMs = 150;
  for (const char* mood : {"stall", "stall-head", "stall-body", "drip:60000", "slow:60000"}) {
    EXPECT_EQ(Discover(url + "?mood=" + mood, kType, {}, {}, call).error, CURLE_OPERATION_TIMEDOUT)
        << mood;
  }
  const Reply some = Discover(url + "?mood=stall-body:7", kType, {}, {}, call);
  EXPECT_EQ(some.body.size(), 7U);
}

TEST(Mood, EndlessBodyLastsUntilTheClientGivesUp) {
  const sample::Provider provider;
  Call call;
  call.timeoutMs = 150;
  const Reply reply = Discover(provider.Url(Kind::kSapBw) + "?mood=endless", kType, {}, {}, call);
  EXPECT_EQ(reply.error, CURLE_OPERATION_TIMEDOUT);
  EXPECT_GT(reply.body.size(), 1'000'000U);
}

TEST(Mood, EndlessHeadersLastUntilTheClientGivesUp) {
  const sample::Provider provider;
  const Reply reply = Discover(provider.Url(Kind::kSapBw) + "?mood=endless-head", kType);
  EXPECT_NE(reply.error, CURLE_OK);
  EXPECT_GT(reply.headers.size(), 100'000U);
}

TEST(Mood, NumberAfterASlashSelectsOneRequest) {
  sample::Options options;
  options.mood = "status:401@DBSCHEMA_CATALOGS/2";
  const sample::Provider provider(options);
  const std::string url = provider.Url(Kind::kSapBw);
  EXPECT_EQ(Discover(url, "DISCOVER_DATASOURCES").status, 200);
  EXPECT_EQ(Discover(url, kType).status, 200);
  EXPECT_EQ(Discover(url, "DISCOVER_DATASOURCES").status, 200);
  EXPECT_EQ(Discover(url, kType).status, 401);
  EXPECT_EQ(Discover(url, kType).status, 200);
}

/// The fault modes of consecutive requests.
std::multimap<std::string, std::string> RandomMoods(const std::string& mood,
                                                    const std::vector<std::string>& requests) {
  sample::MoodMemory memory;
  std::multimap<std::string, std::string> moods;
  for (const std::string& request : requests) {
    const auto chosen = memory.MoodOf(*sample::ParseMood(mood), request);
    moods.emplace(request, chosen ? chosen->text : "");
  }
  return moods;
}

TEST(Mood, RandomModesDependOnSeedAndRequestNotOnOrder) {
  std::vector<std::string> requests;
  for (int i = 0; i < 300; ++i) requests.push_back("<q>" + std::to_string(i % 100) + "</q>");
  const std::vector<std::string> backwards(requests.rbegin(), requests.rend());
  const auto moods = RandomMoods("random:7", requests);
  EXPECT_EQ(moods, RandomMoods("random:7", backwards));
  EXPECT_NE(moods, RandomMoods("random:8", requests));
  std::set<std::string> kinds;
  int good = 0;
  for (const auto& [request, mood] : moods) {
    kinds.insert(mood);
    good += mood.empty();
  }
  EXPECT_GT(good, 200);
  EXPECT_LT(good, 280);
  EXPECT_GT(kinds.size(), 15U);
}

TEST(Mood, EveryRandomModeEnds) {
  for (uint64_t choice = 0; choice < 1000; ++choice) {
    const std::string mood(sample::RandomMood(choice));
    EXPECT_NO_THROW(sample::ParseMood(mood)) << mood;
    EXPECT_NE(mood, "endless");
  }
}

TEST(Mood, BombExpandsToAValidDocumentOfItsSize) {
  const sample::Provider provider;
  const std::string url = provider.Url(Kind::kTamarind);
  const Reply proper = Discover(url, kType);
  Call call;
  const Reply packed = Discover(url + "?mood=bomb:20", kType, {}, {}, call);
  EXPECT_LT(packed.body.size(), 50'000U);
  call.unpack = true;
  const Reply unpacked = Discover(url + "?mood=bomb:20", kType, {}, {}, call);
  EXPECT_EQ(unpacked.error, CURLE_OK);
  EXPECT_EQ(unpacked.body.size(), proper.body.size() + (20U << 20U));
  EXPECT_TRUE(WellFormed(unpacked.body));
}

TEST(Mood, ProviderModeAppliesToRequestsWithoutTheirOwn) {
  sample::Options options;
  options.mood = "status:503";
  const sample::Provider provider(options);
  EXPECT_EQ(Discover(provider.Url(Kind::kSapBw), kType).status, 503);
  EXPECT_EQ(Discover(provider.Url(Kind::kSapBw) + "?mood=status:404", kType).status, 404);
  EXPECT_EQ(Discover(provider.Url(Kind::kSapBw) + "?mood=", kType).status, 200);
}

TEST(Mood, UnknownModeIsRefusedWithAList) {
  const sample::Provider provider;
  for (const char* mood :
       {"grumpy", "garble:x", "slow:-1", "html:3", "slow:", "slow:9999999999", "fault/", "fault/0",
        "fault/x", "/1", "fault@", "fault@BOGUS", "slow:5@mdschema_cubes/2"}) {
    const Reply reply = Discover(provider.Url(Kind::kSapBw) + "?mood=" + mood, kType);
    EXPECT_EQ(reply.status, 400) << mood;
    sample::Options options;
    options.mood = mood;
    EXPECT_THROW(sample::Provider{options}, std::runtime_error) << mood;
  }
  EXPECT_THAT(Discover(provider.Url(Kind::kSapBw) + "?mood=grumpy", kType).body,
              HasSubstr("stall-body"));
}

TEST(Mood, HelpListsEveryMode) {
  for (const MoodCase& c : kCases)
    EXPECT_THAT(sample::MoodHelp(), HasSubstr(c.mood.substr(0, c.mood.find_first_of(":@/"))));
}

}  // namespace
}  // namespace sample_test
