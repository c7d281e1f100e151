// Tests the command line: commands, options, their order, contradictions, and reporting of usage
// errors.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST(Call, HelpListsCommandsOptionsAndStatuses) {
  const Outcome outcome = RunTool({"--help"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  for (const char* word : {"sources",
                           "tree",
                           "cube",
                           "import",
                           "--url",
                           "--sample",
                           "--user",
                           "--password-file",
                           "--server",
                           "--token-file",
                           "--auth",
                           "--cert",
                           "--key",
                           "--key-password-file",
                           "--ca-file",
                           "--proxy",
                           "--connect-timeout",
                           "--timeout",
                           "--retry",
                           "--target",
                           "--log",
                           "--format",
                           "--output",
                           "--quiet",
                           "--verbose",
                           "XMLA_IMPORT_URL",
                           "XMLA_IMPORT_USER",
                           "XMLA_IMPORT_PASSWORD",
                           "XMLA_IMPORT_TARGET",
                           "130"})
    EXPECT_THAT(outcome.out, HasSubstr(word));
}

TEST(Call, EachCommandHasItsOwnHelp) {
  EXPECT_THAT(RunTool({"import", "--help"}).out,
              HasSubstr("Usage: xmla-import import [OPTION]..."));
  EXPECT_THAT(RunTool({"import", "--help"}).out, HasSubstr("--jobs"));
  EXPECT_THAT(RunTool({"cube", "--help"}).out, HasSubstr("--catalog"));
}

TEST(Call, UsageErrorsDoNotRepeatPossibleSecrets) {
  for (const Arguments& arguments :
       {Arguments{"--url", "http://127.0.0.1:1/", "--password", "c4nary", "sources"},
        Arguments{"--url", "http://127.0.0.1:1/", "--password=c4nary", "sources"},
        Arguments{"--url", "http://127.0.0.1:1/", "sources", "--password", "c4nary", "--format",
                  "json"},
        Arguments{"--url", "http://127.0.0.1:1/", "--token", "c4nary", "sources"},
        Arguments{"--url", "http://127.0.0.1:1/", "sources", "--key-password=c4nary"},
        Arguments{"--url", "http://127.0.0.1:1/", "sources", "--proxy-user", "ann:c4nary"},
        Arguments{"--sample", "sap-bw", "--proxy", "ann:c4nary@h:80", "sources"},
        Arguments{"--sample", "sap-bw", "--proxy=http://ann:c4nary@h:80", "sources", "--json"},
        Arguments{"http://ann:c4n ary@h/", "sources"},
        Arguments{"--url", "http://h/", "--user", "ann:c4nary", "sources"},
        Arguments{"sources", "-pc4nary"}, Arguments{"sources", "http://ann:c4nary@h/"},
        Arguments{"http://ann:c4nary@h/", "sources"},
        Arguments{"--url", "http://h/", "--target", "http://ann:c4nary@h/", "sources"},
        Arguments{"--sample", "http://ann:c4n@ry@h/", "sources"},
        Arguments{"--format", "http://ann:c4nary@h/", "sources", "--url", "http://h/"},
        Arguments{"--url", "http://h/", "import", "--jobs", "http://ann:c4nary@h/"}}) {
    const Outcome outcome = RunTool(arguments);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_NE(outcome.err, "");
    EXPECT_THAT(outcome.err + outcome.out, testing::Not(HasSubstr("ry@")));
    EXPECT_THAT(outcome.err + outcome.out, testing::Not(HasSubstr("c4nary")));
  }
}

TEST(Call, HelpWrittenToAFullDeviceIsAnError) {
  Options options;
  options.out = Stream::kFull;
  EXPECT_EQ(RunTool({"--help"}, options).status, 1);
}

struct WrongCall {
  const char* name;
  Arguments arguments;
  std::map<std::string, std::string> environment;
  std::string says;  ///< part of the line on standard error
};

void PrintTo(const WrongCall& call, std::ostream* out) { *out << call.name; }

class WrongCalls : public testing::TestWithParam<WrongCall> {};

TEST_P(WrongCalls, ExitWithStatus2AndOneLineWithTheRemedy) {
  Options options;
  options.environment = GetParam().environment;
  const Outcome outcome = RunTool(GetParam().arguments, options);
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.out, "");
  ASSERT_EQ(outcome.ErrorLines().size(), 1u) << outcome.err;
  EXPECT_THAT(outcome.err, StartsWith("xmla-import: error: "));
  EXPECT_THAT(outcome.err, HasSubstr(GetParam().says));
}

const char kUrl[] = "http://127.0.0.1:1/";

INSTANTIATE_TEST_SUITE_P(
    Call, WrongCalls,
    testing::Values(
        WrongCall{"NoCommand", {"--url", kUrl}, {}, "sources, tree, cube, import"},
        WrongCall{"NothingAtAll", {}, {}, "sources, tree, cube, import"},
        WrongCall{"UnknownCommand", {"--url", kUrl, "forest"}, {}, "forest"},
        WrongCall{"UnknownCommandListsThem",
                  {"--url", kUrl, "forest"},
                  {},
                  "unknown command \"forest\"; expected one of: sources, tree, cube, import"},
        WrongCall{"OptionBeforeAnotherCommand",
                  {"--url", kUrl, "--jobs", "2", "tree"},
                  {},
                  "tree has no option --jobs (it has --source); see xmla-import tree --help"},
        WrongCall{"TwoCommands", {"--url", kUrl, "sources", "tree"}, {}, "tree"},
        WrongCall{"UnknownOption", {"--url", kUrl, "sources", "--color"}, {}, "--color"},
        WrongCall{
            "OptionOfAnotherCommand", {"--url", kUrl, "sources", "--source", "A"}, {}, "--source"},
        WrongCall{
            "NoPasswordOption", {"--url", kUrl, "--password", "x", "sources"}, {}, "--password"},
        WrongCall{"MissingValue", {"sources", "--url"}, {}, "--url"},
        WrongCall{"EmptyValue", {"sources", "--url", ""}, {}, "--url needs a non-empty value"},
        WrongCall{"EmptyValueBehindAnEqualsSign",
                  {"--url", kUrl, "cube", "--source=", "--catalog=X"},
                  {},
                  "--source needs a non-empty value"},
        WrongCall{"EmptyValueOfAnOptionOfEveryCommand",
                  {"--url=", "sources"},
                  {},
                  "--url needs a non-empty value"},
        WrongCall{"EmptyValueOfAnUnknownOption",
                  {"--url", kUrl, "sources", "--password="},
                  {},
                  "there is no option --password"},
        WrongCall{"EmptyChoice",
                  {"--url", kUrl, "cube", "--cube", ""},
                  {},
                  "--cube needs a non-empty value"},
        WrongCall{"OptionTwice", {"sources", "--url", kUrl, "--url", kUrl}, {}, "--url"},
        WrongCall{"ChoiceTwice",
                  {"--url", kUrl, "cube", "--cube", "A", "--cube", "B"},
                  {},
                  "--cube may be given only once"},
        WrongCall{"SourceOfTheTreeTwice",
                  {"--url", kUrl, "tree", "--source", "A", "--source", "B"},
                  {},
                  "--source may be given only once"},
        WrongCall{"NoProvider",
                  {"sources"},
                  {},
                  "--url URL (or XMLA_IMPORT_URL), --server NAME (or XMLA_IMPORT_SERVER) or "
                  "--sample KIND"},
        WrongCall{"DiffOfOneFile",
                  {"diff", "old.json"},
                  {},
                  "or --sample KIND, or give NEW, a second file; see xmla-import diff --help"},
        WrongCall{"EmptyVariable", {"sources"}, {{"XMLA_IMPORT_URL", ""}}, "no service given"},
        WrongCall{"UrlAndSample",
                  {"--url", kUrl, "--sample", "tamarind", "sources"},
                  {},
                  "--url and --sample cannot be combined"},
        WrongCall{"UnknownSample",
                  {"--sample", "other", "sources"},
                  {},
                  "analysis-services, sap-bw, tamarind"},
        WrongCall{"UnknownTarget",
                  {"--url", kUrl, "--target", "as2005", "sources"},
                  {},
                  "unknown --target \"as2005\"; expected one of: analysis-services-2000, "
                  "analysis-services-2005, analysis-services-2008, analysis-services-2012, sap-bw, "
                  "sap-bw35, tamarind-7, tamarind-9, tamarind-11, tamarind-11.1.2.3.500, tessera "
                  "(any other XMLA server), "
                  "auto"},
        WrongCall{"TimeoutInWords",
                  {"--sample", "tamarind", "sources"},
                  {{"MORVEN_BI_XMLA_HTTP_TIMEOUT", "abc"}},
                  "MORVEN_BI_XMLA_HTTP_TIMEOUT is \"abc\": give a whole number of seconds"},
        WrongCall{"TimeoutBelowZero",
                  {"--sample", "tamarind", "sources"},
                  {{"MORVEN_BI_XMLA_HTTP_TIMEOUT", "-1"}},
                  "MORVEN_BI_XMLA_HTTP_TIMEOUT is \"-1\": give a whole number of seconds"},
        WrongCall{"TimeoutInParts",
                  {"--sample", "tamarind", "sources"},
                  {{"MORVEN_BI_XMLA_HTTP_TIMEOUT", "1.5"}},
                  "MORVEN_BI_XMLA_HTTP_TIMEOUT is \"1.5\": give a whole number of seconds"},
        WrongCall{"EmptyTimeout",
                  {"--sample", "tamarind", "sources"},
                  {{"MORVEN_BI_XMLA_HTTP_TIMEOUT", ""}},
                  "MORVEN_BI_XMLA_HTTP_TIMEOUT is \"\": give a whole number of seconds"},
        WrongCall{"TimeoutWithAUnit",
                  {"--sample", "tamarind", "sources"},
                  {{"MORVEN_BI_XMLA_HTTP_TIMEOUT", "3x"}},
                  "MORVEN_BI_XMLA_HTTP_TIMEOUT is \"3x\": give a whole number of seconds"},
        WrongCall{"UnknownTargetInTheEnvironment",
                  {"--url", kUrl, "sources"},
                  {{"XMLA_IMPORT_TARGET", "AUTO"}},
                  "unknown XMLA_IMPORT_TARGET \"AUTO\" (did you mean auto?); expected one of: "},
        WrongCall{"UnknownFormat",
                  {"--url", kUrl, "sources", "--format", "xml"},
                  {},
                  "unknown --format \"xml\"; expected one of: text, json"},
        WrongCall{"QuietAndVerbose",
                  {"--url", kUrl, "sources", "--quiet", "--verbose"},
                  {},
                  "--quiet and --verbose cannot be combined"},
        WrongCall{
            "OtherScheme", {"--url", "ftp://server/", "sources"}, {}, "--url cannot be used: "},
        WrongCall{"NoScheme", {"--url", "server/xmla", "sources"}, {}, "--url cannot be used: "},
        WrongCall{"BadUrlInTheEnvironment",
                  {"sources"},
                  {{"XMLA_IMPORT_URL", "file:///etc/passwd"}},
                  "XMLA_IMPORT_URL cannot be used: "},
        WrongCall{"NoJobs", {"--url", kUrl, "import", "--jobs", "0"}, {}, "--jobs"},
        WrongCall{"ManyJobs", {"--url", kUrl, "import", "--jobs", "65"}, {}, "--jobs"},
        WrongCall{"JobsInWords", {"--url", kUrl, "import", "--jobs", "two"}, {}, "--jobs"},
        WrongCall{"OutputInNoFolder",
                  {"--url", kUrl, "sources", "-o", "/no/such/folder/file"},
                  {},
                  "--output \"/no/such/folder/file\" cannot be written: the directory "
                  "\"/no/such/folder\" does not exist"},
        WrongCall{
            "OutputIsAFolder", {"--url", kUrl, "sources", "-o", "/tmp"}, {}, "is a directory"},
        WrongCall{"PasswordFileWithoutUser",
                  {"--url", kUrl, "sources", "--password-file", "-"},
                  {},
                  "--password-file needs a user name"},
        WrongCall{"OptionAsValue",
                  {"--sample", "--jobs", "3", "import"},
                  {},
                  "; --jobs was taken as the value of --sample; see"},
        WrongCall{"OptionAsValueOfAName",
                  {"--url", kUrl, "import", "--cube", "--jobs", "3"},
                  {},
                  "(did you mean --cube \"3\"?); --jobs was taken as the value of --cube; see"},
        WrongCall{"CommandAsValue",
                  {"--sample", "tree"},
                  {},
                  "; tree was taken as the value of --sample; see"},
        WrongCall{"KerberosAsScheme",
                  {"--url", kUrl, "--auth", "kerberos", "tree"},
                  {},
                  "unknown --auth \"kerberos\"; expected one of: negotiate, ntlm, digest, basic; "
                  "Kerberos is negotiate; see"},
        WrongCall{"NameOfASource",
                  {"--url", kUrl, "tree", "Alpha"},
                  {},
                  "unexpected argument \"Alpha\" (did you mean --source \"Alpha\"?); see"},
        WrongCall{"UrlAsCommand",
                  {"http://h/xmla", "tree"},
                  {},
                  "unexpected argument (did you mean --url \"http://h/xmla\"?); see"},
        WrongCall{"UrlAsName",
                  {"check", "https://ann:c4n ary@h/xmla"},
                  {},
                  "unexpected argument (did you mean --url \"https://h/xmla\"?); see"},
        WrongCall{"UrlAsFile",
                  {"diff", "old.json", "http://h/xmla"},
                  {},
                  "unexpected argument (did you mean --url \"http://h/xmla\"?); see"},
        WrongCall{"UserWithPassword",
                  {"--url", kUrl, "--user", "ann:c4nary", "tree"},
                  {},
                  "user \"ann\" (give the name alone, without a colon and a password) needs a "
                  "password, and there is no terminal to ask for it; use --password-file FILE (or "
                  "XMLA_IMPORT_PASSWORD)"},
        WrongCall{"NoPasswordFile",
                  {"--url", kUrl, "--user", "u", "--password-file", "/no/such/file", "sources"},
                  {},
                  "cannot be read from --password-file \"/no/such/file\": No such file"}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(Call, AcceptsEveryTimeoutThatTheLibraryReads) {
  for (const char* const timeout : {"30", "+30", " 30\n", "0030", "0", "99999999999"}) {
    Options options;
    options.environment = {{"MORVEN_BI_XMLA_HTTP_TIMEOUT", timeout}};
    const Outcome outcome = RunTool({"--sample", "tamarind", "sources"}, options);
    EXPECT_EQ(outcome.status, 0) << '"' << timeout << "\" " << outcome.err;
  }
}

TEST(Call, UsageErrorsAreJsonIfJsonWasRequested) {
  for (const std::string command : {"sources", "tree"}) {
    const Json expected = {{"dataSources", Json::array()},
                           {"errors",
                            {"unknown --target \"x\"; expected one of: analysis-services-2000, "
                             "analysis-services-2005, analysis-services-2008, "
                             "analysis-services-2012, sap-bw, sap-bw35, tamarind-7, "
                             "tamarind-9, tamarind-11, tamarind-11.1.2.3.500, tessera (any other "
                             "XMLA server), auto; see xmla-import " +
                             command + " --help"}},
                           {"warnings", Json::array()}};
    const Outcome outcome = RunTool({command, "--format", "json", "--target", "x", "--url", kUrl});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.Document(), expected) << outcome.out;
  }
}

TEST(Call, UsageErrorsInJsonHaveTheKeysOfTheCommand) {
  const std::pair<Arguments, std::vector<std::string>> cases[] = {
      {{"--format=json", "sources", "--no-such-option"}, {"dataSources", "errors", "warnings"}},
      {{"tree", "--format", "json"}, {"dataSources", "errors", "warnings"}},
      {{"--format", "json", "cube", "--cube"},
       {"dataSource", "catalog", "cube", "hierarchies", "measures", "sapVariables", "errors",
        "warnings"}},
      {{"import", "--jobs", "x", "--format", "json"}, {"provider", "cubes", "errors", "warnings"}},
      {{"cube", "--source", "", "--format", "json"},
       {"dataSource", "catalog", "cube", "hierarchies", "measures", "sapVariables", "errors",
        "warnings"}},
      {{"cube", "--source=", "--format=json"},
       {"dataSource", "catalog", "cube", "hierarchies", "measures", "sapVariables", "errors",
        "warnings"}},
      {{"--format", "json"}, {"errors", "warnings"}},
      {{"--format", "json", "forest"}, {"errors", "warnings"}},
  };
  for (const auto& [arguments, keys] : cases) {
    const Outcome outcome = RunTool(arguments);
    EXPECT_EQ(outcome.status, 2);
    const Json document = outcome.Document();
    std::vector<std::string> found;
    for (const auto& [key, value] : document.items()) found.push_back(key);
    EXPECT_EQ(found, keys);
    EXPECT_EQ(document["errors"].size(), 1u);
  }
}

TEST(Call, OptionsMayPrecedeOrFollowTheCommand) {
  const ScriptedProvider provider(TwoSources());
  const std::string url = provider.Url();
  for (const Arguments& arguments :
       {Arguments{"--url", url, "--format", "json", "tree", "--source", "Beta"},
        Arguments{"tree", "--url", url, "--source", "Beta", "--format", "json"},
        Arguments{"tree", "--source", "Beta", "--url=" + url, "--format=json"}}) {
    const Outcome outcome = RunTool(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.Document()["dataSources"][0]["name"], "Beta");
  }
}

TEST(Call, UrlAndTargetComeFromTheEnvironment) {
  const ScriptedProvider provider(TwoSources());
  Options options;
  options.environment = {{"XMLA_IMPORT_URL", provider.Url()}, {"XMLA_IMPORT_TARGET", "tessera"}};
  // A tessera provider lists its sources by DataSourceInfo.
  EXPECT_EQ(RunTool({"sources"}, options).out, "Provider=alpha\nProvider=beta\n");
}

TEST(Call, OptionsOverrideTheEnvironment) {
  const ScriptedProvider provider(TwoSources());
  Options options;
  options.environment = {{"XMLA_IMPORT_URL", "http://127.0.0.1:1/"},
                         {"XMLA_IMPORT_TARGET", "tessera"}};
  const Outcome outcome =
      RunTool({"--url", provider.Url(), "--target", "analysis-services-2005", "sources"}, options);
  EXPECT_EQ(outcome.out, "Alpha\nBeta\n");
}

TEST(Call, SampleOverridesAUrlOfTheEnvironment) {
  Options options;
  options.environment = {{"XMLA_IMPORT_URL", "http://127.0.0.1:1/"}};
  EXPECT_EQ(RunTool({"--sample", "analysis-services", "sources"}, options).status, 0);
}

TEST(Call, OutputIsUtf8InAnyLocale) {
  ScriptedProvider::Script script = TwoSources();
  script.rows["DISCOVER_DATASOURCES"] = {{{"DataSourceName", "Größe 店舗 𝄞"}}};
  const ScriptedProvider provider(std::move(script));
  for (const char* locale : {"C", "POSIX", "C.UTF-8", "de_DE.ISO-8859-1", "no_SUCH"}) {
    Options options;
    options.environment = {{"LC_ALL", locale}, {"LANG", locale}};
    EXPECT_EQ(RunTool({"--url", provider.Url(), "sources"}, options).out, "Größe 店舗 𝄞\n");
    EXPECT_EQ(RunTool({"--url", provider.Url(), "sources", "--format", "json"}, options)
                  .Document()["dataSources"],
              Json({"Größe 店舗 𝄞"}));
  }
}

TEST(Call, InvalidUtf8ArgumentsAreReportedAsUtf8) {
  const ScriptedProvider provider(OneCube());
  const Outcome outcome =
      RunTool({"--url", provider.Url(), "tree", "--source", "\xFF\xFE", "--format", "json"});
  EXPECT_NO_THROW(outcome.Document()) << outcome.out;
}

}  // namespace
}  // namespace tool
