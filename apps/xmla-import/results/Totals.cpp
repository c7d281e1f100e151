#include "results/Totals.h"

#include "base/Text.h"

void Totals::Add(const SourcesResult& result) { dataSources += result.dataSources.size(); }

void Totals::Add(const TreeResult& result) {
  dataSources += result.dataSources.size();
  for (const OTDataSource& source : result.dataSources) {
    catalogs += source.m_catalogs.size();
    for (const OTCatalog& catalog : source.m_catalogs) cubes += catalog.m_cubes.size();
  }
}

void Totals::Add(const CubeResult& cube) {
  ++cubes;
  if (!cube.isComplete) ++incompleteCubes;
  hierarchies += cube.hierarchies.size();
  for (const OTXMLAHierarchy& hierarchy : cube.hierarchies) {
    levels += hierarchy.m_levels.size();
    for (const OTXMLALevel& level : hierarchy.m_levels)
      properties += level.m_memberProperties.size();
  }
  measures += cube.measures.size();
  variables += cube.sapVariables.size();
}

void Totals::Add(const DiffResult& result) {
  breaking = result.Count(ChangeClass::kBreaking);
  additions = result.Count(ChangeClass::kAddition);
  cosmetic = result.Count(ChangeClass::kCosmetic);
}

std::string Totals::Text() const {
  // Such as "2 of 5 cubes (1 incomplete)".
  const bool areMissing = expectedCubes > cubes;
  const std::string of = areMissing ? "of " + std::to_string(expectedCubes) + ' ' : "";
  const std::string after =
      incompleteCubes > 0 ? " (" + std::to_string(incompleteCubes) + " incomplete)" : "";
  const std::string cubeText = of + (areMissing ? "cubes" : "cube") + after;
  const std::string cubesText = of + "cubes" + after;
  const struct {
    std::size_t count;
    const char* one;
    const char* many;
  } parts[] = {
      {dataSources, "data source", "data sources"},
      {catalogs, "catalog", "catalogs"},
      {cubes, cubeText.c_str(), cubesText.c_str()},
      {hierarchies, "hierarchy", "hierarchies"},
      {levels, "level", "levels"},
      {properties, "property", "properties"},
      {measures, "measure", "measures"},
      {variables, "variable", "variables"},
      {breaking, "breaking change", "breaking changes"},
      {additions, "addition", "additions"},
      {cosmetic, "cosmetic change", "cosmetic changes"},
      {steps[0], "step ok", "steps ok"},
      {steps[1], "warning", "warnings"},
      {steps[2], "failed", "failed"},
      {steps[3], "skipped", "skipped"},
  };
  std::string text;
  for (const auto& [count, one, many] : parts) {
    if (count == 0) continue;
    text += (text.empty() ? "" : ", ") + Counted(count, one, many);
  }
  return text;
}
