// --version of both programs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "Utility/Generic/LinkedLibraries.h"
#include "results/Formats.h"
#include "support/ChildProcess.h"
#include "support/TempDir.h"
#include "support/Text.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

const std::string kNumber = "[0-9]+\\.[0-9]+\\.[0-9]+";

std::string Spaced(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) list += ' ' + text;
  return list;
}

TEST(Version, NamesProgramLibrariesFeaturesAndFormats) {
  const Outcome outcome = RunTool({"--version"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  const std::regex pattern("xmla-import (" + kNumber +
                           ")( \\(commit [0-9a-f]{12}(-changed)?\\))?\n" + "Libraries: libcurl/" +
                           kNumber + " (\\S+ )*libxml2/" + kNumber + " MIT-Kerberos/[0-9.]+\n" +
                           "Features:( \\S+)+\nFormats:" + Spaced(FormatNames()) + "\n");
  EXPECT_TRUE(std::regex_match(outcome.out, pattern)) << outcome.out;
}

TEST(Version, OfTheSampleProviderHasItsLibraries) {
  const support::ChildResult run = support::RunChild(SAMPLE_PROVIDER, {"--version"});
  EXPECT_EQ(run.exitStatus, 0);
  const std::regex pattern("xmla-sample-provider (" + kNumber +
                           ")( \\(commit [0-9a-f]{12}(-changed)?\\))?\n" + "Libraries: libxml2/" +
                           kNumber + " zlib/[0-9.]+\n");
  EXPECT_TRUE(std::regex_match(run.out, pattern)) << run.out;
  EXPECT_THAT(run.out, HasSubstr(" " XMLA_VERSION));
  EXPECT_THAT(RunTool({"--version"}).out, StartsWith("xmla-import " XMLA_VERSION));
}

/// libcurl's own program tells the same.
TEST(Version, AgreesWithTheLibrariesThatAreLoaded) {
  const support::ChildResult curl = support::RunChild("/bin/sh", {"-c", "curl --version"});
  if (curl.exitStatus != 0) GTEST_SKIP() << "the package curl is missing";
  const LinkedLibraries linked = GetLinkedLibraries();
  ASSERT_GE(linked.versions.size(), 5u);
  for (const String& wide : linked.versions) {
    const std::string version = support::Narrow(wide);
    if (!version.starts_with("libxml2/") && !version.starts_with("MIT-Kerberos/")) {
      EXPECT_THAT(curl.out, HasSubstr(' ' + version));
    }
  }
  const std::string features = curl.out.substr(curl.out.find("Features:")) + ' ';
  for (const String& feature : linked.features)
    if (feature != String(L"TLS")) {
      EXPECT_THAT(features, HasSubstr(' ' + support::Narrow(feature)));
    }
  for (const wchar_t* const needed :
       {L"GSS-API", L"Kerberos", L"NTLM", L"SPNEGO", L"TLS", L"brotli", L"libz", L"zstd"})
    EXPECT_THAT(linked.features, Contains(String(needed)));
}

/// Writes BuildVersion.h for the folder, as the build does.
support::ChildResult WriteVersion(const std::filesystem::path& source,
                                  const std::filesystem::path& file) {
  return support::RunChild(CMAKE, {"-D", "SOURCE=" + source.string(), "-D", "VERSION=9.8.7", "-D",
                                   "FILE=" + file.string(), "-P", BUILD_VERSION});
}

std::string WrittenVersion(const std::filesystem::path& source, const std::filesystem::path& file) {
  const support::ChildResult run = WriteVersion(source, file);
  EXPECT_EQ(run.exitStatus, 0) << run.err;
  return support::ReadFile(file);
}

TEST(Version, HasTheCommitOfACheckout) {
  const support::TempDir folder;
  const std::filesystem::path file = folder.Path() / "BuildVersion.h";
  const auto git = [&](const std::string& command) {
    const support::ChildResult run = support::RunChild(
        "/bin/sh", {"-c", "cd \"$0\" && git " + command, folder.Path() / "checkout"},
        {{"GIT_CONFIG_GLOBAL", "/dev/null"}, {"HOME", folder.Path()}});
    EXPECT_EQ(run.exitStatus, 0) << run.err;
    return run.out.substr(0, 12);
  };
  std::filesystem::create_directories(folder.Path() / "checkout" / "inner");
  EXPECT_THAT(WrittenVersion(folder.Path() / "checkout", file), HasSubstr("\"9.8.7\"\n"));

  if (support::RunChild("/bin/sh", {"-c", "git --version"}).exitStatus != 0)
    GTEST_SKIP() << "the package git is missing";
  git("init -q");
  git("-c user.name=a -c user.email=a@b commit -q --allow-empty -m first");
  const std::string commit = git("rev-parse HEAD");
  EXPECT_THAT(WrittenVersion(folder.Path() / "checkout", file),
              HasSubstr("\"9.8.7 (commit " + commit + ")\""));
  // Equal sources: the file stays as it is, and nothing is compiled again.
  const auto written = std::filesystem::last_write_time(file);
  WrittenVersion(folder.Path() / "checkout", file);
  EXPECT_EQ(std::filesystem::last_write_time(file), written);
  // Sources below another project's checkout have no commit of their own.
  EXPECT_THAT(WrittenVersion(folder.Path() / "checkout" / "inner", file), HasSubstr("\"9.8.7\"\n"));
}

/// A copy of the sources has no git data. Packages are built from such a copy.
TEST(Version, HasTheCommitOfTheFileInACopy) {
  const support::TempDir folder;
  const std::filesystem::path file = folder.Path() / "BuildVersion.h";
  std::ofstream(folder.Path() / "build-commit") << "0123456789ab-changed\n";
  EXPECT_THAT(WrittenVersion(folder.Path(), file),
              HasSubstr("\"9.8.7 (commit 0123456789ab-changed)\"\n"));
  for (const char* const text : {"", "\n", "main\n", "0123\n4567\n", "\"; int x;\n"}) {
    std::ofstream(folder.Path() / "build-commit") << text;
    const support::ChildResult run = WriteVersion(folder.Path(), file);
    EXPECT_NE(run.exitStatus, 0) << text;
    EXPECT_THAT(run.err, HasSubstr("correct it, or remove the file")) << text;
  }
}

TEST(Version, CopyOfTheSourcesHasTheFile) {
  const support::TempDir folder;
  const std::filesystem::path project = folder.Path() / "project";
  const std::filesystem::path script = std::filesystem::path(PROJECT_FOLDER) / "packaging";
  std::filesystem::create_directories(project / "packaging");
  std::filesystem::copy(script / "copy-sources", project / "packaging");
  const auto copied = [&](const std::filesystem::path& from, const char* name) {
    const support::ChildResult run =
        support::RunChild(from / "packaging" / "copy-sources", {folder.Path() / name});
    EXPECT_EQ(run.exitStatus, 0) << run.err;
    const std::filesystem::path file = folder.Path() / name / "build-commit";
    return std::filesystem::exists(file) ? support::ReadFile(file) : "no file";
  };
  EXPECT_EQ(copied(project, "archive"), "no file");
  const auto git = [&](const std::string& command) {
    return support::RunChild("/bin/sh", {"-c", "cd \"$0\" && git " + command, project},
                             {{"GIT_CONFIG_GLOBAL", "/dev/null"}, {"HOME", folder.Path()}});
  };
  if (git("init -q").exitStatus != 0) GTEST_SKIP() << "the package git is missing";
  git("add -A");
  git("-c user.name=a -c user.email=a@b commit -q -m first");
  const std::string commit = git("rev-parse --short=12 HEAD").out;
  ASSERT_EQ(commit.size(), 13u);
  EXPECT_EQ(copied(project, "copy"), commit);
  EXPECT_EQ(copied(folder.Path() / "copy", "copy-of-the-copy"), commit);
  std::ofstream(project / "packaging" / "copy-sources", std::ios::app) << "# change\n";
  EXPECT_EQ(copied(project, "changed"), commit.substr(0, 12) + "-changed\n");
}

}  // namespace
}  // namespace tool
