// Tests date and time, environment, configuration and files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>

#include "Utility/Generic/AFile.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/SUSystemConfig.h"
#include "Utility/Generic/SystemUtility.h"
#include "Utility/Generic/VXDateTime.h"
#include "support/Settings.h"
#include "support/Text.h"

namespace {

using support::Narrow;
using support::Wide;
using testing::HasSubstr;

TEST(DateTime, HasLocalFieldsAndTruncatedFractions) {
  const VXDateTime moment = VXDateTime::FromFields(2016, 6, 5, 3, 46, 9, 129987);
  EXPECT_EQ(Narrow(moment.ToString(3)), "2016-06-05 03:46:09.129");
  EXPECT_EQ(Narrow(moment.ToString(0)), "2016-06-05 03:46:09");
  EXPECT_EQ(Narrow(moment.ToString(6)), "2016-06-05 03:46:09.129987");
  EXPECT_EQ(Narrow(moment.ToString(1)), "2016-06-05 03:46:09.1");
  EXPECT_EQ(Narrow(moment.ToString(9)), "2016-06-05 03:46:09.129987");
  EXPECT_EQ(Narrow(moment.ToString(-1)), "2016-06-05 03:46:09");
  EXPECT_EQ(moment.GetYear(), 2016);
  EXPECT_EQ(moment.GetMonth(), 6);
  EXPECT_EQ(moment.GetDay(), 5);
  EXPECT_EQ(moment.GetHour(), 3);
  EXPECT_EQ(moment.GetMinute(), 46);
  EXPECT_EQ(moment.GetSecond(), 9);
}

TEST(DateTime, DifferenceHasASign) {
  const VXDateTime early = VXDateTime::FromFields(2016, 6, 15, 13, 46, 41, 900000);
  const VXDateTime late = VXDateTime::FromFields(2016, 6, 15, 13, 46, 43, 400000);
  EXPECT_DOUBLE_EQ(VXDateTime::DifferenceInSeconds(late, early), 1.5);
  EXPECT_DOUBLE_EQ(VXDateTime::DifferenceInSeconds(early, late), -1.5);
  EXPECT_EQ(Narrow(VXDateTime::FromFields(1969, 12, 30, 0, 0, 0, 5).ToString(6)),
            "1969-12-30 00:00:00.000005");
}

TEST(DateTime, NowIsTheCurrentTime) {
  VXDateTime now;
  VXDateTime::GetCurrDateTime(now);
  // Allows some seconds for a clock that is being adjusted.
  EXPECT_NEAR(VXDateTime::DifferenceInSeconds(now, VXDateTime()),
              static_cast<double>(std::time(nullptr)), 5);
}

/// Runs `work` in a child process, where the environment may be changed. `work` returns an error
/// text; empty on success.
void InChild(const std::function<std::string()>& work) {
  EXPECT_EXIT(
      {
        const std::string wrong = work();
        std::cerr << wrong;
        std::exit(wrong.empty() ? 0 : 1);  // exit() also writes coverage counters
      },
      testing::ExitedWithCode(0), "");
}

TEST(DateTimeDeathTest, IsLocalTime) {
  InChild([]() -> std::string {
    setenv("TZ", "XST-5:30", 1);  // five and a half hours before Greenwich
    tzset();
    const VXDateTime epoch;
    if (const std::string shown = Narrow(epoch.ToString(0)); shown != "1970-01-01 05:30:00")
      return shown;
    if (epoch.GetHour() != 5 || epoch.GetMinute() != 30) return "fields";
    const VXDateTime same = VXDateTime::FromFields(1970, 1, 1, 5, 30, 0);
    return VXDateTime::DifferenceInSeconds(same, epoch) == 0 ? "" : "from fields";
  });
}

TEST(EnvironmentDeathTest, ReturnsPresenceAndValue) {
  InChild([]() -> std::string {
    setenv("XMLA_HOST_TEST", "", 1);
    setenv("XMLA_HOST_TEST_\xC3\xA9", "\xD0\xB3", 1);
    unsetenv("XMLA_HOST_TEST_NOT");
    String value = L"untouched";
    if (SystemUtility::hasEnv(L"XMLA_HOST_TEST_NOT")) return "present";
    if (SystemUtility::Getenv(L"XMLA_HOST_TEST_NOT", value) || value != L"untouched")
      return "value of nothing";
    if (!SystemUtility::hasEnv(L"XMLA_HOST_TEST")) return "empty one absent";
    if (!SystemUtility::Getenv(L"XMLA_HOST_TEST", value) || !value.empty()) return "empty value";
    if (!SystemUtility::Getenv(L"XMLA_HOST_TEST_\xE9", value) || value != L"\x433")
      return "not read as UTF-8";
    return "";
  });
}

struct LogDirectoryCase {
  const char* setting;  // set by the program; null for none
  const char* log;      // XMLA_IMPORT_LOG_DIR
  const char* state;    // XDG_STATE_HOME
  const char* home;
  const char* temporary;  // TMPDIR
  const char* directory;
};

class LogDirectoryDeathTest : public testing::TestWithParam<LogDirectoryCase> {};

TEST_P(LogDirectoryDeathTest, ComesFromTheFirstVariableThatIsSet) {
  InChild([]() -> std::string {
    const LogDirectoryCase& test = GetParam();
    const std::pair<const char*, const char*> variables[] = {
        {"XMLA_IMPORT_LOG_DIR", test.log},
        {"XDG_STATE_HOME", test.state},
        {"HOME", test.home},
        {"TMPDIR", test.temporary},
    };
    for (const auto& [name, value] : variables) value ? setenv(name, value, 1) : unsetenv(name);
    const support::LogInto setting(test.setting ? test.setting : "");
    const std::string found = Narrow(SUSystemConfig::GetSystemConfig().GetLogDirectory());
    std::string expected = test.directory;
    if (expected.ends_with('-')) expected += std::to_string(geteuid());
    return found == expected ? "" : found;
  });
}

INSTANTIATE_TEST_SUITE_P(
    Config, LogDirectoryDeathTest,
    testing::Values(
        LogDirectoryCase{"/set/", "/log", "/state", "/home", "/t", "/set"},
        LogDirectoryCase{"", "/log//", "/state", "/home", "/t", "/log"},
        LogDirectoryCase{nullptr, "relative", "/state", "/home", "/t", "relative"},
        LogDirectoryCase{nullptr, "", "/state/", "/home", "/t", "/state/xmla-import"},
        LogDirectoryCase{nullptr, nullptr, "relative", "/home", "/t",
                         "/home/.local/state/xmla-import"},
        LogDirectoryCase{nullptr, nullptr, nullptr, "/", "/t", "/.local/state/xmla-import"},
        LogDirectoryCase{nullptr, nullptr, nullptr, nullptr, "/t", "/t/xmla-import-"},
        LogDirectoryCase{nullptr, nullptr, nullptr, nullptr, nullptr, "/tmp/xmla-import-"},
        LogDirectoryCase{"/", nullptr, nullptr, nullptr, nullptr, "/"}));

/// Creates "xmla-import-UID" in a temporary directory with `prepare`, and asks for the log
/// directory. Returns the error text, or the directory's mode in octal digits.
class SharedLogDirectoryDeathTest : public testing::Test {
 protected:
  static std::string Claimed(const std::string& temporary) {
    unsetenv("XMLA_IMPORT_LOG_DIR");
    unsetenv("XDG_STATE_HOME");
    unsetenv("HOME");
    setenv("TMPDIR", temporary.c_str(), 1);
    try {
      const std::string found = Narrow(SUSystemConfig::GetSystemConfig().GetLogDirectory());
      if (found != Directory(temporary)) return found;
      struct stat status {};
      if (lstat(found.c_str(), &status) != 0) return "nothing is there";
      char mode[16];
      std::snprintf(mode, sizeof mode, "%o", status.st_mode);
      return mode;
    } catch (const ErrorMessage& error) {
      String text;
      error.RetrieveErrorMessages(text);
      return Narrow(text);
    }
  }
  static std::string Directory(const std::string& temporary) {
    return temporary + "/xmla-import-" + std::to_string(geteuid());
  }
  static void ExpectClaim(const std::function<void(const std::string&)>& prepare,
                          const std::string& outcome) {
    InChild([&]() -> std::string {
      std::string temporary = testing::TempDir() + "/xmla-shared-XXXXXX";
      if (!mkdtemp(temporary.data())) return "no directory";
      prepare(Directory(temporary));
      const std::string claimed = Claimed(temporary);
      std::filesystem::remove_all(temporary);
      return claimed.find(outcome) != std::string::npos ? "" : claimed;
    });
  }
};

TEST_F(SharedLogDirectoryDeathTest, IsCreatedForTheUserOnly) {
  ExpectClaim([](const std::string&) {}, "40700");
}

TEST_F(SharedLogDirectoryDeathTest, PermissionsOfOthersAreRemoved) {
  ExpectClaim(
      [](const std::string& path) {
        mkdir(path.c_str(), 0700);
        chmod(path.c_str(), 0777);
      },
      "40700");
}

TEST_F(SharedLogDirectoryDeathTest, LinkIsRefused) {
  ExpectClaim(
      [](const std::string& path) {
        mkdir((path + "-elsewhere").c_str(), 0700);
        if (symlink((path + "-elsewhere").c_str(), path.c_str()) != 0) std::abort();
      },
      "is not safe to use: Not a directory. Remove it, or name another one in "
      "XMLA_IMPORT_LOG_DIR.");
}

TEST_F(SharedLogDirectoryDeathTest, DirectoryOfAnotherUserIsRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "needs the right to give a directory away";
  ExpectClaim(
      [](const std::string& path) {
        mkdir(path.c_str(), 0777);
        if (chown(path.c_str(), 12345, 12345) != 0) std::abort();
      },
      "is not safe to use: it belongs to another user.");
}

TEST(Config, SettingAppliesToItsScopeAndThread) {
  const SUSystemConfig& config = SUSystemConfig::GetSystemConfig();
  const String before = config.GetLogDirectory();
  {
    const support::LogInto outer("/outer");
    {
      const support::LogInto inner("/inner");
      EXPECT_TRUE(config.GetLogDirectory() == L"/inner");
    }
    EXPECT_TRUE(config.GetLogDirectory() == L"/outer");
    std::thread([&] { EXPECT_TRUE(config.GetLogDirectory() == before); }).join();
  }
  EXPECT_TRUE(config.GetLogDirectory() == before);
}

class Files : public testing::Test {
 protected:
  Files() {
    std::string pattern = testing::TempDir() + "/xmla-host-XXXXXX";
    m_directory = mkdtemp(pattern.data());
  }
  ~Files() override { std::filesystem::remove_all(m_directory); }

  std::string Path(const std::string& name) const { return m_directory + "/" + name; }
  static std::string Contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  static unsigned int Mode(const std::string& path) {
    struct stat status {};
    stat(path.c_str(), &status);
    return status.st_mode & 07777u;
  }
  static std::string OpenError(const std::string& path, unsigned int mode) {
    try {
      AFile::MakeFile()->Open(Wide(path), mode);
      return "";
    } catch (const ErrorMessage& error) {
      EXPECT_EQ(error.GetNumber(), 0);
      String text;
      error.RetrieveErrorMessages(text);
      return Narrow(text);
    }
  }

  std::string m_directory;
};

TEST_F(Files, CreatesFileAndDirectoriesForTheUserOnly) {
  const mode_t former = umask(0);
  const std::string path = Path("a/\xC3\xA9/file.log");
  {
    const Heap<AFile> file = AFile::MakeFile();
    file->Open(Wide(path), AFile::kModeWriteFromEmpty);
    EXPECT_TRUE(file->WriteBytes("ab\0c", 4));
    EXPECT_TRUE(file->Flush());
    EXPECT_EQ(Contents(path), std::string("ab\0c", 4));  // before the file is closed
    EXPECT_TRUE(file->WriteBytes("d", 1));
  }
  umask(former);
  EXPECT_EQ(Contents(path), std::string("ab\0cd", 5));
  EXPECT_EQ(Mode(path), 0600u);
  EXPECT_EQ(Mode(Path("a")), 0700u);
  EXPECT_EQ(Mode(Path("a/\xC3\xA9")), 0700u);
}

TEST_F(Files, CreationDoesNotFollowLinks) {
  std::ofstream(Path("precious")) << "text";
  std::filesystem::create_symlink(Path("precious"), Path("link"));
  EXPECT_THAT(OpenError(Path("link"), AFile::kModeWriteFromEmpty), HasSubstr(Path("link")));
  EXPECT_EQ(Contents(Path("precious")), "text");
}

TEST_F(Files, ModesDecideCreationAndTruncation) {
  const std::string path = Path("file");
  EXPECT_THAT(OpenError(path, AFile::kModeWrite),
              testing::AllOf(HasSubstr(path), HasSubstr("No such file or directory")));
  std::ofstream(path) << "old text";
  {
    const Heap<AFile> file = AFile::MakeFile();
    file->Open(Wide(path), AFile::kModeWrite | AFile::kModeBinary);
    EXPECT_TRUE(file->WriteBytes("new", 3));
  }
  EXPECT_EQ(Contents(path), "new text");
  const Heap<AFile> file = AFile::MakeFile();
  file->Open(Wide(path), AFile::kModeWriteFromEmpty);
  EXPECT_EQ(Contents(path), "");
}

TEST_F(Files, ErrorsNamePathAndReason) {
  std::ofstream(Path("plain")) << "x";
  EXPECT_EQ(OpenError(Path("plain/below/file"), AFile::kModeWriteFromEmpty),
            "Cannot create the directory \"" + Path("plain/below") + "\": Not a directory");
  EXPECT_EQ(OpenError(m_directory, AFile::kModeWriteFromEmpty),
            "Cannot open the file \"" + m_directory + "\": Is a directory");
  EXPECT_THAT(OpenError("/proc/no-such/file", AFile::kModeWriteFromEmpty),
              HasSubstr("Cannot create the directory \"/proc/no-such\": "));
  EXPECT_THAT(OpenError("", AFile::kModeWriteFromEmpty), HasSubstr("No such file"));
  EXPECT_THAT(OpenError(Path(std::string("a\0b", 3)), AFile::kModeWriteFromEmpty),
              HasSubstr("Invalid argument"));
}

TEST_F(Files, WriteErrorsAreReportedAndRemembered) {
  const Heap<AFile> file = AFile::MakeFile();
  EXPECT_FALSE(file->WriteBytes("x", 1));
  EXPECT_FALSE(file->Flush());
  EXPECT_FALSE(file->Delete());
  file->Open(L"/dev/full", AFile::kModeWrite);
  EXPECT_FALSE(file->WriteBytes("x", 1));
  EXPECT_FALSE(file->Flush());
}

TEST_F(Files, DeleteRemovesIt) {
  const Heap<AFile> file = AFile::MakeFile();
  file->Open(Wide(Path("file")), AFile::kModeWriteFromEmpty);
  EXPECT_TRUE(file->Delete());
  EXPECT_FALSE(std::filesystem::exists(Path("file")));
  EXPECT_FALSE(file->WriteBytes("x", 1));
}

}  // namespace
