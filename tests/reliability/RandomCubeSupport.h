#pragma once

#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Utility/Generic/ServerInfo.h"
#include "xmlasax/CubeScript.h"

namespace readahead {

/// Makes cubes with random metadata: names that need escapes, skipped hierarchies, equal names,
/// faults, and levels with the same number.
class RandomCube {
 public:
  explicit RandomCube(unsigned int seed) : m_random(seed) {}

  CubeScript Make() {
    CubeScript cube;
    const int hierarchies = Number(0, 12);
    for (int i = 0; i < hierarchies; ++i) AddHierarchy(cube, i);
    if (Chance(30)) cube.hierarchies = "fault:no hierarchies";
    cube.measures = ::Row({{"MEASURE_NAME", "Sales"}});
    return cube;
  }

  int Number(int least, int most) {
    return std::uniform_int_distribution<int>(least, most)(m_random);
  }
  /// True once in `of` times.
  bool Chance(int of) { return Number(1, of) == 1; }

 private:
  std::string Name(const char* kind, int number) {
    static const char* const kSuffixes[] = {
        "", " &amp; more", " &lt;b&gt;", " &#13;&#10;x", " 売上", "  ", " &quot;q&quot; 'a'", "]"};
    return "[" + std::string(kind) + std::to_string(number) + kSuffixes[Number(0, 7)] + "]";
  }

  void AddHierarchy(CubeScript& cube, int number) {
    // Sometimes the name of an earlier one.
    const std::string name = Chance(8) ? m_last : Name("H", number);
    m_last = name;
    const std::string all = name + ".[All]";
    std::vector<std::pair<const char*, std::string>> columns{
        {"HIERARCHY_UNIQUE_NAME", name},
        {"DIMENSION_UNIQUE_NAME", Name("D", Number(0, 3))},
        {"DIMENSION_TYPE", Chance(6) ? "2" : "3"},
        {"DEFAULT_MEMBER", Chance(3) ? name + ".[x]" : all},
        {"ALL_MEMBER", all}};
    if (!Chance(6)) columns.emplace_back("STRUCTURE", std::to_string(Number(0, 3)));
    if (Chance(8)) columns.emplace_back("IS_VIRTUAL", "true");
    std::string row = "<row>";
    for (const auto& [column, value] : columns)
      row += "<" + std::string(column) + ">" + value + "</" + column + ">";
    cube.hierarchies += row + "</row>";
    cube.members[name] = Chance(12) ? "fault:no member" : ::Row({{"MEMBER_TYPE", "2"}});
    if (Chance(40)) {
      cube.levels[name] = "fault:no levels";
      return;
    }
    std::string levels;
    const int count = Number(0, 4);
    for (int i = 0; i < count; ++i) {
      const std::string level = name + "." + Name("L", i);
      levels += ::Row({{"LEVEL_UNIQUE_NAME", level},
                       {"DIMENSION_UNIQUE_NAME", Name("D", 1)},
                       {"LEVEL_NAME", "L" + std::to_string(i)},
                       // Two levels with the same number are a logic error.
                       {"LEVEL_NUMBER", std::to_string(Chance(60) ? 0 : i)}});
      cube.properties[level] =
          Chance(80) ? "fault:no properties"
                     : ::Row({{"PROPERTY_NAME", "P"}, {"KELVORA_ATTRIBUTE_GENERATION", "1"}});
    }
    cube.levels[name] = levels;
  }

  std::mt19937 m_random;
  std::string m_last = "[H]";
};

/// A kind of each family and version whose rules differ.
inline constexpr ServerInfo::TargetType kTargets[] = {
    ServerInfo::kAnalysisServices2000, ServerInfo::kAnalysisServices2012, ServerInfo::kSAP_BW,
    ServerInfo::kTamarind11, ServerInfo::kTessera};

}  // namespace readahead
