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
  Messages messages;
  const bool isComplete = DataSourceTree(*import, source, result.dataSources, messages);
  const bool isFound = isComplete && source && !result.dataSources.front().m_catalogs.empty();
  if (source && !isFound && IsUnknownDataSource(*import, *source, messages)) {
    result.dataSources.clear();
    AddMessages(std::move(messages), result.messages);
    return ExitStatus::kWrongCall;
  }
  AddMessages(std::move(messages), result.messages);
  if (isComplete) return ExitStatus::kDone;
  return result.dataSources.empty() ? ExitStatus::kFailed : ExitStatus::kPartly;
}
