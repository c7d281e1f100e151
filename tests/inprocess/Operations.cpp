#include "inprocess/Operations.h"

#include <algorithm>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/XMLASAX/OTXMLAAnaTamImportAPI.h"
#include "inprocess/Server.h"

namespace inprocess {
namespace {

constexpr const wchar_t* kCatalog = L"C";
constexpr const wchar_t* kCube = L"Q";
constexpr const wchar_t* kSource = L"S";

void Add(std::string& line, const String& text) {
  const std::size_t begin = line.size();
  line += BaseStringUtil::StringToStdString(text, BaseStringUtil::kCodePageUTF8).view();
  std::replace(line.begin() + static_cast<std::ptrdiff_t>(begin), line.end(), '\n', ' ');
  line += '|';
}
void Add(std::string& line, int number) { line += std::to_string(number) + "|"; }

template <class... Parts>
void AddLine(std::string& records, const Parts&... parts) {
  (Add(records, parts), ...);
  records += '\n';
}

/// Calls `ask` with a list, and describes the list's items even if `ask` throws.
template <class List, class Ask, class Describe>
void Gather(std::string& records, Ask ask, Describe describe) {
  List list;
  struct Always {
    List& items;
    std::string& records;
    Describe& describe;
    ~Always() {
      for (const auto& item : items) describe(item);
    }
  } const always{list, records, describe};
  ask(list);
}

void Version(XmlADiscoverAgent& agent, std::string& records) {
  std::pair<String, String> info;
  agent.GetProviderInfomation(info);
  AddLine(records, info.first, info.second);
}

void DataSources(XmlADiscoverAgent& agent, std::string& records) {
  Gather<VXStringVector>(
      records, [&](auto& list) { agent.GetDataSourceInfo(list); },
      [&](const String& name) { AddLine(records, name); });
}

void Catalogs(XmlADiscoverAgent& agent, std::string& records) {
  Gather<VXStringVector>(
      records, [&](auto& list) { agent.GetCatalogs(list, kSource); },
      [&](const String& name) { AddLine(records, name); });
}

void Cubes(XmlADiscoverAgent& agent, std::string& records) {
  Gather<std::vector<OTCube>>(
      records, [&](auto& list) { agent.GetCubesOnCatalog(list, kCatalog, kSource); },
      [&](const OTCube& cube) { AddLine(records, cube.first, cube.second); });
}

void Dimensions(XmlADiscoverAgent& agent, std::string& records) {
  Gather<std::vector<RefCnt<XmlADimension>>>(
      records,
      [&](auto& list) { agent.GetDimensionsOnCatalogCube(list, kCatalog, kCube, kSource); },
      [&](const auto& row) {
        AddLine(records, row->GetDimensionUniqueName(), row->GetDefaultHierarchyUniqueName(),
                row->GetDimensionType());
      });
}

void Hierarchies(XmlADiscoverAgent& agent, std::string& records) {
  Gather<std::vector<RefCnt<XmlAHierarchy>>>(
      records,
      [&](auto& list) { agent.GetHierarchiesOnCatalogCube(list, kCatalog, kCube, kSource); },
      [&](const auto& row) {
        AddLine(records, row->GetUniqueName(), row->GetCaption(), row->GetDimensionUniqueName(),
                row->GetDefaultMember(), row->GetAllMember(), row->GetDimensionType(),
                row->GetHierarchyType(), row->Virtual(), row->NotMeasure());
      });
}

void Levels(XmlADiscoverAgent& agent, std::string& records) {
  Gather<std::vector<RefCnt<XmlALevel>>>(
      records,
      [&](auto& list) {
        agent.GetLevelsOnCatalogCubeHierarchy(
            list, kCatalog, kCube,
            RefCnt<XmlAHierarchy>(new XmlAHierarchy(ServerInfo::kTessera, ServerInfo::kCLIXMLA)),
            kSource);
      },
      [&](const auto& row) {
        AddLine(records, row->GetUniqueName(), row->GetLevelName(), row->GetCaption(),
                row->GetDataType(), row->GetPrecision(), row->GetScale(), row->GetLevelNumber());
        for (unsigned int i = 0; i < row->GetNumOfProperties(); ++i) {
          AddLine(records, row->GetLevelPropertyName(i), row->GetLevelPropertyCaption(i),
                  row->GetLevelPropertyDataType(i), row->GetLevelPropertyPrecision(i),
                  row->GetLevelPropertyScale(i), row->GetLevelPropertyGenerationNumber(i),
                  row->GetLevelPropertyType(i), row->GetLevelPropertyHierarchyAttributeName(i));
        }
      });
}

void Member(XmlADiscoverAgent& agent, std::string& records) {
  const RefCnt<XmlAMember> member(new XmlAMember);
  member->SetUniqueName(L"[A].[All]");
  agent.GetMemberOnCatalogCubeHierarchy(member, kCatalog, kCube, L"[A]", kSource);
  AddLine(records, member->GetUniqueName(), member->GetMemberType());
}

void Measures(XmlADiscoverAgent& agent, std::string& records) {
  Gather<std::vector<RefCnt<XmlAMeasure>>>(
      records, [&](auto& list) { agent.GetMeasuresOnCatalogCube(list, kCatalog, kCube, kSource); },
      [&](const auto& row) {
        AddLine(records, row->GetName(), row->GetCaption(), row->GetType(), row->GetAggrType(),
                row->GetPrecision(), row->GetScale());
      });
}

template <class Variable>
void AddVariable(std::string& records, const Variable& variable) {
  AddLine(records, variable.m_Name, variable.m_Caption, static_cast<int>(variable.m_type),
          static_cast<int>(variable.m_selectionType), static_cast<int>(variable.m_entryType),
          variable.m_referenceDimension, variable.m_referenceHierarchy, variable.m_defaultLow,
          variable.m_defaultHigh);
}

void Variables(XmlADiscoverAgent& agent, std::string& records) {
  Gather<std::vector<RefCnt<XmlACubeVariable>>>(
      records, [&](auto& list) { agent.GetVariablesOnCatalogCube(list, kCube, kCatalog, kSource); },
      [&](const auto& row) { AddVariable(records, *row); });
}

// Operations of the import interface.

void AddUnit(std::string& result, const OTXMLAUnit& unit) {
  AddLine(result, unit.m_name, unit.m_externalName, static_cast<int>(unit.m_aggrType),
          static_cast<int>(unit.m_type), unit.m_precision, unit.m_scale,
          unit.m_tamarindAttributeHierarchyName, unit.m_tamarindGenerationNumber,
          unit.m_tamarindPropertyType);
}

void SourceNames(OTXMLAImportAPI& import, std::string& result, String& errors, String& warnings) {
  VXStringVector names;
  import.GetDataSourceNames(names, errors, warnings);
  for (const String& name : names) AddLine(result, name);
}

void Tree(OTXMLAImportAPI& import, std::string& result, String& errors, String& warnings) {
  std::vector<OTDataSource> sources;
  import.GetDataSourceInfo(sources, errors, warnings);
  for (const OTDataSource& source : sources) {
    AddLine(result, source.m_dataSourceName);
    for (const OTCatalog& catalog : source.m_catalogs) {
      AddLine(result, catalog.m_catalogName);
      for (const OTCube& cube : catalog.m_cubes) AddLine(result, cube.first, cube.second);
    }
  }
}

void ImportedHierarchies(OTXMLAImportAPI& import, std::string& result, String& errors,
                         String& warnings) {
  std::vector<OTXMLAHierarchy> hierarchies;
  import.GetHierarchies(hierarchies, errors, warnings);
  for (const OTXMLAHierarchy& hierarchy : hierarchies) {
    AddLine(result, hierarchy.m_hierarchyName, hierarchy.m_externalName,
            hierarchy.m_dimensionUniqueName, static_cast<int>(hierarchy.m_memberType),
            static_cast<int>(hierarchy.m_hierarchyType),
            static_cast<int>(hierarchy.m_dimensionType));
    for (const OTXMLALevel& level : hierarchy.m_levels) {
      AddLine(result, level.m_levelName, level.m_externalName, level.m_levelNumber);
      for (const OTXMLAUnit& property : level.m_memberProperties) AddUnit(result, property);
    }
  }
}

void ImportedMeasures(OTXMLAImportAPI& import, std::string& result, String& errors,
                      String& warnings) {
  std::vector<OTXMLAUnit> units;
  import.GetMeasuresAndCalcMembers(units, errors, warnings);
  for (const OTXMLAUnit& unit : units) AddUnit(result, unit);
}

void ImportedVariables(OTXMLAImportAPI& import, std::string& result, String& errors,
                       String& warnings) {
  OTCube cube;
  import.GetSAPVariables(cube, errors, warnings);
  for (const XmlACubeVariable& variable : cube.m_sapVariables) AddVariable(result, variable);
}

}  // namespace

const std::vector<Exchange>& Exchanges() {
  static const std::vector<Exchange> exchanges = {
      {"MDSCHEMA_HIERARCHIES", L"row", &Hierarchies},
      {"DISCOVER_PROPERTIES", nullptr, &Version},
      {"DISCOVER_DATASOURCES", nullptr, &DataSources},
      {"DBSCHEMA_CATALOGS", L"CATALOG_NAME", &Catalogs},
      {"MDSCHEMA_CUBES", L"CUBE_NAME", &Cubes},
      {"MDSCHEMA_DIMENSIONS", L"row", &Dimensions},
      {"MDSCHEMA_LEVELS", nullptr, &Levels},
      {"MDSCHEMA_PROPERTIES", nullptr, &Levels},
      {"MDSCHEMA_MEMBERS", nullptr, &Member},
      {"MDSCHEMA_MEASURES", L"row", &Measures},
      {"SAP_VARIABLES", L"row", &Variables},
  };
  return exchanges;
}

const Exchange& ExchangeFor(std::string_view requestType) {
  for (const Exchange& exchange : Exchanges())
    if (requestType == exchange.requestType) return exchange;
  return Exchanges().front();
}

const std::vector<ImportOperation>& ImportOperations() {
  static const std::vector<ImportOperation> operations = {
      {"GetDataSourceNames", &SourceNames},     {"GetDataSourceInfo", &Tree},
      {"GetHierarchies", &ImportedHierarchies}, {"GetMeasuresAndCalcMembers", &ImportedMeasures},
      {"GetSAPVariables", &ImportedVariables},
  };
  return operations;
}

XmlADiscoverAgentHeap MakeAgent(ServerInfo::TargetType target) {
  return XmlADiscoverAgent::Create(kUrl, L"", L"", target, ServerInfo::kCLIXMLA, false);
}

Heap<OTXMLAImportAPI> MakeImport(ServerInfo::TargetType target) {
  auto import = std::make_unique<OTXMLAAnaTamImportAPI>();
  import->SetupConnInfo(kUrl, L"", L"", target, ServerInfo::kCLIXMLA);
  import->SetImportChoiceInfo(kSource, kCatalog, kCube);
  return import;
}

}  // namespace inprocess
