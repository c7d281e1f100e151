#include "commands/Results.h"

namespace {

bool HasContent(const NoResult&) { return false; }
bool HasContent(const ServersResult& result) { return !result.servers.empty(); }
bool HasContent(const SourcesResult& result) { return !result.dataSources.empty(); }
bool HasContent(const TreeResult& result) { return !result.dataSources.empty(); }
bool HasContent(const CubeResult& result) { return !result.IsEmpty(); }
bool HasContent(const ImportResult& result) { return result.cubesWithContent > 0; }

bool HasContent(const CheckResult& result) { return !result.url.empty(); }

}  // namespace

bool HasContent(const Result& result) {
  return std::visit([](const auto& any) { return HasContent(any); }, result);
}
