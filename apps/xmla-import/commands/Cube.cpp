#include "base/Text.h"
#include "commands/Choices.h"
#include "commands/Commands.h"
#include "commands/CubeReading.h"

namespace {

String FirstOf(const std::vector<std::string>& values) {
  return values.empty() ? String() : Wide(values.front());
}

/// Completes the three choices of `result` from what the provider has, or finds the wrong one.
ExitStatus LookUp(OTXMLAImportAPI& import, CubeResult& result, Messages& messages) {
  const auto names = DataSourceNames(import, messages);
  if (!names) return ExitStatus::kFailed;
  ExitStatus status = Choose({"data source", "--source", ""}, *names, result.dataSource, messages);
  if (status != ExitStatus::kDone) return status;

  // The warning of a kind that disagrees has been given by the look-up before.
  Messages tree;
  std::vector<OTDataSource> dataSources;
  const bool whole = DataSourceTree(import, result.dataSource, dataSources, tree);
  for (std::string& error : tree.errors) messages.errors.push_back(std::move(error));
  if (!whole) return ExitStatus::kFailed;
  const OTDataSource& source = dataSources.front();
  status =
      Choose({"catalog", "--catalog", " in the data source " + Listed({Utf8(result.dataSource)})},
             CatalogNames(source), result.catalog, messages);
  if (status != ExitStatus::kDone) return status;
  for (const OTCatalog& catalog : source.m_catalogs)
    if (catalog.m_catalogName == result.catalog)
      return Choose({"cube", "--cube", " in the catalog " + Listed({Utf8(result.catalog)})},
                    CubeNames(catalog), result.cube, messages);
  return ExitStatus::kFailed;
}

}  // namespace

ExitStatus RunCube(Session& session, const Arguments& arguments, CubeResult& result) {
  result.dataSource = FirstOf(arguments.sources);
  result.catalog = FirstOf(arguments.catalogs);
  result.cube = FirstOf(arguments.cubes);
  if (!session.Identify(result.messages)) return ExitStatus::kFailed;
  const auto import = session.Import(result.messages);
  if (!import) return ExitStatus::kFailed;

  const bool open = result.dataSource.empty() || result.catalog.empty() || result.cube.empty();
  if (open) {
    const ExitStatus status = LookUp(*import, result, result.messages);
    if (status != ExitStatus::kDone) return status;
  }
  const bool whole = ReadCube(session, *import, result);
  const bool empty = result.hierarchies.empty() && result.measures.empty();
  if (whole && !empty) return ExitStatus::kDone;
  if (!open) {
    // Providers answer an unknown name with a fault or with nothing: say what there is.
    Messages found;
    const ExitStatus status = LookUp(*import, result, found);
    if (status == ExitStatus::kWrongCall || whole) {
      for (std::string& error : found.errors) result.messages.errors.push_back(std::move(error));
      if (status != ExitStatus::kDone) return status;
    }
  }
  return whole ? ExitStatus::kDone : ExitStatus::kFailed;
}
