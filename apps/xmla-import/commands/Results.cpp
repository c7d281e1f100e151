#include "commands/Results.h"

#include <algorithm>

namespace {

bool HasContent(const NoResult&) { return false; }
bool HasContent(const ServersResult& result) { return !result.servers.empty(); }
bool HasContent(const SourcesResult& result) { return !result.dataSources.empty(); }
bool HasContent(const TreeResult& result) { return !result.dataSources.empty(); }
bool HasContent(const CubeResult& result) { return !result.IsEmpty(); }
bool HasContent(const ImportResult& result) { return result.cubesWithContent > 0; }

bool HasContent(const CompletionResult& result) { return !result.script.empty(); }

bool HasContent(const CheckResult& result) { return !result.url.empty(); }

bool HasContent(const DiffResult& result) { return !result.before.empty(); }

}  // namespace

bool HasContent(const Result& result) {
  return std::visit([](const auto& any) { return HasContent(any); }, result);
}

std::size_t DiffResult::Count(ChangeClass severity) const {
  return static_cast<std::size_t>(
      std::ranges::count(comparison.changes, severity, &Change::severity));
}
