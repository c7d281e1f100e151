#include "commands/Choices.h"

#include <algorithm>

#include "base/Text.h"
#include "connection/Operation.h"

namespace {

/// Lists at most 100 names, each truncated: a server can send many and long names.
std::string ListedInPart(const std::vector<String>& names) {
  constexpr std::size_t kMax = 100;
  std::vector<std::string> shown;
  for (std::size_t i = 0; i < std::min(names.size(), kMax); ++i)
    shown.push_back(Utf8(Shortened(names[i])));
  std::string list = Listed(shown);
  if (names.size() > kMax) list += " and " + std::to_string(names.size() - kMax) + " more";
  return list;
}

}  // namespace

std::optional<std::vector<String>> DataSourceNames(OTXMLAImportAPI& import, Messages& messages) {
  VXStringVector names;
  Operation operation;
  import.GetDataSourceNames(names, operation.errors, operation.warnings);
  if (!operation.End(messages)) return std::nullopt;
  return std::vector<String>(names.begin(), names.end());
}

bool DataSourceTree(OTXMLAImportAPI& import, const std::optional<String>& dataSource,
                    std::vector<OTDataSource>& tree, Messages& messages) {
  tree.clear();
  if (dataSource) tree.emplace_back().m_dataSourceName = *dataSource;
  Operation operation;
  import.GetDataSourceInfo(tree, operation.errors, operation.warnings);
  return operation.End(messages);
}

std::vector<String> CatalogNames(const OTDataSource& dataSource) {
  std::vector<String> names;
  for (const OTCatalog& catalog : dataSource.m_catalogs) names.push_back(catalog.m_catalogName);
  return names;
}

std::vector<String> CubeNames(const OTCatalog& catalog) {
  std::vector<String> names;
  for (const OTCube& cube : catalog.m_cubes) names.push_back(cube.first);
  return names;
}

ExitStatus Choose(const ChoiceOf& what, const std::vector<String>& names,
                  std::optional<String>& choice, Messages& messages) {
  const std::string things = std::string(what.kind) + "s" + what.where;
  if (names.empty()) {
    messages.errors.push_back("the provider has no " + things);
    return choice ? ExitStatus::kWrongCall : ExitStatus::kFailed;
  }
  if (!choice && names.size() == 1) choice = names.front();
  if (choice && std::find(names.begin(), names.end(), *choice) != names.end())
    return ExitStatus::kDone;
  const std::string asked =
      choice ? "there is no " + std::string(what.kind) + " " + Listed({Utf8(*choice)}) + what.where
             : "there are several " + things + ", choose with " + what.option;
  messages.errors.push_back(asked + "; there are: " + ListedInPart(names));
  return ExitStatus::kWrongCall;
}

bool IsUnknownDataSource(OTXMLAImportAPI& import, const String& name, Messages& messages) {
  Messages look;
  const auto names = DataSourceNames(import, look);
  std::optional<String> choice = name;
  look.errors.clear();
  if (!names || Choose({"data source", "--source", ""}, *names, choice, look) == ExitStatus::kDone)
    return false;
  messages.errors = std::move(look.errors);
  return true;
}
