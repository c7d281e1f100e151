#pragma once

#include <string_view>

#include "commands/Results.h"

// The members of each record, with their keys, in the order of the JSON documents. Every format
// takes them from here, so a new member appears in all of them.
//
//     VisitFields(record, visit) calls visit(key, member) for each member.

/// The provider of an import.
template <class Visit>
void VisitFields(const ImportResult& provider, Visit&& visit) {
  visit("name", provider.providerName);
  visit("version", provider.providerVersion);
  visit("target", provider.target);
}

template <class Visit>
void VisitFields(const ServersResult::Entry& server, Visit&& visit) {
  visit("name", server.name);
  visit("url", server.url);
}

template <class Visit>
void VisitFields(const OTDataSource& source, Visit&& visit) {
  visit("name", source.m_dataSourceName);
  visit("variables", source.m_variables);
  visit("catalogs", source.m_catalogs);
}

template <class Visit>
void VisitFields(const OTCatalog& catalog, Visit&& visit) {
  visit("name", catalog.m_catalogName);
  visit("asoType", catalog.m_bASOType);
  visit("variables", catalog.m_variables);
  visit("cubes", catalog.m_cubes);
}

template <class Visit>
void VisitFields(const OTCube& cube, Visit&& visit) {
  visit("name", cube.first);
  visit("secondName", cube.second);
  visit("variables", cube.m_variables);
  visit("aliases", cube.m_aliases);
  visit("memberNameUnique", cube.m_bMemberNameUnique);
  visit("dateFormat", cube.m_dateFormat);
  visit("sapVariables", cube.m_sapVariables);
}

/// Without errors and warnings.
template <class Visit>
void VisitFields(const CubeResult& cube, Visit&& visit) {
  visit("dataSource", cube.dataSource);
  visit("catalog", cube.catalog);
  visit("cube", cube.cube);
  visit("hierarchies", cube.hierarchies);
  visit("measures", cube.measures);
  visit("sapVariables", cube.sapVariables);
}

template <class Visit>
void VisitFields(const OTXMLAHierarchy& hierarchy, Visit&& visit) {
  visit("name", hierarchy.m_hierarchyName);
  visit("externalName", hierarchy.m_externalName);
  visit("dimensionUniqueName", hierarchy.m_dimensionUniqueName);
  visit("memberType", hierarchy.m_memberType);
  visit("hierarchyType", hierarchy.m_hierarchyType);
  visit("dimensionType", hierarchy.m_dimensionType);
  visit("defaultMember", hierarchy.m_defaultMember);
  visit("alternateHierarchyNames", hierarchy.m_alternateHierarchyNames);
  visit("udas", hierarchy.m_udas);
  visit("levels", hierarchy.m_levels);
}

template <class Visit>
void VisitFields(const OTXMLALevel& level, Visit&& visit) {
  visit("name", level.m_levelName);
  visit("externalName", level.m_externalName);
  visit("number", level.m_levelNumber);
  visit("unit", level.m_level);
  visit("memberProperties", level.m_memberProperties);
}

template <class Visit>
void VisitFields(const OTXMLAUnit& unit, Visit&& visit) {
  visit("name", unit.m_name);
  visit("externalName", unit.m_externalName);
  visit("aggrType", unit.m_aggrType);
  visit("type", unit.m_type);
  visit("precision", unit.m_precision);
  visit("scale", unit.m_scale);
  visit("nullable", unit.m_nullable);
  visit("dimPropType", unit.m_dimPropType);
  visit("tamarindAttributeHierarchyName", unit.m_tamarindAttributeHierarchyName);
  visit("tamarindGenerationNumber", unit.m_tamarindGenerationNumber);
  visit("tamarindPropertyType", unit.m_tamarindPropertyType);
}

template <class Visit>
void VisitFields(const XmlACubeVariable& variable, Visit&& visit) {
  visit("name", variable.m_Name);
  visit("caption", variable.m_Caption);
  visit("type", variable.m_type);
  visit("selectionType", variable.m_selectionType);
  visit("entryType", variable.m_entryType);
  visit("referenceDimension", variable.m_referenceDimension);
  visit("referenceHierarchy", variable.m_referenceHierarchy);
  visit("defaultLow", variable.m_defaultLow);
  visit("defaultHigh", variable.m_defaultHigh);
  visit("overrideDefaultLow", variable.m_overrideDefaultLow);
  visit("overrideDefaultHigh", variable.m_overrideDefaultHigh);
}

template <class Visit>
void VisitFields(const PathPart& part, Visit&& visit) {
  visit("kind", part.kind);
  visit("name", part.name);
}

template <class Visit>
void VisitFields(const Change& change, Visit&& visit) {
  visit("id", change.id);
  visit("class", std::string_view(ClassName(change.severity)));
  visit("path", change.path);
  visit("what", change.what);
  visit("before", change.before);
  visit("after", change.after);
  visit("remark", change.remark);
}

/// A record, in contrast to a value or a list.
template <class Type>
concept HasFields = requires(const Type& record) {
  VisitFields(record, [](std::string_view, const auto&) {});
};
