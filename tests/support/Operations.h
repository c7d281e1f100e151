#pragma once

#include <string>
#include <utility>
#include <vector>

#include "Import/OTXMLAImportAPI.h"
#include "Utility/XMLASAX/XmlADiscoverAgent.h"

/// All operations of the library as tables.
namespace support {

/// The out parameters of all operations.
struct Outputs {
  VXStringVector names;
  std::vector<OTDataSource> dataSources;
  std::vector<OTXMLAHierarchy> hierarchies;
  std::vector<OTXMLAUnit> units;
  OTCube cube;
  std::pair<String, String> identity;
  XmlADiscoverAgent::DataSourceCatalogs sourceCatalogs;
  std::vector<OTCube> cubes;
  std::vector<RefCnt<XmlACubeVariable>> variables;
  std::vector<RefCnt<XmlADimension>> dimensions;
  XmlADiscoverAgent::DefaultHierarchies defaults;
  std::vector<RefCnt<XmlAMeasure>> measures;
  std::vector<RefCnt<XmlAHierarchy>> rows;
  std::vector<RefCnt<XmlALevel>> levels;
  RefCnt<XmlAMember> member;
  String errors;
  String warnings;

  /// `before`: previous content of `errors` and `warnings`.
  explicit Outputs(const wchar_t* before = L"");
  /// One text per record, in order. After an exception, the records that were read before it.
  std::vector<std::string> Records() const;
};

/// Ends a hierarchy's text except for the member type, which a warning explains.
inline constexpr const char* kMemberMark = "\n  member ";

/// The objects that the operations of an agent request.
struct Place {
  String source;
  String catalog;
  String cube;
  String hierarchy;
  String member;
  RefCnt<XmlAHierarchy> hierarchyRow;
};

/// One operation of a discover agent.
struct AgentOperation {
  const char* name;
  bool isPrefix;  ///< after a failure, the records are a prefix of the complete ones
  void (*run)(XmlADiscoverAgent& agent, const Place& place, Outputs& outputs);
};
const std::vector<AgentOperation>& AgentOperations();

/// One operation of the host's import interface.
struct ImportOperation {
  const char* name;
  bool throwsErrors;  ///< passes ErrorMessage to the caller
  void (*run)(OTXMLAImportAPI& import, Outputs& outputs);
};
const std::vector<ImportOperation>& ImportOperations();

}  // namespace support
