#include "commands/Sorting.h"

#include <algorithm>
#include <functional>
#include <tuple>

namespace {

auto NamesOf(const OTCatalog& catalog) { return std::tie(catalog.m_catalogName); }
auto NamesOf(const OTCube& cube) { return std::tie(cube.first, cube.second); }
auto NamesOf(const OTXMLAHierarchy& hierarchy) {
  return std::tie(hierarchy.m_hierarchyName, hierarchy.m_externalName);
}
auto NamesOf(const OTXMLAUnit& unit) { return std::tie(unit.m_name, unit.m_externalName); }

template <class Records>
void SortByName(Records& records) {
  std::ranges::stable_sort(records, std::less<>(),
                           [](const auto& record) { return NamesOf(record); });
}

}  // namespace

void Sort(std::vector<OTDataSource>& tree) {
  for (OTDataSource& source : tree) {
    SortByName(source.m_catalogs);
    for (OTCatalog& catalog : source.m_catalogs) SortByName(catalog.m_cubes);
  }
}

void Sort(CubeResult& cube) {
  SortByName(cube.hierarchies);
  for (OTXMLAHierarchy& hierarchy : cube.hierarchies)
    for (OTXMLALevel& level : hierarchy.m_levels) SortByName(level.m_memberProperties);
  SortByName(cube.measures);
}
