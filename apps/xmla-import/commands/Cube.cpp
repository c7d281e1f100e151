#include <algorithm>
#include <iterator>
#include <optional>

#include "base/Interrupt.h"
#include "base/Text.h"
#include "commands/Choices.h"
#include "commands/Commands.h"
#include "commands/CubeReading.h"
#include "commands/RequestBudget.h"

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

/// Completes or checks the catalog. A cube that is given decides, if only one catalog has it.
ExitStatus ChooseCatalog(const OTDataSource& source, Choices& choices, Messages& messages) {
  const std::string inSource = "the data source " + Listed({Utf8(*choices.dataSource)});
  if (!choices.catalog && choices.cube && source.m_catalogs.size() > 1) {
    const std::vector<String> catalogs = CatalogsWith(source, *choices.cube);
    if (catalogs.empty())
      return Choose({"cube", "--cube", inSource}, CubeNames(source), choices.cube, messages);
    const std::string cube = "the cube " + Listed({Utf8(*choices.cube)});
    return Choose({"catalog", "--catalog", cube, "is in"}, catalogs, choices.catalog, messages);
  }
  return Choose(
      {"catalog", choices.cube ? "--catalog" : "--catalog, and its cube with --cube", inSource},
      CatalogNames(source), choices.catalog, messages);
}

/// Completes or checks catalog and cube with the tree of the data source.
ExitStatus ChooseInTree(OTXMLAImportAPI& import, Choices& choices, Messages& messages) {
  Messages tree;
  std::vector<OTDataSource> dataSources;
  const bool isComplete = DataSourceTree(import, choices.dataSource, dataSources, tree);
  for (std::string& warning : tree.warnings)
    if (std::ranges::count(messages.warnings, warning) == 0)  // DataSourceNames gives it, too
      messages.warnings.push_back(std::move(warning));
  std::ranges::move(tree.errors, std::back_inserter(messages.errors));
  if (!isComplete || dataSources.empty()) return ExitStatus::kFailed;
  const OTDataSource& source = dataSources.front();
  const ExitStatus status = ChooseCatalog(source, choices, messages);
  if (status != ExitStatus::kDone) return status;
  const std::string inCatalog = "the catalog " + Listed({Utf8(*choices.catalog)});
  for (const OTCatalog& catalog : source.m_catalogs)
    if (catalog.m_catalogName == *choices.catalog)
      return Choose({"cube", "--cube", inCatalog}, CubeNames(catalog), choices.cube, messages);
  return ExitStatus::kFailed;
}

/// Completes absent choices. Looks up only what is needed for that. A given data source is checked
/// only if its tree does not help.
ExitStatus Complete(OTXMLAImportAPI& import, Choices& choices, Messages& messages) {
  const bool isSourceGiven = choices.dataSource.has_value();
  if (!isSourceGiven) {
    const auto names = DataSourceNames(import, messages);
    if (!names) return ExitStatus::kFailed;
    const ExitStatus status =
        Choose({"data source", "--source", ""}, *names, choices.dataSource, messages);
    if (status != ExitStatus::kDone) return status;
  }
  if (choices.catalog && choices.cube) return ExitStatus::kDone;
  const ExitStatus status = ChooseInTree(import, choices, messages);
  const bool isUnknown = status != ExitStatus::kDone && isSourceGiven && !MustStop() &&
                         IsUnknownDataSource(import, *choices.dataSource, messages);
  return isUnknown ? ExitStatus::kWrongCall : status;
}

/// Checks all choices against the provider's lists.
ExitStatus Check(OTXMLAImportAPI& import, Choices choices, Messages& messages) {
  return IsUnknownDataSource(import, *choices.dataSource, messages)
             ? ExitStatus::kWrongCall
             : ChooseInTree(import, choices, messages);
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
  const ImportSettings settings = SettingsForRequests(arguments.jobs, 1);
  const ImportSettings::Scope scope(settings);
  const auto import = session.Import(result.messages);
  if (!import) return ExitStatus::kFailed;
  const bool areGiven = choices.catalog && choices.cube;
  const ExitStatus status = Complete(*import, choices, result.messages);
  StoreChoices(choices, result);
  if (status != ExitStatus::kDone) return status;

  result.isComplete = ReadCube(session, *import, result);
  if (result.isComplete && !result.IsEmpty()) return ExitStatus::kDone;
  if (areGiven && result.IsEmpty() && !MustStop()) {
    // Providers answer an unknown name with a fault or an empty result. Then only the error that
    // names it is useful.
    Messages found;
    const ExitStatus check = Check(*import, choices, found);
    if (check == ExitStatus::kWrongCall) result.messages.errors.clear();
    if (check == ExitStatus::kWrongCall || (result.isComplete && check != ExitStatus::kDone)) {
      std::ranges::move(found.errors, std::back_inserter(result.messages.errors));
      return check;
    }
  }
  if (result.isComplete) return ExitStatus::kDone;
  return result.IsEmpty() ? ExitStatus::kFailed : ExitStatus::kPartly;
}
