// Tests which replies are faults, and that a fault never looks like an empty result.

#include <gmock/gmock.h>

#include "AgentProbe.h"
#include "Utility/Generic/ImportSettings.h"

namespace {

using support::FaultReply;
using support::RowsetReply;
using support::ScriptedServer;
using testing::HasSubstr;

std::string Envelope(const std::string& inner) {
  return "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\"><s:Body>" + inner +
         "</s:Body></s:Envelope>";
}

std::string Soap12(const std::string& code, const std::string& text) {
  return Envelope("<s:Fault><s:Code><s:Value>" + code +
                  "</s:Value><s:Subcode><s:Value>sub</s:Value></s:Subcode></s:Code><s:Reason>"
                  "<s:Text xml:lang=\"en\">" +
                  text + "</s:Text><s:Text xml:lang=\"de\">nein</s:Text></s:Reason></s:Fault>");
}

/// An empty rowset with an error inside, as XMLA defines it.
std::string Exception(const std::string& error) {
  return RowsetReply("<Exception/><Messages>" + error + "</Messages>");
}

const std::string kRows =
    "<row><CATALOG_NAME>one</CATALOG_NAME><Value>v</Value><Text>t</Text>"
    "<Description>d</Description></row>";

struct ReplyCase {
  const char* name;
  std::string body;
  int status;
  std::string error;  // start of the error text; empty: the rows are read
};

std::string Fault(const std::string& code, const std::string& text) {
  const std::string begin = "[64203] The server refused the request with";
  if (code.empty() && text.empty()) return begin + "out a reason.";
  const std::string quoted = text.empty() ? "" : "\"" + text + "\"";
  const std::string separator = code.empty() || text.empty() ? "" : ", ";
  return begin + " the SOAP fault " + code + separator + quoted + ".";
}

const ReplyCase kReplies[] = {
    {"rows", RowsetReply(kRows), 200, ""},
    {"fault of SOAP 1.1", FaultReply("c", "t"), 200, Fault("c", "t")},
    {"the same with status 500", FaultReply("c", "t"), 500, Fault("c", "t")},
    {"fault of SOAP 1.2", Soap12("c", "t"), 200, Fault("c", "t")},
    {"the same with status 500", Soap12("c", "t"), 500, Fault("c", "t")},
    {"the same with status 401", Soap12("c", "t"), 401, Fault("c", "t")},
    {"a reason alone", Soap12("", "t"), 503, Fault("", "t")},
    {"a code alone", Soap12("c", ""), 503, Fault("c", "")},
    {"SOAP 1.2 without texts", Envelope("<s:Fault/>"), 200, Fault("", "")},
    {"SOAP 1.2 without texts, status 500", Envelope("<s:Fault/>"), 500, "HTTP 500 "},
    {"SOAP 1.1 without texts", FaultReply("", "") + "", 200, ""},
    {"SOAP 1.1 without texts, status 500", FaultReply("", ""), 500, "HTTP 500 "},
    {"SOAP 1.1 without texts, status 401", FaultReply("", ""), 401, "HTTP 401 "},
    {"SOAP 1.1 without texts, status 403", FaultReply("", ""), 403, "HTTP 403 "},
    {"SOAP 1.1 without texts, status 503", FaultReply("", ""), 503, "HTTP 503 "},
    {"null", RowsetReply(kRows + "<faultcode>c</faultcode><faultstring>NULL</faultstring>"), 200,
     ""},
    {"null, status 500", FaultReply("c", "null"), 500, "HTTP 500 "},
    {"rows with status 500", RowsetReply(kRows), 500, "HTTP 500 "},
    {"broken XML with status 500", "<a><b></a>", 500, "HTTP 500 "},
    {"a fault behind rows", RowsetReply(kRows + "<faultstring>late</faultstring>"), 200,
     Fault("", "late")},
    {"a fault of SOAP 1.2 behind rows",
     RowsetReply(kRows + "<Fault><Value>c</Value><Text>t</Text></Fault>"), 200, Fault("c", "t")},
    {"an exception with attributes",
     Exception("<Error ErrorCode=\"3238658121\" Description=\"not &lt;here&gt; &amp; there\"/>"),
     200, Fault("3238658121", "not <here> & there")},
    {"an exception with elements",
     Exception("<Error><ErrorCode>1</ErrorCode><Description>t</Description></Error>"), 200,
     Fault("1", "t")},
    {"the first of two errors counts",
     Exception("<Error Description=\"a\" ErrorCode=\"1\"/><Error ErrorCode=\"2\"/>"), 200,
     Fault("1", "a")},
    {"an exception around its error",
     RowsetReply("<Exception><Error ErrorCode=\"1\" Description=\"t\"/></Exception>"), 200,
     Fault("1", "t")},
    {"the same with the description first",
     RowsetReply("<Exception><Error Description=\"t\" ErrorCode=\"1\"/></Exception>"), 200,
     Fault("1", "t")},
    {"an exception with elements, the description first",
     Exception("<Error><Description>t</Description><ErrorCode>1</ErrorCode></Error>"), 200,
     Fault("1", "t")},
    {"the same with the exception at the end",
     RowsetReply("<Messages><Error><Description>t</Description><ErrorCode>1</ErrorCode></Error>"
                 "</Messages><Exception/>"),
     200, Fault("1", "t")},
    {"an exception around a description alone",
     RowsetReply("<Exception><Error><Description>t</Description></Error></Exception>"), 200,
     Fault("", "t")},
    {"an exception around its texts, without Error, before a row",
     RowsetReply("<Exception><Description>t</Description><ErrorCode>1</ErrorCode></Exception>" +
                 kRows),
     200, Fault("1", "t")},
    {"texts of two errors are not mixed",
     Exception(
         "<Error><ErrorCode>1</ErrorCode></Error><Error><Description>b</Description></Error>"),
     200, Fault("1", "")},
    {"a warning before the error",
     Exception("<Warning><Description>w</Description></Warning>"
               "<Error><ErrorCode>1</ErrorCode><Description>t</Description></Error>"),
     200, Fault("1", "t")},
    {"an exception around its error, before a row with texts",
     RowsetReply("<Exception><Error ErrorCode=\"1\" Description=\"t\"/></Exception><row>"
                 "<Description>d</Description><Error ErrorCode=\"7\"/></row>"),
     200, Fault("1", "t")},
    {"an exception between rows with texts",
     RowsetReply("<row><Description>d</Description></row><Exception/><row><Description>d"
                 "</Description></row><Messages><Error ErrorCode=\"7\"/></Messages>"),
     200, Fault("7", "")},
    {"the real form of Analysis Services",
     RowsetReply("<Exception xmlns=\"urn:schemas-microsoft-com:xml-analysis:exception\"/>"
                 "<Messages xmlns=\"urn:schemas-microsoft-com:xml-analysis:exception\">"
                 "<Error ErrorCode=\"3238658121\" Description=\"t\" Source=\"s\" HelpFile=\"\"/>"
                 "</Messages>"),
     200, Fault("3238658121", "t")},
    {"an error of a row with attributes like a fault",
     RowsetReply("<row><CATALOG_NAME>one</CATALOG_NAME><Error faultstring=\"f\" Fault=\"f\" "
                 "Exception=\"e\"/></row>"),
     200, ""},
    {"SOAP 1.2 with the detail first",
     Envelope("<Fault><Detail><Value>d</Value><Text>d</Text></Detail><Reason><Text>t</Text>"
              "</Reason><Code><Value>c</Value></Code></Fault>"),
     200, Fault("c", "t")},
    {"SOAP 1.2 with the detail between",
     Envelope("<Fault><Code><Value>c</Value></Code><Detail><Text>d</Text></Detail><Reason><Text>t"
              "</Text></Reason></Fault>"),
     200, Fault("c", "t")},
    {"SOAP 1.2 with texts in the detail alone",
     Envelope("<Fault><Detail><Value>d</Value><Text>d</Text></Detail></Fault>"), 200,
     Fault("", "")},
    {"SOAP 1.2 with an error in the detail alone",
     Envelope("<Fault><Detail><Error ErrorCode=\"1\" Description=\"t\"/></Detail></Fault>"), 500,
     Fault("1", "t")},
    {"SOAP 1.2 with an error in the detail, too",
     Envelope("<Fault><Detail><Error ErrorCode=\"1\" Description=\"t\"/></Detail><Code><Value>c"
              "</Value></Code></Fault>"),
     200, Fault("c", "")},
    {"an exception in a row with texts",
     RowsetReply("<row><CATALOG_NAME>one</CATALOG_NAME><DESCRIPTION>all sales</DESCRIPTION>"
                 "<Exception/></row><Messages><Error ErrorCode=\"1\" Description=\"t\"/>"
                 "</Messages>"),
     200, Fault("1", "t")},
    {"the same with the messages in the row",
     RowsetReply("<row><DESCRIPTION>all sales</DESCRIPTION><Messages><Error ErrorCode=\"1\"/>"
                 "</Messages><Exception/></row>"),
     200, Fault("1", "")},
    {"an exception behind a row with an error",
     RowsetReply("<row><X><Error ErrorCode=\"7\"/></X></row><Exception/><Messages><Error "
                 "ErrorCode=\"1\"/></Messages>"),
     200, Fault("1", "")},
    {"an exception before a row with an error as a column",
     RowsetReply("<Exception/><row><Error ErrorCode=\"7\"/></row><Messages><Error "
                 "ErrorCode=\"1\"/></Messages>"),
     200, Fault("1", "")},
    {"an exception behind a header with an error",
     "<e:Envelope xmlns:e=\"u\"><e:Header><X><Error ErrorCode=\"7\"/></X></e:Header><e:Body>"
     "<Exception/><Messages><Error ErrorCode=\"1\"/></Messages></e:Body></e:Envelope>",
     200, Fault("1", "")},
    {"messages before a row and the exception",
     RowsetReply("<Messages><Error ErrorCode=\"1\"/></Messages>" + kRows + "<Exception/>"), 200,
     Fault("1", "")},
    {"a warning with a text before an error without one",
     Exception("<Warning><Description>w</Description></Warning><Error ErrorCode=\"1\"/>"), 200,
     Fault("1", "")},
    {"a text in a location of the error",
     Exception("<Error ErrorCode=\"1\"><Location><Description>w</Description></Location></Error>"),
     200, Fault("1", "")},
    {"SOAP 1.2 in a row with texts",
     RowsetReply("<row><Value>v</Value><Text>w</Text><Fault><Reason><Text>t</Text><Text>u</Text>"
                 "</Reason><Code><Value>c</Value><Subcode><Value>s</Value><Subcode><Value>r</Value>"
                 "</Subcode></Subcode></Code></Fault></row>"),
     200, Fault("c", "t")},
    {"the same with an error in the detail alone",
     RowsetReply("<row><Value>v</Value><Text>w</Text><Fault><Detail><Error ErrorCode=\"1\"/>"
                 "</Detail></Fault></row>"),
     200, Fault("1", "")},
    {"SOAP 1.1 with blanks", FaultReply("", "\n "), 200, Fault("", "")},
    {"SOAP 1.1 with blanks, status 503", FaultReply(" ", "\n"), 503, "HTTP 503 "},
    {"SOAP 1.2 with blanks, status 503", Soap12(" ", " "), 503, "HTTP 503 "},
    {"an exception with blanks, status 503",
     Exception("<Error ErrorCode=\" \" Description=\"\t\"/>"), 503, "HTTP 503 "},
    {"null in mixed case",
     RowsetReply(kRows + "<faultstring>Nu</faultstring><faultstring>lL"
                         "</faultstring>"),
     200, ""},
    {"a later faultcode", RowsetReply("<faultcode>c</faultcode><faultcode>d</faultcode>"), 200,
     Fault("d", "")},
    {"a later empty faultcode", RowsetReply(kRows + "<faultcode>c</faultcode><faultcode/>"), 200,
     ""},
    {"an exception without error", Exception(""), 200, Fault("", "")},
    {"an exception behind rows",
     RowsetReply(kRows + "<Exception/><Error ErrorCode=\"7\" Description=\"late\"/>"), 200,
     Fault("7", "late")},
    {"an error in a row alone",
     RowsetReply("<row><CATALOG_NAME>one</CATALOG_NAME><X><Error ErrorCode=\"7\"/></X></row>"), 200,
     ""},
    {"no XML after a fault", FaultReply("c", "t") + "<", 200, "[46100] "},
};

TEST(Failure, NeverLooksLikeAnEmptyResult) {
  for (const ReplyCase& c : kReplies) {
    ScriptedServer server({{c.body, c.status}});
    AgentProbe agent(server.Url());
    VXStringVector catalogs{L"from before"};
    std::string error = ErrorOf([&] { agent.GetCatalogs(catalogs, L"d"); });
    const std::string url = server.Url() + ": ";  // the beginning of an error of the HTTP client
    if (error.starts_with(url)) error.erase(0, url.size());
    if (c.error.empty()) {
      EXPECT_EQ(error, "no error") << c.name;
    } else {
      EXPECT_THAT(error, testing::StartsWith(c.error)) << c.name << ", status " << c.status;
      EXPECT_TRUE(catalogs.empty()) << c.name;
    }
  }
}

/// The number of missing characters is that of the whole text.
TEST(Failure, ShowsTheBeginningOfLongTexts) {
  const std::string piece(50000, 'x');
  const std::string pieces =
      "<faultstring>" + piece + "</faultstring><faultstring>" + piece + "</faultstring>";
  const auto check = [](const std::string& body, const std::string& shown) {
    ScriptedServer server({{body, 200}});
    AgentProbe agent(server.Url());
    VXStringVector catalogs;
    EXPECT_THAT(ErrorOf([&] { agent.GetCatalogs(catalogs, L"d"); }), HasSubstr(shown))
        << body.substr(0, 300);
  };
  const std::string shown =
      " " + std::string(450, 'x') + "... (" + std::to_string(100000 - 450) + " more characters)";
  const std::string quoted = " \"" + shown.substr(1) + "\"";
  check(RowsetReply(pieces), quoted);
  check(FaultReply(piece + piece, "t"), shown);
  check(Soap12("c", piece + piece), quoted);
  check(Soap12(piece + piece, "t"), shown);
  check(Exception("<Error><ErrorCode>1</ErrorCode><Description>" + piece + piece +
                  "</Description></Error>"),
        quoted);
  check(FaultReply("c", std::string(512, 'x')), "\"" + std::string(512, 'x') + "\".");
  check(FaultReply("c", std::string(513, 'x')),
        "\"" + std::string(450, 'x') + "... (63 more characters)\".");
  check(FaultReply("c", std::string(1000, ' ')), "fault c. ");
}

/// The replies of real servers are in the first lines.
TEST(Failure, TellsTheHostTheDetailOfAFault) {
  const auto fault = [](const std::string& detail) {
    return Envelope("<s:Fault><faultcode>c</faultcode><faultstring>t</faultstring><detail>" +
                    detail + "</detail></s:Fault>");
  };
  const std::string longText(600, 'x');
  const struct {
    const char* name;
    std::string body;
    std::vector<std::string> details;
  } kCases[] = {
      {"Analysis Services",
       fault("<Error ErrorCode=\"3238658125\" Description=\"The request type was not recognized.\" "
             "Source=\"Analysis Services\" "
             "HelpFile=\"\"><Location><Line>1</Line></Location></Error>"),
       {"The request type was not recognized. (0xC10A004D, from Analysis Services)"}},
      {"Mondrian",
       fault("<XA:error xmlns:XA=\"http://mondrian.sourceforge.net\"><code>00HSBD01</code>"
             "<desc>The Mondrian XML: no cube</desc></XA:error>"),
       {"The Mondrian XML: no cube"}},
      {"without a description", fault("<Error ErrorCode=\"1\" Source=\"s\"/>"), {}},
      {"with a blank one", fault("<Error ErrorCode=\"1\" Description=\" \"/>"), {}},
      {"with the text of the fault", fault("<Error ErrorCode=\"1\" Description=\"t\"/>"), {}},
      {"with a small code",
       fault("<Error ErrorCode=\"2147483647\" Description=\"d\"/>"),
       {"d (2147483647)"}},
      {"with the smallest code of a failure",
       fault("<Error ErrorCode=\"2147483648\" Description=\"d\"/>"),
       {"d (0x80000000)"}},
      {"with the largest code",
       fault("<Error ErrorCode=\"4294967295\" Description=\"d\"/>"),
       {"d (0xFFFFFFFF)"}},
      {"with a number that is too large",
       fault("<Error ErrorCode=\"4294967296\" Description=\"d\"/>"),
       {"d (4294967296)"}},
      {"with a negative code",
       fault("<Error ErrorCode=\"-1056309171\" Description=\"d\"/>"),
       {"d (-1056309171)"}},
      {"with a source alone", fault("<Error Source=\"s\" Description=\"d\"/>"), {"d (from s)"}},
      {"with elements",
       fault(
           "<Error><ErrorCode>7</ErrorCode><Description>d</Description><Source>s</Source></Error>"),
       {"d (7, from s)"}},
      {"with errors of the same text",
       fault("<Error Description=\"a\"/><Error Description=\"a\"/><Error Description=\"b\"/>"),
       {"a", "b"}},
      {"with four errors",
       fault("<Error Description=\"a\"/><Error Description=\"b\"/><Error Description=\"c\"/>"
             "<Error Description=\"d\"/>"),
       {"a", "b", "c"}},
      {"with a long text",
       fault("<Error Description=\"" + longText + "\"/>"),
       {std::string(450, 'x') + "... (150 more characters)"}},
      {"an exception", Exception("<Error ErrorCode=\"1\" Description=\"a\"/>"), {}},
      {"an exception with two errors",
       Exception("<Error Description=\"a\"/><Error Description=\"b\"/>"),
       {"b"}},
      {"SOAP 1.2",
       Envelope("<Fault><Reason><Text>t</Text></Reason><Detail><Error Description=\"d\"/></Detail>"
                "</Fault>"),
       {"d"}},
      {"rows", RowsetReply(kRows + "<row><Error Description=\"d\"/></row>"), {}},
  };
  for (const auto& c : kCases) {
    std::vector<std::string> details;
    ImportSettings settings;
    settings.onFaultDetail = [&](const String& detail) {
      details.push_back(support::Narrow(detail));
    };
    const ImportSettings::Scope scope(settings);
    ScriptedServer server({{c.body, 200}});
    AgentProbe agent(server.Url());
    VXStringVector catalogs;
    ErrorOf([&] { agent.GetCatalogs(catalogs, L"d"); });
    EXPECT_EQ(details, c.details) << c.name;
  }
}

/// Rows before a fault in the same reply are discarded.
TEST(Failure, FailedReplyChangesNoObjectsOfTheCaller) {
  const std::string fault = "<faultstring>late</faultstring>";
  const std::string property =
      "<row><PropertyName>ProviderName</PropertyName><Value>new</Value></row>";
  ScriptedServer server([&](const support::Request& request) {
    if (request.body.find("MDSCHEMA_MEMBERS") != std::string::npos)
      return support::Reply{RowsetReply("<row><MEMBER_TYPE>2</MEMBER_TYPE></row>" + fault)};
    if (request.body.find("MDSCHEMA_LEVELS") != std::string::npos)
      return support::Reply{RowsetReply("<row><LEVEL_UNIQUE_NAME>l</LEVEL_UNIQUE_NAME></row>")};
    return support::Reply{RowsetReply(property + "<row/>" + fault)};
  });
  AgentProbe agent(server.Url());
  String name = L"old";
  EXPECT_EQ(ErrorNumberOf([&] { agent.GetProviderName(name); }), 64203);
  EXPECT_EQ(name, String(L"old"));
  const RefCnt<XmlAMember> member(new XmlAMember);
  EXPECT_EQ(
      ErrorNumberOf([&] { agent.GetMemberOnCatalogCubeHierarchy(member, L"C", L"Q", L"H", L"D"); }),
      64203);
  EXPECT_EQ(member->GetMemberType(), 0);
  // A failed properties request keeps the levels without properties.
  std::vector<RefCnt<XmlALevel>> levels;
  EXPECT_EQ(ErrorNumberOf([&] {
              agent.GetLevelsOnCatalogCubeHierarchy(
                  levels, L"C", L"Q", new XmlAHierarchy(ServerInfo::kTessera, ServerInfo::kCLIXMLA),
                  L"D");
            }),
            64203);
  ASSERT_EQ(levels.size(), 1u);
  EXPECT_EQ(levels[0]->GetNumOfProperties(), 0u);
  std::vector<RefCnt<XmlAMeasure>> measures;
  EXPECT_EQ(ErrorNumberOf([&] { agent.GetMeasuresOnCatalogCube(measures, L"C", L"Q", L"D"); }),
            64203);
  EXPECT_TRUE(measures.empty());
}

}  // namespace
