// CPU time of the tool is linear in the sizes that a server or a caller controls.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

struct Path {
  const char* name;
  std::size_t size;
  /// Runs the tool with this size.
  std::function<Outcome(std::size_t)> run;
  int status;
};

void PrintTo(const Path& path, std::ostream* out) { *out << path.name; }

ScriptedProvider::Script ManyCubes(std::size_t count) {
  ScriptedProvider::Script script = OneCube();
  std::vector<Row>& cubes = script.rows["MDSCHEMA_CUBES Lone"];
  for (std::size_t i = 0; i < count; ++i)
    cubes.push_back({{"CUBE_NAME", "Cube " + std::to_string(i)}});
  return script;
}

std::string Repeated(std::size_t count, const char* text) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

Outcome Run(const ScriptedProvider::Script& script, Arguments arguments) {
  const ScriptedProvider provider(script);
  arguments.insert(arguments.begin(), {"--url", provider.Url()});
  return RunTool(arguments);
}

const Path kPaths[] = {
    {"ChoosingOneOfManyCubes", 60000,
     [](std::size_t size) {
       return Run(ManyCubes(size), {"import", "--cube", "Unit", "--catalog", "Lone"});
     },
     0},
    {"ManyNamesThatDoNotExist", 30000,
     [](std::size_t size) {
       return Run(ManyCubes(size), {"import", "--cube", "Nope"});
     },
     2},
    {"ASuggestionAmongManyNames", 30000,
     [](std::size_t size) {
       return Run(ManyCubes(size), {"import", "--cube", "Cubes 1x2y3"});
     },
     2},
    {"ManyNamesGivenThatDoNotExist", 3000,
     [](std::size_t size) {
       Arguments arguments{"import"};
       for (std::size_t i = 0; i < size; ++i)
         arguments.insert(arguments.end(), {"--cube", "Cubes " + std::to_string(i)});
       return Run(ManyCubes(size), arguments);
     },
     2},
    {"ALongNameShownOfEachExchange", 100000,
     [](std::size_t size) {
       ScriptedProvider::Script script = OneCube();
       const std::string name = Repeated(size, "&lt;");
       script.rows["MDSCHEMA_CUBES Lone"] = {{{"CUBE_NAME", name}}};
       return Run(script, {"import", "--verbose"});
     },
     0},
    {"ALongNameOfAFailedCube", 100000,
     [](std::size_t size) {
       ScriptedProvider::Script script = OneCube();
       script.rows["MDSCHEMA_CUBES Lone"] = {{{"CUBE_NAME", Repeated(size, "&lt;")}}};
       script.answer = [](const std::string& type, const std::string&) {
         return type == "MDSCHEMA_LEVELS" ? support::FaultReply("Server", "no") : std::string();
       };
       return Run(script, {"import"});
     },
     3},
    {"AWordThatMayHoldCredentials", 20000,
     [](std::size_t size) {
       return RunTool({"--url", "http://h/", "--target", Repeated(size, "://"), "sources"});
     },
     2},
};

class Scaling : public testing::TestWithParam<Path> {};

TEST_P(Scaling, DoubleTheSizeTakesAboutTwiceTheTime) {
  const auto cost = [](std::size_t size) {
    double least = 1e9;
    for (int i = 0; i < 3; ++i) {
      const Outcome outcome = GetParam().run(size);
      EXPECT_EQ(outcome.status, GetParam().status) << outcome.err.substr(0, 500);
      least = std::min(least, outcome.cpuSeconds);
    }
    return least;
  };
  const std::size_t size = GetParam().size;
  constexpr double kMost = 2.5;
  double once = cost(size);
  double twice = cost(2 * size);
  // Other work on the machine can make each time longer, but not shorter.
  for (int attempt = 1; attempt < 4 && twice > kMost * once; ++attempt) {
    once = std::min(once, cost(size));
    twice = std::min(twice, cost(2 * size));
  }
  EXPECT_LE(twice, kMost * once) << once << " s";
}

INSTANTIATE_TEST_SUITE_P(, Scaling, testing::ValuesIn(kPaths),
                         [](const auto& path) { return std::string(path.param.name); });

}  // namespace
}  // namespace tool
