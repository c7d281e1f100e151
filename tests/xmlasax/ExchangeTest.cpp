// Tests one exchange: the bytes of the request, normalisation of the reply, and detection of
// faults.

#include <gmock/gmock.h>

#include "AgentProbe.h"
#include "Utility/Generic/SUStrUtil.h"
#include "Utility/XMLASAX/XmlASaxDefs.h"

namespace {

using support::FaultReply;
using support::Reply;
using support::RowsetReply;
using support::ScriptedServer;
using testing::HasSubstr;

constexpr const char* kRequest = "<Discover>\u65e5\U0001F4C8</Discover>\r\n";

TEST(Exchange, PostsTheBytesWithTwoHeaders) {
  ScriptedServer server({{RowsetReply("")}});
  AgentProbe agent(server.Url());
  String response;
  agent.SendSoapRequest(support::Wide(kRequest), response);
  const auto requests = server.Requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].Method(), "POST");
  EXPECT_EQ(requests[0].Target(), "/xmla");
  EXPECT_EQ(requests[0].body, kRequest);
  EXPECT_EQ(requests[0].Header("SOAPAction"),
            "\"urn:schemas-microsoft-com:xml-analysis:Discover\"");
  EXPECT_EQ(requests[0].Header("Content-Type"), "text/xml; charset = UTF-8");
}

TEST(Exchange, HeaderTextHasBareLineFeeds) {
  EXPECT_EQ(AgentProbe(kNobody).PrepareHttpSizeHeader(),
            String(L"SOAPAction: \"urn:schemas-microsoft-com:xml-analysis:Discover\"\n"
                   L"Content-Type: text/xml; charset = UTF-8\n"));
}

TEST(Exchange, ReusesOneConnection) {
  ScriptedServer server([](const support::Request&) { return Reply{RowsetReply("")}; });
  AgentProbe agent(server.Url());
  for (int i = 0; i < 5; ++i) {
    String response;
    agent.SendSoapRequest(L"x", response);
  }
  const auto requests = server.Requests();
  ASSERT_EQ(requests.size(), 5u);
  for (const auto& request : requests) EXPECT_EQ(request.connection, requests[0].connection);
}

struct DeclarationCase {
  const char* name;
  std::string sent;
  std::string modern;  // expected text for a 2005, 2008 or 2012 target
  std::string other;   // expected text for any other target
};

const std::string kRest = "<Envelope><Body><return><root/></return></Body></Envelope>";
const std::string kPlain = "<?xml version=\"1.0\"?>";

const DeclarationCase kDeclarations[] = {
    {"none", kRest, kPlain + kRest, kPlain + kRest},
    {"plain", kPlain + kRest, kPlain + kPlain + kRest, kPlain + kRest},
    {"with encoding and line feed", "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + kRest,
     kPlain + "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + kRest, kPlain + "\n" + kRest},
    {"single quotes and standalone", "<?xml version='1.0' standalone='yes' ?>" + kRest,
     kPlain + "<?xml version='1.0' standalone='yes' ?>" + kRest, kPlain + kRest},
    {"doubled", kPlain + kPlain + kRest, kPlain + kPlain + kPlain + kRest, kPlain + kPlain + kRest},
    {"behind blanks", " \r\n\t" + kPlain + kRest, kPlain + " \r\n\t" + kPlain + kRest,
     kPlain + kRest},
    {"behind a byte-order mark", "\xEF\xBB\xBF" + kPlain + kRest,
     kPlain + "\xEF\xBB\xBF" + kPlain + kRest, kPlain + kRest},
};

TEST(Exchange, NormalisesTheDeclaration) {
  const std::pair<ServerInfo::TargetType, bool> targets[] = {
      {ServerInfo::kAnalysisServices2005, true},
      {ServerInfo::kAnalysisServices2008, true},
      {ServerInfo::kAnalysisServices2012, true},
      {ServerInfo::kAnalysisServices2000, false},
      {ServerInfo::kSAP_BW, false},
      {ServerInfo::kSAP_BW35, false},
      {ServerInfo::kTessera, false},
      {ServerInfo::kTamarind7, false},
      {ServerInfo::kTamarind9, false},
      {ServerInfo::kTamarind11, false},
      {ServerInfo::kTamarind11_1_2_3_500, false},
  };
  for (const auto& declaration : kDeclarations) {
    // The reader accepts two declarations, not three.
    const bool readable = std::string(declaration.name) != "doubled";
    ScriptedServer server([&](const support::Request&) { return Reply{declaration.sent}; });
    for (const auto& [target, modern] : targets) {
      AgentProbe agent(server.Url(), target);
      String response;
      const int error = ErrorNumberOf([&] { agent.SendSoapRequest(L"x", response); });
      EXPECT_EQ(error, readable || !modern ? -1 : 46100) << declaration.name << " " << target;
      EXPECT_EQ(support::Narrow(response), modern ? declaration.modern : declaration.other)
          << declaration.name << " " << target;
    }
  }
}

TEST(Exchange, DropsTextBeforeTheDeclaration) {
  for (const char* const before : {"<!-- proxy -->junk", "<?proxy x?>", "?>"}) {
    ScriptedServer server({{before + std::string("<?xml version=\"1.1\" encoding='x'?>") + kRest}});
    AgentProbe agent(server.Url());
    String response;
    agent.SendSoapRequest(L"x", response);
    EXPECT_EQ(support::Narrow(response), kPlain + kRest) << before;
  }
}

TEST(Exchange, UnterminatedDeclarationIsAParseError) {
  ScriptedServer server({{"<?xml version=\"1.0\"" + kRest}});
  AgentProbe agent(server.Url());
  String response;
  EXPECT_EQ(ErrorNumberOf([&] { agent.SendSoapRequest(L"x", response); }), 46100);
}

struct FaultCase {
  const char* name;
  std::string body;
  int status;
  std::string error;  // part of the error text; empty: no error
};

std::string Envelope(const std::string& inner) {
  return "<?xml version=\"1.0\"?><s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\">"
         "<s:Body>" +
         inner + "</s:Body></s:Envelope>";
}

const FaultCase kFaults[] = {
    {"whole, 200", FaultReply("Client.1", "Wrong catalog"), 200, "[64203] "},
    {"whole, 500", FaultReply("Client.1", "Wrong catalog"), 500, "Wrong catalog"},
    {"code is in the text", FaultReply("Client.1", "Wrong catalog"), 200, "Client.1"},
    {"prefixed names",
     Envelope("<s:Fault><s:faultcode>P.1</s:faultcode>"
              "<s:faultstring>prefixed</s:faultstring></s:Fault>"),
     200, "prefixed"},
    {"any case",
     Envelope("<s:Fault><FaultCode>c</FaultCode><FAULTSTRING>upper</FAULTSTRING>"
              "</s:Fault>"),
     200, "upper"},
    {"code alone", Envelope("<s:Fault><faultcode>only-code</faultcode></s:Fault>"), 200,
     "only-code"},
    {"string alone", Envelope("<s:Fault><faultstring>only-text</faultstring></s:Fault>"), 200,
     "only-text"},
    {"null in capitals is none", FaultReply("Client.1", "NULL"), 200, ""},
    {"null in lower case is none", FaultReply("Client.1", "null"), 200, ""},
    {"nullable is one", FaultReply("Client.1", "nullable"), 200, "nullable"},
    {"two strings are joined",
     Envelope("<s:Fault><faultcode>c</faultcode><faultstring>one"
              "</faultstring><faultstring>two</faultstring></s:Fault>"),
     200, "onetwo"},
    {"the later code counts",
     Envelope("<s:Fault><faultcode>first</faultcode><faultcode>second"
              "</faultcode><faultstring>t</faultstring></s:Fault>"),
     200, "second"},
    {"empty fault is none", FaultReply("", ""), 200, ""},
};

TEST(Exchange, FaultsOfEveryFormAreErrors) {
  for (const FaultCase& fault : kFaults) {
    ScriptedServer server({{fault.body, fault.status}});
    AgentProbe agent(server.Url());
    String response;
    const std::string error = ErrorOf([&] { agent.SendSoapRequest(L"x", response); });
    if (fault.error.empty()) {
      EXPECT_EQ(error, "no error") << fault.name;
    } else {
      EXPECT_THAT(error, testing::StartsWith("[64203] ")) << fault.name;
      EXPECT_THAT(error, HasSubstr(fault.error)) << fault.name;
    }
  }
}

TEST(Exchange, FaultTextIsCodeThenString) {
  ScriptedServer server({{FaultReply("the code", "the string")}});
  AgentProbe agent(server.Url());
  String response;
  EXPECT_EQ(ErrorOf([&] { agent.SendSoapRequest(L"x", response); }),
            support::Narrow(SUStrUtil::LoadMsgStringOnly(64203, {L"the code", L"the string"})));
}

TEST(Exchange, ParseErrorTextComesFromThisReply) {
  AgentProbe agent(kNobody);
  const struct {
    const wchar_t* broken;
    const char* place;
  } kCases[] = {{L"<a>\n\n<b></a>", "(line 3, "}, {L"<a></b>", "(line 1, "}};
  String code;
  String text;
  for (const auto& c : kCases) {
    const std::string error = ErrorOf([&] { agent.RetrieveSoapFaultString(c.broken, code, text); });
    EXPECT_THAT(error, testing::StartsWith("[46100] "));
    EXPECT_THAT(error, HasSubstr(c.place));
    EXPECT_EQ(error.find("(line"), error.rfind("(line")) << error;
  }
  agent.RetrieveSoapFaultString(L"<a/>", code, text);
}

TEST(Exchange, LaterFaultCodeReplacesTheEarlier) {
  AgentProbe agent(kNobody);
  String code;
  String text;
  agent.RetrieveSoapFaultString(
      L"<a><faultcode>first</faultcode><faultstring>one</faultstring><faultstring>two"
      L"</faultstring><faultcode>second</faultcode></a>",
      code, text);
  EXPECT_EQ(code, String(L"second"));
  EXPECT_EQ(text, String(L"onetwo"));
}

TEST(Exchange, ErrorsHaveTheirSource) {
  ScriptedServer server({{FaultReply("c", "t")}, {"<a><b></a>"}, {"busy", 503, "text/plain"}});
  AgentProbe agent(server.Url());
  String response;
  for (const int number : {64203, 46100, 0}) {
    try {
      agent.SendSoapRequest(L"x", response);
      FAIL() << number;
    } catch (const ErrorMessage& error) {
      EXPECT_EQ(error.GetNumber(), number);
      EXPECT_EQ(error.GetSourceFile(),
                String(L"server/Utility/UtilityXMLASAX/Src/SUXMLASAXDiscoverAgentImpl.cpp"));
      EXPECT_GT(error.GetSourceLine(), 0);
    }
  }
}

struct BrokenCase {
  const char* name;
  Reply reply;
  std::string error;
};

TEST(Exchange, InvalidRepliesAreErrorsWithAReason) {
  const BrokenCase cases[] = {
      {"status", {"busy", 503, "text/plain"}, "HTTP 503 Service Unavailable"},
      {"web page", {"<html><head><title>Log in</title></head></html>", 200, "text/html"}, "Log in"},
      {"empty", {"", 200, "text/xml"}, "empty"},
      {"cut off", {RowsetReply("<row><A>1</A></row>").substr(0, 300), 200, "text/xml"}, "[46100] "},
      {"ill-formed", {"<a><b></a>", 200, "text/xml"}, "[46100] "},
      {"document type", {"<!DOCTYPE a><a/>", 200, "text/xml"}, "[46100] "},
  };
  for (const BrokenCase& broken : cases) {
    ScriptedServer server({broken.reply, {RowsetReply("")}});
    AgentProbe agent(server.Url());
    String response;
    EXPECT_THAT(ErrorOf([&] { agent.SendSoapRequest(L"x", response); }), HasSubstr(broken.error))
        << broken.name;
    // The agent remains usable.
    EXPECT_EQ(ErrorOf([&] { agent.SendSoapRequest(L"x", response); }), "no error") << broken.name;
  }
}

TEST(Exchange, HttpErrorsHaveNoNumber) {
  AgentProbe agent(kNobody);
  String response;
  EXPECT_EQ(ErrorNumberOf([&] { agent.SendSoapRequest(L"x", response); }), 0);
  EXPECT_EQ(response, String());
}

TEST(Exchange, OtherCharsetsGiveTheSameText) {
  const std::string utf8 = "<a><CUBE_NAME>Größe</CUBE_NAME></a>";
  std::string latin =
      "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a><CUBE_NAME>Gr\xF6\xDF"
      "e</CUBE_NAME></a>";
  std::string utf16 = "\xFF\xFE";
  for (const wchar_t c : support::Wide("<?xml version=\"1.0\" encoding=\"UTF-16\"?>" + utf8)) {
    utf16.push_back(static_cast<char>(c & 0xFF));
    utf16.push_back(static_cast<char>(c >> 8));
  }
  for (const Reply& reply : {Reply{utf8}, Reply{latin},
                             Reply{latin, 200, "text/xml; charset=iso-8859-1"}, Reply{utf16}}) {
    ScriptedServer server({reply});
    AgentProbe agent(server.Url());
    String response;
    agent.SendSoapRequest(L"x", response);
    EXPECT_EQ(support::Narrow(response), kPlain + utf8);
  }
}

TEST(Exchange, IllFormedUtf8BecomesReplacementCharacters) {
  ScriptedServer server({{"<a>x\xFFy\xE2\x82z</a>"}});
  AgentProbe agent(server.Url());
  String response;
  agent.SendSoapRequest(L"x", response);
  EXPECT_EQ(response, String(L"<?xml version=\"1.0\"?><a>x\xFFFDy\xFFFDz</a>"));
}

TEST(SchemaElements, AreTenNamesInAnyCase) {
  for (const wchar_t* name : {L"element", L"complexType", L"sequence", L"choice", L"schema",
                              L"root", L"return", L"DiscoverResponse", L"Body", L"Envelope",
                              L"ELEMENT", L"complextype", L"ROOT", L"discoverresponse"})
    EXPECT_TRUE(IsSchemaElement(name)) << support::Narrow(name);
  for (const wchar_t* name :
       {L"", L"row", L"Header", L"simpleType", L"CUBE_NAME", L"elements", L"xsd:element", L"Fault"})
    EXPECT_FALSE(IsSchemaElement(name)) << support::Narrow(name);
}

}  // namespace
