#include "OperationsSupport.h"

#include <algorithm>
#include <new>

#include "Import/OTXMLAImportEntry.h"
#include "Utility/Generic/ErrorMessage.h"
#include "support/Text.h"

namespace reliability {

using support::Narrow;

const Kind kKinds[3] = {
    {"analysis-services", "/analysis-services", ServerInfo::kAnalysisServices2005, L"NORTHQUAY",
     L"Larkspur Finance", L"Ledger", L"[Date].[Calendar]", L"[Date].[Calendar].[2024]"},
    {"sap-bw", "/sap-bw", ServerInfo::kSAP_BW35, L"default", L"ZVSALES", L"ZVSALES/ZVSALES_Q001",
     L"[0CALMONTH]", L"[0CALMONTH].[All]"},
    {"tamarind", "/tamarind", ServerInfo::kTamarind7, L"Provider=Kelvora;Data Source=archive",
     L"Steamers", L"Log", L"[Route]", L"[Route].[Route]"},
};

namespace {

std::string Text(int number) { return std::to_string(number); }
std::string Text(const String& text) { return "'" + Narrow(text) + "'"; }
std::string Text(const OTXMLAUnit& unit) {
  return Text(unit.m_name) + Text(unit.m_externalName) + Text(unit.m_aggrType) + "," +
         Text(unit.m_precision) + "," + Text(unit.m_scale) + "," + Text(unit.m_type) +
         Text(unit.m_tamarindAttributeHierarchyName) + Text(unit.m_tamarindGenerationNumber) + "," +
         Text(unit.m_tamarindPropertyType);
}
std::string Text(const OTXMLALevel& level) {
  std::string text = "\n  " + Text(level.m_levelName) + Text(level.m_externalName) +
                     Text(level.m_levelNumber) + Text(level.m_level);
  for (const OTXMLAUnit& unit : level.m_memberProperties) text += "\n    " + Text(unit);
  return text;
}
constexpr const char* kMemberMark = "\n  member ";  // the part that a warning explains
std::string Text(const OTXMLAHierarchy& hierarchy) {
  std::string text = Text(hierarchy.m_hierarchyName) + Text(hierarchy.m_externalName) +
                     Text(hierarchy.m_dimensionUniqueName) + Text(hierarchy.m_hierarchyType) + "," +
                     Text(hierarchy.m_dimensionType);
  for (const OTXMLALevel& level : hierarchy.m_levels) text += Text(level);
  return text + kMemberMark + Text(hierarchy.m_memberType);
}
std::string Text(const XmlACubeVariable& variable) {
  return Text(variable.m_Name) + Text(variable.m_Caption) + Text(variable.m_type) +
         Text(variable.m_defaultLow) + Text(variable.m_defaultHigh);
}
std::string Text(const OTCube& cube) {
  return Text(cube.first) + Text(cube.second) + Text(cube.m_bMemberNameUnique);
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
std::string Text(const RefCnt<XmlACubeVariable>& row) { return Text(*row); }
std::string Text(const RefCnt<XmlADimension>& row) {
  return Text(row->GetDimensionUniqueName()) + Text(row->GetDefaultHierarchyUniqueName()) +
         Text(row->GetDimensionType());
}
std::string Text(const std::pair<const String, bool>& entry) { return Text(entry.first); }
std::string Text(const RefCnt<XmlAMeasure>& row) {
  return Text(row->GetName()) + Text(row->GetCaption()) + Text(row->GetAggrType()) +
         Text(row->GetType());
}
std::string Text(const RefCnt<XmlAHierarchy>& row) {
  return Text(row->GetUniqueName()) + Text(row->GetCaption()) + Text(row->GetDimensionUniqueName());
}

template <class List>
void Add(std::vector<std::string>& records, const List& list) {
  for (const auto& record : list) records.push_back(Text(record));
}

void AddLevels(std::vector<std::string>& records, const std::vector<RefCnt<XmlALevel>>& levels) {
  for (const RefCnt<XmlALevel>& level : levels) {
    records.push_back(Text(level->GetUniqueName()) + Text(level->GetLevelNumber()));
    for (unsigned int i = 0; i < level->GetNumOfProperties(); ++i)
      records.push_back(Text(level->GetUniqueName()) + Text(level->GetLevelPropertyName(i)));
  }
}

using S = Subject&;
using O = Outputs&;

}  // namespace

const std::vector<Operation> kOperations = {
    {"SetupConnInfo", true, true,
     [](S s, O) {
       OTXMLAAnaTamImportAPI import;
       import.SetupConnInfo(s.url, L"ann", L"secret", s.kind.target, ServerInfo::kCLIXMLA);
     }},
    {"create and destroy", true, true,
     [](S, O) { const std::unique_ptr<OTXMLAImportAPI> import(OTXMLACreateImport()); }},
    {"identify", false, true,
     [](S s, O o) {
       OTXMLAProviderIdentity identity;
       if (OTXMLAIdentifyProvider(s.url, L"", L"", ServerInfo::kCLIXMLA, identity, o.errors))
         o.identity = {identity.name, identity.version};
     }},
    {"GetDataSourceNames", false, true,
     [](S s, O o) { s.import.GetDataSourceNames(o.names, o.errors, o.warnings); }},
    {"GetDataSourceInfo", false, true,
     [](S s, O o) { s.import.GetDataSourceInfo(o.dataSources, o.errors, o.warnings); }},
    {"GetHierarchies", false, true,
     [](S s, O o) {
       o.hierarchies.emplace_back();  // replaced by the operation
       s.import.GetHierarchies(o.hierarchies, o.errors, o.warnings);
     }},
    {"GetMeasuresAndCalcMembers", false, true,
     [](S s, O o) {
       o.units.emplace_back();  // replaced by the operation
       s.import.GetMeasuresAndCalcMembers(o.units, o.errors, o.warnings);
     }},
    {"GetSAPVariables", true, true,
     [](S s, O o) {
       o.cube.m_sapVariables.emplace_back();  // kept by the operation
       s.import.GetSAPVariables(o.cube, o.errors, o.warnings);
     }},
    {"agent: identity", true, true, [](S s, O o) { s.agent->GetProviderInfomation(o.identity); }},
    {"agent: sources", true, true, [](S s, O o) { s.agent->GetDataSourceInfo(o.names); }},
    {"agent: sources and catalogs", true, true,
     [](S s, O o) { s.agent->GetDataSourceInfoCatalogs(o.sourceCatalogs); }},
    {"agent: catalogs", true, true, [](S s, O o) { s.agent->GetCatalogs(o.names, s.source); }},
    {"agent: cubes", true, true,
     [](S s, O o) { s.agent->GetCubesOnCatalog(o.cubes, s.catalog, s.source); }},
    {"agent: variables", true, true,
     [](S s, O o) {
       s.agent->GetVariablesOnCatalogCube(o.variables, s.cube, s.catalog, s.source);
     }},
    {"agent: dimensions", true, true,
     [](S s, O o) {
       s.agent->GetDimensionsOnCatalogCube(o.dimensions, s.catalog, s.cube, s.source);
     }},
    {"agent: default hierarchies", true, false,
     [](S s, O o) {
       s.agent->FindDefaultHierarchiesOnCatalogCube(o.defaults, s.catalog, s.cube, s.source);
     }},
    {"agent: measures", true, true,
     [](S s, O o) { s.agent->GetMeasuresOnCatalogCube(o.measures, s.catalog, s.cube, s.source); }},
    {"agent: hierarchies", true, true,
     [](S s, O o) { s.agent->GetHierarchiesOnCatalogCube(o.rows, s.catalog, s.cube, s.source); }},
    {"agent: levels", true, false,
     [](S s, O o) {
       s.agent->GetLevelsOnCatalogCubeHierarchy(o.levels, s.catalog, s.cube, s.hierarchyRow,
                                                s.source);
     }},
    {"agent: member", true, true,
     [](S s, O o) {
       o.member->SetUniqueName(s.member);
       s.agent->GetMemberOnCatalogCubeHierarchy(o.member, s.catalog, s.cube, s.hierarchy, s.source);
     }},
};

Outputs::Outputs() : member(new XmlAMember) {}

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
  if (member->GetMemberType() != 0) records.push_back(Text(member->GetMemberType()));
  return records;
}

Subject::Subject(const Kind& theKind, std::string theUrl)
    : kind(theKind),
      url(support::Wide(theUrl)),
      source(theKind.source),
      catalog(theKind.catalog),
      cube(theKind.cube),
      hierarchy(theKind.hierarchy),
      member(theKind.member),
      agent(XmlADiscoverAgent::Create(url, L"", L"", theKind.target, ServerInfo::kCLIXMLA, true)),
      hierarchyRow(new XmlAHierarchy(theKind.target, ServerInfo::kCLIXMLA)) {
  import.SetupConnInfo(url, L"", L"", theKind.target, ServerInfo::kCLIXMLA);
  import.SetImportChoiceInfo(source, catalog, cube);
  hierarchyRow->AppendValueName(L"HIERARCHY_UNIQUE_NAME", hierarchy);
}

std::string ThrownText(Outcome::End& end) {
  try {
    throw;
  } catch (const ErrorMessage& error) {
    end = Outcome::End::kErrorMessage;
    String text;
    error.RetrieveErrorMessages(text);
    return Narrow(text);
  } catch (const std::bad_alloc&) {
    end = Outcome::End::kOutOfMemory;
    return "out of memory";
  } catch (const std::exception& error) {
    end = Outcome::End::kOtherException;
    return error.what();
  }
}

void TakeTexts(const Outputs& outputs, Outcome& outcome) {
  outcome.records = outputs.Records();
  outcome.errors = Narrow(outputs.errors);
  outcome.warnings = Narrow(outputs.warnings);
}

bool operator==(const Outcome& a, const Outcome& b) {
  return a.end == b.end && a.records == b.records && a.errors == b.errors &&
         a.warnings == b.warnings;
}

std::string ToText(const Outcome& outcome) {
  std::string text = "ended " + std::to_string(static_cast<int>(outcome.end)) + " " +
                     outcome.thrown + "\nerrors: " + outcome.errors +
                     "warnings: " + outcome.warnings;
  for (const std::string& record : outcome.records) text += "\n" + record;
  return text;
}

std::string Complaint(const Operation& operation, const Outcome& outcome, const Outcome& whole) {
  if (outcome == whole) return "";
  if (outcome.end == Outcome::End::kOtherException) return "an unknown exception";
  if (outcome.end == Outcome::End::kErrorMessage && !operation.throwsErrors)
    return "an ErrorMessage left an operation that reports errors as text";
  if (!outcome.errors.starts_with("before\n") || !outcome.warnings.starts_with("before\n"))
    return "an earlier text is gone";
  const bool isWarned = outcome.warnings != whole.warnings;
  const auto comparable = [isWarned](const std::string& record) {
    return isWarned ? record.substr(0, record.find(kMemberMark)) : record;
  };
  const auto same = [&](const std::string& a, const std::string& b) {
    return comparable(a) == comparable(b);
  };
  if (outcome.IsWhole()) {
    return std::equal(outcome.records.begin(), outcome.records.end(), whole.records.begin(),
                      whole.records.end(), same)
               ? ""
               : "neither an error nor everything";
  }
  // With nothing done yet, only the previous content of the lists is there.
  auto place = whole.records.begin();
  for (const std::string& record : outcome.records) {
    const auto found =
        operation.isPrefix && place != whole.records.end() && !same(*place, record)
            ? whole.records.end()
            : std::find_if(place, whole.records.end(),
                           [&](const std::string& other) { return same(record, other); });
    if (found == whole.records.end()) return "a record that is not one of the whole: " + record;
    place = std::next(found);
  }
  return "";
}

}  // namespace reliability
