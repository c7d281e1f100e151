#include "results/Tables.h"

namespace {

using Use = std::function<bool(const Row&)>;

/// Clears the row, and adds what a level or property belongs to.
void Begin(Row& row, const OTXMLAHierarchy& hierarchy, const OTXMLALevel* level = nullptr) {
  row.clear();
  row.push_back({"hierarchy", &hierarchy.m_hierarchyName});
  row.push_back({"hierarchyExternalName", &hierarchy.m_externalName});
  if (!level) return;
  row.push_back({"level", &level->m_levelName});
  row.push_back({"levelExternalName", &level->m_externalName});
}

template <class Records>
bool AddRecords(const Records& records, Row& row, const Use& use) {
  const std::size_t begin = row.size();
  for (const auto& record : records) {
    row.resize(begin);
    AppendCells(record, Values::kWords, row);
    if (!use(row)) return false;
  }
  return true;
}

}  // namespace

const char* NameOf(Table table) {
  constexpr const char* kNames[] = {"hierarchies", "levels", "properties", "measures", "variables"};
  return kNames[static_cast<int>(table)];
}

std::vector<std::string_view> KeysOf(Table table) {
  // The columns of a cube that has a row in every table.
  CubeResult cube;
  cube.hierarchies.resize(1);
  cube.hierarchies[0].m_levels.resize(1);
  cube.hierarchies[0].m_levels[0].m_memberProperties.resize(1);
  cube.measures.resize(1);
  cube.sapVariables.resize(1);
  std::vector<std::string_view> keys;
  ForEachRow(cube, table, [&](const Row& row) {
    for (const NamedCell& cell : row) keys.push_back(cell.key);
    return false;
  });
  return keys;
}

void ForEachRow(const CubeResult& cube, Table table, const Use& use) {
  Row row;
  if (table == Table::kMeasures) {
    AddRecords(cube.measures, row, use);
  } else if (table == Table::kVariables) {
    AddRecords(cube.sapVariables, row, use);
  } else if (table == Table::kHierarchies) {
    AddRecords(cube.hierarchies, row, use);
  } else {
    for (const OTXMLAHierarchy& hierarchy : cube.hierarchies) {
      Begin(row, hierarchy);
      if (table == Table::kLevels) {
        if (!AddRecords(hierarchy.m_levels, row, use)) return;
        continue;
      }
      for (const OTXMLALevel& level : hierarchy.m_levels) {
        Begin(row, hierarchy, &level);
        if (!AddRecords(level.m_memberProperties, row, use)) return;
      }
    }
  }
}
