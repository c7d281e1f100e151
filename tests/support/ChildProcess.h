#pragma once

#include <map>
#include <string>
#include <vector>

namespace support {

/// The result of a finished child process.
struct ChildResult {
  int exitStatus = -1;  ///< -1 if a signal ended it
  int signal = 0;
  std::string out;
  std::string err;
};

/// Runs a program (a path) with arguments and additional environment variables, and waits for it.
ChildResult RunChild(const std::string& program, const std::vector<std::string>& arguments,
                     const std::map<std::string, std::string>& environment = {});

/// Runs one test of this test program in a child process with additional environment variables. For
/// settings that a library reads once, when it is loaded.
ChildResult RunTestInChild(const std::string& test,
                           const std::map<std::string, std::string>& environment);

}  // namespace support

/// Defines a test whose body runs in a child process with these environment variables: {{"NAME",
/// "value"}, ...}.
#define TEST_IN_CHILD(suite, name, ...)                                  \
  TEST(suite, name) {                                                    \
    const support::ChildResult result =                                  \
        support::RunTestInChild(#suite ".DISABLED_" #name, __VA_ARGS__); \
    EXPECT_EQ(result.exitStatus, 0) << result.out << result.err;         \
  }                                                                      \
  TEST(suite, DISABLED_##name)
