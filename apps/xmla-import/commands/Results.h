#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "Import/OTXMLAImportAPI.h"
#include "base/Messages.h"
#include "diff/Compare.h"

// The results of the commands.

/// Result of a call that failed before the command was known.
struct NoResult {
  Messages messages;
};

/// The services of the server file.
struct ServersResult {
  struct Entry {
    String name;
    String url;  ///< without credentials
  };
  std::vector<Entry> servers;
  Messages messages;
};

/// A script for a shell.
struct CompletionResult {
  std::string script;
  Messages messages;
};

struct SourcesResult {
  VXStringVector dataSources;
  Messages messages;
};

struct TreeResult {
  std::vector<OTDataSource> dataSources;
  Messages messages;
};

struct CubeResult {
  String dataSource;
  String catalog;
  String cube;
  std::vector<OTXMLAHierarchy> hierarchies;
  std::vector<OTXMLAUnit> measures;
  XmlACubeVariableVector sapVariables;
  Messages messages;
  bool isComplete = false;  ///< no part failed

  bool IsEmpty() const { return hierarchies.empty() && measures.empty() && sapVariables.empty(); }
};

/// Without the cubes, which the ResultReceiver gets one by one.
struct ImportResult {
  String providerName;
  String providerVersion;
  std::string target;  ///< --target name of the kind in use; empty if detection failed
  Messages messages;
  std::size_t cubeCount = 0;         ///< cubes to read, known before the first one is read
  std::size_t cubesWithContent = 0;  ///< complete cubes, and incomplete ones that are not empty
};

/// One step of a check.
struct CheckStep {
  enum class Status { kOk, kWarning, kFailed, kSkipped };

  std::string name = {};
  Status status = Status::kOk;
  std::string found = {};
  std::string advice = {};  ///< what to do; empty for kOk and kSkipped
  std::optional<double> seconds = {};
};

/// Name of a status in the output.
inline const char* StatusName(CheckStep::Status status) {
  constexpr const char* kStatusNames[] = {"ok", "warning", "failed", "skipped"};
  return kStatusNames[static_cast<int>(status)];
}

/// Without the steps, which the ResultReceiver gets one by one.
struct CheckResult {
  std::string url;          ///< without credentials
  std::string target;       ///< --target name of the configured kind, or auto
  bool isComplete = false;  ///< every step was done, failed or skipped
  Messages messages;
};

struct DiffResult {
  std::string before;    ///< the old document, for people; empty: nothing was compared
  std::string after;     ///< the new one
  std::string document;  ///< the command that wrote them
  Comparison comparison;
  Messages messages;

  /// The number of changes of this class.
  std::size_t Count(ChangeClass severity) const;
};

using Result = std::variant<NoResult, ServersResult, SourcesResult, TreeResult, CubeResult,
                            ImportResult, CheckResult, DiffResult, CompletionResult>;

inline Messages& MessagesOf(Result& result) {
  return std::visit([](auto& any) -> Messages& { return any.messages; }, result);
}

/// True if the result has more than messages.
bool HasContent(const Result& result);
