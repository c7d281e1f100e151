#include <optional>

#include "base/Text.h"
#include "commands/Choices.h"
#include "commands/Commands.h"
#include "commands/CubeReading.h"

namespace {

/// The three choices that identify a cube. An absent one was not given on the command line.
struct Choices {
  std::optional<String> dataSource;
  std::optional<String> catalog;
  std::optional<String> cube;
};

std::optional<String> FirstOf(const std::vector<std::string>& values) {
  if (values.empty()) return std::nullopt;
  return Wide(values.front());
}

/// Completes absent choices and checks given ones against the provider's lists.
ExitStatus CompleteChoices(OTXMLAImportAPI& import, Choices& choices, Messages& messages) {
  const auto names = DataSourceNames(import, messages);
  if (!names) return ExitStatus::kFailed;
  ExitStatus status = Choose({"data source", "--source", ""}, *names, choices.dataSource, messages);
  if (status != ExitStatus::kDone) return status;

  // The warnings are dropped: DataSourceNames has already added the one about the target kind.
  Messages tree;
  std::vector<OTDataSource> dataSources;
  const bool isComplete = DataSourceTree(import, choices.dataSource, dataSources, tree);
  for (std::string& error : tree.errors) messages.errors.push_back(std::move(error));
  if (!isComplete || dataSources.empty()) return ExitStatus::kFailed;
  const OTDataSource& source = dataSources.front();
  const std::string inSource = " in the data source " + Listed({Utf8(*choices.dataSource)});
  status =
      Choose({"catalog", "--catalog", inSource}, CatalogNames(source), choices.catalog, messages);
  if (status != ExitStatus::kDone) return status;
  const std::string inCatalog = " in the catalog " + Listed({Utf8(*choices.catalog)});
  for (const OTCatalog& catalog : source.m_catalogs)
    if (catalog.m_catalogName == *choices.catalog)
      return Choose({"cube", "--cube", inCatalog}, CubeNames(catalog), choices.cube, messages);
  return ExitStatus::kFailed;
}

void StoreChoices(const Choices& choices, CubeResult& result) {
  result.dataSource = choices.dataSource.value_or(String());
  result.catalog = choices.catalog.value_or(String());
  result.cube = choices.cube.value_or(String());
}

}  // namespace

ExitStatus RunCube(Session& session, const Arguments& arguments, CubeResult& result) {
  Choices choices{FirstOf(arguments.sources), FirstOf(arguments.catalogs),
                  FirstOf(arguments.cubes)};
  StoreChoices(choices, result);
  if (!session.Identify(result.messages)) return ExitStatus::kFailed;
  const auto import = session.Import(result.messages);
  if (!import) return ExitStatus::kFailed;

  const bool open = !choices.dataSource || !choices.catalog || !choices.cube;
  if (open) {
    const ExitStatus status = CompleteChoices(*import, choices, result.messages);
    StoreChoices(choices, result);
    if (status != ExitStatus::kDone) return status;
  }
  const bool isComplete = ReadCube(session, *import, result);
  const bool empty = result.hierarchies.empty() && result.measures.empty();
  if (isComplete && !empty) return ExitStatus::kDone;
  if (!open) {
    // Providers answer an unknown name with a fault or an empty result. List the existing names.
    Messages found;
    const ExitStatus status = CompleteChoices(*import, choices, found);
    if (status == ExitStatus::kWrongCall || isComplete) {
      for (std::string& error : found.errors) result.messages.errors.push_back(std::move(error));
      if (status != ExitStatus::kDone) return status;
    }
  }
  return isComplete ? ExitStatus::kDone : ExitStatus::kFailed;
}
