// Tests the import if its agent throws something other than ErrorMessage, and if the host cancels a
// running import.

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <stdexcept>

#include "ImportProbe.h"
#include "Utility/Generic/VXThread.h"
#include "Utility/XMLASAX/XmlADiscoverAgentImpl.h"
#include "support/Sanitized.h"

namespace {

using support::Reply;
using support::RowsetReply;
using support::ScriptedServer;
using testing::HasSubstr;

/// An agent that sends no requests.
class OfflineAgent : public XmlADiscoverAgentImpl {
 public:
  OfflineAgent()
      : XmlADiscoverAgentImpl(L"http://127.0.0.1:1/", L"", L"", ServerInfo::kTessera,
                              ServerInfo::kCLIXMLA, false) {}
  void GetProviderInfomation(std::pair<String, String>&) override {}
};

struct ForeignError : std::runtime_error {
  ForeignError() : std::runtime_error("not the host's") {}
};

class ThrowingAgent : public OfflineAgent {
 public:
  void GetDataSourceInfo(VXStringVector&) override { throw ForeignError(); }
  void GetCatalogs(VXStringVector&, const String&) override { throw ForeignError(); }
  void GetHierarchiesOnCatalogCube(std::vector<RefCnt<XmlAHierarchy>>&, const String&,
                                   const String&, const String&) override {
    throw ForeignError();
  }
  void GetMeasuresOnCatalogCube(std::vector<RefCnt<XmlAMeasure>>&, const String&, const String&,
                                const String&) override {
    throw ForeignError();
  }
};

TEST(AgentFailure, OtherExceptionsPassToTheHost) {
  ImportProbe import;
  import.m_DiscoverAgent.reset(new ThrowingAgent);
  String errors;
  String warnings;
  VXStringVector names;
  EXPECT_THROW(import.GetDataSourceNames(names, errors, warnings), ForeignError);
  std::vector<OTDataSource> sources;
  EXPECT_THROW(import.GetDataSourceInfo(sources, errors, warnings), ForeignError);
  sources.resize(1);
  EXPECT_THROW(import.GetDataSourceInfo(sources, errors, warnings), ForeignError);
  std::vector<OTXMLAHierarchy> hierarchies;
  EXPECT_THROW(import.GetHierarchies(hierarchies, errors, warnings), ForeignError);
  OTXMLAUnits units;
  EXPECT_THROW(import.GetMeasuresAndCalcMembers(units, errors, warnings), ForeignError);
  EXPECT_EQ(errors, String());
}

/// Returns one hierarchy; the look-up of its default member fails.
class MemberlessAgent : public OfflineAgent {
 public:
  void GetHierarchiesOnCatalogCube(std::vector<RefCnt<XmlAHierarchy>>& rows, const String&,
                                   const String&, const String&) override {
    rows.emplace_back(new XmlAHierarchy(ServerInfo::kTessera, ServerInfo::kCLIXMLA));
    rows.back()->AppendValueName(L"STRUCTURE", L"0");
  }
  void GetMemberOnCatalogCubeHierarchy(RefCnt<XmlAMember>, const String&, const String&,
                                       const String&, const String&) override {
    throw ForeignError();
  }
};

TEST(AgentFailure, OtherExceptionsOfMemberLookUpsPassToTheHost) {
  ImportProbe import;
  import.m_DiscoverAgent.reset(new MemberlessAgent);
  std::vector<OTXMLAHierarchy> hierarchies;
  String errors;
  String warnings;
  EXPECT_THROW(import.GetHierarchies(hierarchies, errors, warnings), ForeignError);
  EXPECT_EQ(warnings, String());
}

class EmptyRowAgent : public OfflineAgent {
 public:
  void GetMeasuresOnCatalogCube(std::vector<RefCnt<XmlAMeasure>>& rows, const String&,
                                const String&, const String&) override {
    rows.resize(1);
  }
  void GetVariablesOnCatalogCube(std::vector<RefCnt<XmlACubeVariable>>& rows, const String&,
                                 const String&, const String&) override {
    rows.resize(1);
  }
};

TEST(AgentFailureDeathTest, AnEmptyRowHandleAborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  ImportProbe import;
  import.m_DiscoverAgent.reset(new EmptyRowAgent);
  String errors;
  String warnings;
  OTXMLAUnits units;
  EXPECT_DEATH(import.GetMeasuresAndCalcMembers(units, errors, warnings), "empty reference");
  OTCube cube;
  EXPECT_DEATH(import.GetSAPVariables(cube, errors, warnings), "empty reference");
}

TEST(Interruption, EndsAnImportThatWaitsForItsServer) {
  const RefCnt<VXExecutionState> state(new VXExecutionState);
  std::atomic<bool> ended{false};
  std::chrono::steady_clock::time_point asked;
  ScriptedServer server([&](const support::Request&) {
    asked = std::chrono::steady_clock::now();
    state->RequestCancellation(VXExecutionState::kCancelReasonHost);
    ended.wait(false);
    return Reply{RowsetReply("")};
  });
  ImportProbe import(server.Url(), ServerInfo::kAnalysisServices2005);
  const VXExecutionState::Scope scope(*state);
  std::vector<OTXMLAHierarchy> hierarchies;
  String errors;
  String warnings;
  import.GetHierarchies(hierarchies, errors, warnings);
  const auto returned = std::chrono::steady_clock::now();
  ended = true;
  ended.notify_all();
  EXPECT_TRUE(hierarchies.empty());
  EXPECT_THAT(support::Narrow(errors), HasSubstr("cancelled"));
  EXPECT_EQ(warnings, String());
  EXPECT_LT(returned - asked, std::chrono::milliseconds(support::kIsSanitized ? 500 : 100));
}

/// A failed look-up of a default member is a warning; a cancelled one is the operation's end.
TEST(Interruption, OfADefaultMembersLookUpIsNoWarning) {
  const RefCnt<VXExecutionState> state(new VXExecutionState);
  ScriptedServer server([&](const support::Request& request) {
    if (support::RequestType(request.body) == "MDSCHEMA_MEMBERS")
      state->RequestCancellation(VXExecutionState::kCancelReasonHost);
    return Reply{
        RowsetReply("<row><HIERARCHY_UNIQUE_NAME>[h]</HIERARCHY_UNIQUE_NAME>"
                    "<STRUCTURE>0</STRUCTURE></row>")};
  });
  ImportProbe import(server.Url(), ServerInfo::kAnalysisServices2005);
  const VXExecutionState::Scope scope(*state);
  std::vector<OTXMLAHierarchy> hierarchies;
  String errors;
  String warnings;
  import.GetHierarchies(hierarchies, errors, warnings);
  EXPECT_THAT(support::Narrow(errors), testing::StartsWith("[46066]"));
  EXPECT_EQ(warnings, String());
  EXPECT_TRUE(hierarchies.empty());
}

}  // namespace
