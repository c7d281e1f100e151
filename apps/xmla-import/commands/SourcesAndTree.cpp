#include "base/Text.h"
#include "commands/Choices.h"
#include "commands/Commands.h"
#include "connection/Operation.h"

ExitStatus RunSources(Session& session, SourcesResult& result) {
  if (!session.Identify(result.messages)) return ExitStatus::kFailed;
  const auto import = session.Import(result.messages);
  if (!import) return ExitStatus::kFailed;
  Operation operation;
  import->GetDataSourceNames(result.dataSources, operation.errors, operation.warnings);
  return operation.End(result.messages) ? ExitStatus::kDone : ExitStatus::kFailed;
}

ExitStatus RunTree(Session& session, const Arguments& arguments, TreeResult& result) {
  if (!session.Identify(result.messages)) return ExitStatus::kFailed;
  const auto import = session.Import(result.messages);
  if (!import) return ExitStatus::kFailed;
  std::optional<String> source;
  if (!arguments.sources.empty()) source = Wide(arguments.sources.front());
  const bool isComplete = DataSourceTree(*import, source, result.dataSources, result.messages);
  if (!source) return isComplete ? ExitStatus::kDone : ExitStatus::kFailed;
  if (isComplete && !result.dataSources.front().m_catalogs.empty()) return ExitStatus::kDone;

  // Providers answer an unknown data source with a fault or an empty result. List the existing
  // ones. Errors of this look-up are dropped.
  Messages ignored;
  const auto names = DataSourceNames(*import, ignored);
  if (names && Choose({"data source", "--source", ""}, *names, source, result.messages) !=
                   ExitStatus::kDone) {
    result.dataSources.clear();
    return ExitStatus::kWrongCall;
  }
  return isComplete ? ExitStatus::kDone : ExitStatus::kFailed;
}
