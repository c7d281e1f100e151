// Tests the agent with an HTTP client that fails without an error text. The real client always
// gives one, so this program replaces it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../AgentProbe.h"
#include "Utility/Generic/HTTPClientWrapper.h"

class HTTPClientWrapper::Impl {};

HTTPClientWrapper::HTTPClientWrapper(const String&, const String&, const String&, std::uint32_t,
                                     const HTTPClientOptions*) {}
HTTPClientWrapper::~HTTPClientWrapper() = default;
void HTTPClientWrapper::SetRequestHeader(const String&) {}
void HTTPClientWrapper::SetRequestSubject(const String&) {}
void HTTPClientWrapper::SetPrediction(std::shared_ptr<const HTTPPrediction>) {}
bool HTTPClientWrapper::ReadBytes(const NarrowString&, NarrowString&, String&) { return false; }
bool HTTPClientWrapper::TakeCredentials(String&, String&, String&) { return true; }

namespace {

TEST(SilentClient, KeepsTheCallersResponse) {
  AgentProbe agent("http://127.0.0.1:1/");
  String response = L"the caller's";
  agent.SendSoapRequest(L"<request/>", response);
  EXPECT_EQ(response, String(L"the caller's"));
}

TEST(SilentClient, GivesTheReadersAnEmptyDocument) {
  for (const auto target : {ServerInfo::kAnalysisServices2005, ServerInfo::kSAP_BW35}) {
    AgentProbe agent("http://127.0.0.1:1/", target);
    VXStringVector catalogs(1, L"old");
    const std::string error = ErrorOf([&] { agent.GetCatalogs(catalogs, L"d"); });
    EXPECT_THAT(error, testing::StartsWith("[46100] "));
    EXPECT_THAT(error, testing::HasSubstr("the document is empty"));
    EXPECT_TRUE(catalogs.empty());
  }
}

}  // namespace
