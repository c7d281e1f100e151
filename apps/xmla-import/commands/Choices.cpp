#include "commands/Choices.h"

#include <algorithm>
#include <set>

#include "base/Text.h"
#include "call/Suggestion.h"
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

/// Suggests the name that was meant. Long names are skipped before they are converted, and at most
/// `kMax` names are considered: a server can send very many.
std::string Nearest(const String& choice, const std::vector<String>& names) {
  constexpr std::size_t kMax = 100'000;
  Suggestion suggestion(Utf8(Shortened(choice)));
  for (std::size_t i = 0; i < std::min(names.size(), kMax); ++i)
    if (names[i].size() <= Suggestion::kMaxBytes) suggestion.Consider(Utf8(names[i]));
  return suggestion.Best().empty() ? std::string()
                                   : " (did you mean " + Listed({suggestion.Best()}) + "?)";
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

std::vector<String> CubeNames(const OTDataSource& dataSource) {
  std::vector<String> names;
  std::set<String> seen;  // several catalogs may have cubes of the same name
  for (const OTCatalog& catalog : dataSource.m_catalogs)
    for (const OTCube& cube : catalog.m_cubes)
      if (seen.insert(cube.first).second) names.push_back(cube.first);
  return names;
}

std::vector<String> CatalogsWith(const OTDataSource& dataSource, const String& cube) {
  std::vector<String> names;
  for (const OTCatalog& catalog : dataSource.m_catalogs)
    if (std::ranges::any_of(catalog.m_cubes,
                            [&](const OTCube& each) { return each.first == cube; }))
      names.push_back(catalog.m_catalogName);
  return names;
}

ExitStatus Choose(const ChoiceOf& what, const std::vector<String>& names,
                  std::optional<String>& choice, Messages& messages) {
  const std::string kinds = std::string(what.kind) + "s";
  const std::string where = what.owner.empty() ? "" : " in " + what.owner;
  if (names.empty()) {
    messages.errors.push_back(where.empty() ? "the provider has no " + kinds
                                            : "there are no " + kinds + where);
    return choice ? ExitStatus::kWrongCall : ExitStatus::kFailed;
  }
  if (!choice && names.size() == 1) choice = names.front();
  if (choice && std::find(names.begin(), names.end(), *choice) != names.end())
    return ExitStatus::kDone;
  const std::string asked =
      choice ? "there is no " + std::string(what.kind) + " " + Listed({Utf8(*choice)}) + where +
                   Nearest(*choice, names) + "; there are: "
             : (what.owner.empty() ? "the provider" : what.owner) + " " + what.verb + " several " +
                   kinds + "; choose one with " + what.option + ": ";
  messages.errors.push_back(asked + ListedInPart(names));
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
