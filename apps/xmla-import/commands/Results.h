#pragma once

#include <string>
#include <variant>
#include <vector>

#include "Import/OTXMLAImportAPI.h"
#include "base/Messages.h"

// What each command comes back with.

/// A call that failed before it was clear what for.
struct NoResult {
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
  bool isWhole = false;  ///< nothing of it failed
};

/// Without the cubes, which are handed over one by one.
struct ImportResult {
  String providerName;
  String providerVersion;
  std::string target;  ///< name of the kind in force; empty when none came into force
  Messages messages;
};

using Result = std::variant<NoResult, SourcesResult, TreeResult, CubeResult, ImportResult>;

inline Messages& MessagesOf(Result& result) {
  return std::visit([](auto& any) -> Messages& { return any.messages; }, result);
}
