#include "support/Operations.h"

#include "Utility/Generic/BaseStringUtil.h"

namespace support {
namespace {

std::string Text(int number) { return std::to_string(number) + ","; }
std::string Text(const String& text) {
  return "'" +
         std::string(
             BaseStringUtil::StringToStdString(text, BaseStringUtil::kCodePageUTF8).view()) +
         "'";
}

std::string Text(const OTXMLAUnit& unit);

/// The texts of all parts, one after the other.
template <class... Parts>
std::string Texts(const Parts&... parts) {
  return (Text(parts) + ...);
}

std::string Text(const OTXMLAUnit& unit) {
  return Texts(unit.m_name, unit.m_externalName, unit.m_aggrType, unit.m_precision, unit.m_scale,
               unit.m_type, unit.m_tamarindAttributeHierarchyName, unit.m_tamarindGenerationNumber,
               unit.m_tamarindPropertyType);
}
std::string Text(const OTXMLALevel& level) {
  std::string text =
      "\n  " + Texts(level.m_levelName, level.m_externalName, level.m_levelNumber, level.m_level);
  for (const OTXMLAUnit& unit : level.m_memberProperties) text += "\n    " + Text(unit);
  return text;
}
std::string Text(const OTXMLAHierarchy& hierarchy) {
  std::string text =
      Texts(hierarchy.m_hierarchyName, hierarchy.m_externalName, hierarchy.m_dimensionUniqueName,
            hierarchy.m_hierarchyType, hierarchy.m_dimensionType);
  for (const OTXMLALevel& level : hierarchy.m_levels) text += Text(level);
  return text + kMemberMark + Text(hierarchy.m_memberType);
}
std::string Text(const XmlACubeVariable& variable) {
  return Texts(variable.m_Name, variable.m_Caption, variable.m_type, variable.m_selectionType,
               variable.m_entryType, variable.m_referenceDimension, variable.m_referenceHierarchy,
               variable.m_defaultLow, variable.m_defaultHigh);
}
std::string Text(const OTCube& cube) {
  return Texts(cube.first, cube.second, cube.m_bMemberNameUnique);
}
std::string Text(const OTDataSource& source) {
  std::string text = Text(source.m_dataSourceName);
  for (const OTCatalog& catalog : source.m_catalogs) {
    text += "\n  " + Text(catalog.m_catalogName);
    for (const OTCube& cube : catalog.m_cubes) text += "\n    " + Text(cube);
  }
  return text;
}
std::string Text(const std::pair<String, VXStringVector>& catalogs) {
  std::string text = Text(catalogs.first);
  for (const String& catalog : catalogs.second) text += Text(catalog);
  return text;
}
std::string Text(const std::pair<const String, bool>& entry) { return Text(entry.first); }
std::string Text(const RefCnt<XmlACubeVariable>& row) { return Text(*row); }
std::string Text(const RefCnt<XmlADimension>& row) {
  return Texts(row->GetDimensionUniqueName(), row->GetDefaultHierarchyUniqueName(),
               row->GetDimensionType());
}
std::string Text(const RefCnt<XmlAMeasure>& row) {
  return Texts(row->GetName(), row->GetCaption(), row->GetType(), row->GetAggrType(),
               row->GetPrecision(), row->GetScale());
}
std::string Text(const RefCnt<XmlAHierarchy>& row) {
  return Texts(row->GetUniqueName(), row->GetCaption(), row->GetDimensionUniqueName(),
               row->GetDefaultMember(), row->GetAllMember(), row->GetDimensionType(),
               row->GetHierarchyType(), row->Virtual(), row->NotMeasure());
}

template <class List>
void Add(std::vector<std::string>& records, const List& list) {
  for (const auto& record : list) records.push_back(Text(record));
}

void AddLevels(std::vector<std::string>& records, const std::vector<RefCnt<XmlALevel>>& levels) {
  for (const RefCnt<XmlALevel>& row : levels) {
    records.push_back(Texts(row->GetUniqueName(), row->GetLevelName(), row->GetCaption(),
                            row->GetDataType(), row->GetPrecision(), row->GetScale(),
                            row->GetLevelNumber()));
    for (unsigned int i = 0; i < row->GetNumOfProperties(); ++i)
      records.push_back(
          Texts(row->GetUniqueName(), row->GetLevelPropertyName(i), row->GetLevelPropertyCaption(i),
                row->GetLevelPropertyDataType(i), row->GetLevelPropertyPrecision(i),
                row->GetLevelPropertyScale(i), row->GetLevelPropertyGenerationNumber(i),
                row->GetLevelPropertyType(i), row->GetLevelPropertyHierarchyAttributeName(i)));
  }
}

using Agent = XmlADiscoverAgent&;
using Import = OTXMLAImportAPI&;
using In = const Place&;
using Out = Outputs&;

}  // namespace

Outputs::Outputs(const wchar_t* before)
    : member(new XmlAMember), errors(before), warnings(before) {}

std::vector<std::string> Outputs::Records() const {
  std::vector<std::string> records;
  Add(records, names);
  Add(records, dataSources);
  Add(records, hierarchies);
  Add(records, units);
  Add(records, cube.m_sapVariables);
  for (const String& part : {identity.first, identity.second})
    if (!part.empty()) records.push_back(Text(part));
  Add(records, sourceCatalogs);
  Add(records, cubes);
  Add(records, variables);
  Add(records, dimensions);
  Add(records, defaults);
  Add(records, measures);
  Add(records, rows);
  AddLevels(records, levels);
  if (member->GetMemberType() != 0)
    records.push_back(Texts(member->GetUniqueName(), member->GetMemberType()));
  return records;
}

const std::vector<AgentOperation>& AgentOperations() {
  static const std::vector<AgentOperation> operations = {
      {"agent: identity", true,
       [](Agent agent, In, Out o) { agent.GetProviderInfomation(o.identity); }},
      {"agent: sources", true, [](Agent agent, In, Out o) { agent.GetDataSourceInfo(o.names); }},
      {"agent: sources and catalogs", true,
       [](Agent agent, In, Out o) { agent.GetDataSourceInfoCatalogs(o.sourceCatalogs); }},
      {"agent: catalogs", true,
       [](Agent agent, In in, Out o) { agent.GetCatalogs(o.names, in.source); }},
      {"agent: cubes", true,
       [](Agent agent, In in, Out o) { agent.GetCubesOnCatalog(o.cubes, in.catalog, in.source); }},
      {"agent: variables", true,
       [](Agent agent, In in, Out o) {
         agent.GetVariablesOnCatalogCube(o.variables, in.cube, in.catalog, in.source);
       }},
      {"agent: dimensions", true,
       [](Agent agent, In in, Out o) {
         agent.GetDimensionsOnCatalogCube(o.dimensions, in.catalog, in.cube, in.source);
       }},
      {"agent: default hierarchies", false,
       [](Agent agent, In in, Out o) {
         agent.FindDefaultHierarchiesOnCatalogCube(o.defaults, in.catalog, in.cube, in.source);
       }},
      {"agent: measures", true,
       [](Agent agent, In in, Out o) {
         agent.GetMeasuresOnCatalogCube(o.measures, in.catalog, in.cube, in.source);
       }},
      {"agent: hierarchies", true,
       [](Agent agent, In in, Out o) {
         agent.GetHierarchiesOnCatalogCube(o.rows, in.catalog, in.cube, in.source);
       }},
      {"agent: levels", false,
       [](Agent agent, In in, Out o) {
         agent.GetLevelsOnCatalogCubeHierarchy(o.levels, in.catalog, in.cube, in.hierarchyRow,
                                               in.source);
       }},
      {"agent: member", true,
       [](Agent agent, In in, Out o) {
         o.member->SetUniqueName(in.member);
         agent.GetMemberOnCatalogCubeHierarchy(o.member, in.catalog, in.cube, in.hierarchy,
                                               in.source);
       }},
  };
  return operations;
}

const std::vector<ImportOperation>& ImportOperations() {
  static const std::vector<ImportOperation> operations = {
      {"GetDataSourceNames", false,
       [](Import import, Out o) { import.GetDataSourceNames(o.names, o.errors, o.warnings); }},
      {"GetDataSourceInfo", false,
       [](Import import, Out o) { import.GetDataSourceInfo(o.dataSources, o.errors, o.warnings); }},
      {"GetHierarchies", false,
       [](Import import, Out o) {
         o.hierarchies.emplace_back();  // replaced by the operation
         import.GetHierarchies(o.hierarchies, o.errors, o.warnings);
       }},
      {"GetMeasuresAndCalcMembers", false,
       [](Import import, Out o) {
         o.units.emplace_back();  // replaced by the operation
         import.GetMeasuresAndCalcMembers(o.units, o.errors, o.warnings);
       }},
      {"GetSAPVariables", true,
       [](Import import, Out o) {
         o.cube.m_sapVariables.emplace_back();  // kept by the operation
         import.GetSAPVariables(o.cube, o.errors, o.warnings);
       }},
  };
  return operations;
}

}  // namespace support
