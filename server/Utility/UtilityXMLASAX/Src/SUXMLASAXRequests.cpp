#include "SUXMLASAXRequests.h"

#include <utility>

#include "Utility/Generic/BaseStringUtil.h"

namespace Requests {
namespace {

/// Fills the builder step by step. The time counts from the beginning.
class Building {
 public:
  /// What a request that ran out of memory left in the builder is dropped.
  Building(XmlASoapRequest& builder, const wchar_t* rowset) : m_builder(builder) {
    VXDateTime::GetCurrDateTime(m_started);
    m_builder.ClearRestrictions();
    m_builder.SetRequestType(rowset);
  }

  XmlASoapRequest* operator->() { return &m_builder; }

  void InCatalog(const String& catalog, const String& dataSourceInfo) {
    m_builder.SetDataSourceInfo(dataSourceInfo);
    m_builder.PushCatalogRestriction(catalog);
  }
  void InCube(const CubePlace& place) {
    InCatalog(place.catalog, place.dataSourceInfo);
    if (!place.cube.empty()) m_builder.PushCubeRestriction(place.cube);
  }

  DiscoverRequest Finish(const LogTitle& title, VXStringVector titleArguments) {
    String subject = m_builder.Subject();
    const String text = m_builder.GetContent();
    return {m_started, &title, std::move(titleArguments), std::move(subject),
            BaseStringUtil::StringToStdString(text, BaseStringUtil::kCodePageUTF8)};
  }

 private:
  XmlASoapRequest& m_builder;
  VXDateTime m_started;
};

}  // namespace

DiscoverRequest ProviderProperty(XmlASoapRequest& builder, const LogTitle& title, const String& url,
                                 const String& property) {
  Building request(builder, L"DISCOVER_PROPERTIES");
  request->PushPropertyRestriction(property);
  return request.Finish(title, {url});
}

DiscoverRequest DataSources(XmlASoapRequest& builder, const LogTitle& title, const String& url) {
  return Building(builder, L"DISCOVER_DATASOURCES").Finish(title, {url});
}

DiscoverRequest Catalogs(XmlASoapRequest& builder, const String& dataSourceInfo) {
  Building request(builder, L"DBSCHEMA_CATALOGS");
  request->SetDataSourceInfo(dataSourceInfo);
  return request.Finish(kCatalogsTitle, {dataSourceInfo});
}

DiscoverRequest Cubes(XmlASoapRequest& builder, const String& catalog,
                      const String& dataSourceInfo) {
  Building request(builder, L"MDSCHEMA_CUBES");
  request.InCatalog(catalog, dataSourceInfo);
  return request.Finish(kCubesTitle, {catalog, dataSourceInfo});
}

DiscoverRequest Dimensions(XmlASoapRequest& builder, const LogTitle& title,
                           const CubePlace& place) {
  Building request(builder, L"MDSCHEMA_DIMENSIONS");
  request.InCube(place);
  return request.Finish(title, {place.cube, place.catalog, place.dataSourceInfo});
}

DiscoverRequest Hierarchies(XmlASoapRequest& builder, const CubePlace& place) {
  Building request(builder, L"MDSCHEMA_HIERARCHIES");
  request.InCube(place);
  return request.Finish(kHierarchiesTitle, {place.cube, place.catalog, place.dataSourceInfo});
}

DiscoverRequest Levels(XmlASoapRequest& builder, const CubePlace& place, const String& hierarchy) {
  Building request(builder, L"MDSCHEMA_LEVELS");
  request.InCube(place);
  request->PushHierarchyRestriction(hierarchy);
  return request.Finish(kLevelsTitle, {hierarchy, place.cube, place.catalog, place.dataSourceInfo});
}

DiscoverRequest Properties(XmlASoapRequest& builder, const CubePlace& place,
                           const String& hierarchy, const String& dimension, const String& level) {
  Building request(builder, L"MDSCHEMA_PROPERTIES");
  request.InCube(place);
  request->PushHierarchyRestriction(hierarchy);
  request->PushDimensionRestriction(dimension);
  request->PushLevelRestriction(level);
  return request.Finish(kPropertiesTitle,
                        {level, hierarchy, place.cube, place.catalog, place.dataSourceInfo});
}

DiscoverRequest Members(XmlASoapRequest& builder, const CubePlace& place, const String& hierarchy,
                        const String& member) {
  Building request(builder, L"MDSCHEMA_MEMBERS");
  request.InCube(place);
  request->PushHierarchyRestriction(hierarchy);
  request->PushMemberRestriction(member);
  return request.Finish(kMembersTitle,
                        {hierarchy, place.cube, place.catalog, place.dataSourceInfo});
}

DiscoverRequest Measures(XmlASoapRequest& builder, const CubePlace& place) {
  Building request(builder, L"MDSCHEMA_MEASURES");
  request.InCatalog(place.catalog, place.dataSourceInfo);
  request->PushCubeRestriction(place.cube);  // an empty one too, unlike the other requests
  return request.Finish(kMeasuresTitle, {place.cube, place.catalog, place.dataSourceInfo});
}

DiscoverRequest Variables(XmlASoapRequest& builder, const CubePlace& place) {
  Building request(builder, L"SAP_VARIABLES");
  request.InCube(place);
  return request.Finish(kVariablesTitle, {place.cube, place.catalog, place.dataSourceInfo});
}

}  // namespace Requests
