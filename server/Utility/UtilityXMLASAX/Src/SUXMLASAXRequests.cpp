#include "SUXMLASAXRequests.h"

#include <utility>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ImportSettings.h"

namespace Requests {
namespace {

bool IsTooLong(std::size_t bytes) {
  const std::uint64_t limit = ImportSettings::Current().limits.maxRequestBytes;
  return limit > 0 && bytes > limit;
}

/// Builds a request step by step. The start time is the time of construction.
class RequestBuilder {
 public:
  /// The builder may contain parts of a request that failed.
  RequestBuilder(XmlASoapRequest& builder, const wchar_t* rowset) : m_builder(builder) {
    VXDateTime::GetCurrDateTime(m_started);
    m_builder.ClearRestrictions();
    m_builder.SetRequestType(rowset);
  }

  using Setter = void (XmlASoapRequest::*)(const String&);
  /// Adds a name, unless it makes the request too long.
  RequestBuilder& Add(Setter setter, const String& name) {
    m_characters += name.size();
    if (!IsTooLong(m_characters)) (m_builder.*setter)(name);
    return *this;
  }
  RequestBuilder& InDataSource(const String& info) {
    return Add(&XmlASoapRequest::SetDataSourceInfo, info);
  }
  RequestBuilder& InCatalog(const String& catalog, const String& dataSourceInfo) {
    return InDataSource(dataSourceInfo).Add(&XmlASoapRequest::PushCatalogRestriction, catalog);
  }
  RequestBuilder& InCube(const CubePlace& place) {
    InCatalog(place.catalog, place.dataSourceInfo);
    return place.cube.empty() ? *this : Add(&XmlASoapRequest::PushCubeRestriction, place.cube);
  }

  DiscoverRequest Finish(const LogTitle& title, const VXStringVector& titleArguments) {
    String subject = m_builder.Subject();
    const String text = m_builder.GetContent();
    NarrowString body = BaseStringUtil::ToUTF8(text);
    const bool isTooLong = IsTooLong(m_characters) || IsTooLong(body.size());
    if (isTooLong) body.clear();
    return {m_started, &title, titleArguments, std::move(subject), std::move(body), isTooLong};
  }

 private:
  XmlASoapRequest& m_builder;
  VXDateTime m_started;
  std::size_t m_characters = 0;  // total length of the names
};

}  // namespace

DiscoverRequest ProviderProperty(XmlASoapRequest& builder, const LogTitle& title, const String& url,
                                 const String& property) {
  return RequestBuilder(builder, L"DISCOVER_PROPERTIES")
      .Add(&XmlASoapRequest::PushPropertyRestriction, property)
      .Finish(title, {url});
}

DiscoverRequest DataSources(XmlASoapRequest& builder, const LogTitle& title, const String& url) {
  return RequestBuilder(builder, L"DISCOVER_DATASOURCES").Finish(title, {url});
}

DiscoverRequest Catalogs(XmlASoapRequest& builder, const String& dataSourceInfo) {
  return RequestBuilder(builder, L"DBSCHEMA_CATALOGS")
      .InDataSource(dataSourceInfo)
      .Finish(kCatalogsTitle, {dataSourceInfo});
}

DiscoverRequest Cubes(XmlASoapRequest& builder, const String& catalog,
                      const String& dataSourceInfo) {
  return RequestBuilder(builder, L"MDSCHEMA_CUBES")
      .InCatalog(catalog, dataSourceInfo)
      .Finish(kCubesTitle, {catalog, dataSourceInfo});
}

DiscoverRequest Dimensions(XmlASoapRequest& builder, const LogTitle& title,
                           const CubePlace& place) {
  return RequestBuilder(builder, L"MDSCHEMA_DIMENSIONS")
      .InCube(place)
      .Finish(title, {place.cube, place.catalog, place.dataSourceInfo});
}

DiscoverRequest Hierarchies(XmlASoapRequest& builder, const CubePlace& place) {
  return RequestBuilder(builder, L"MDSCHEMA_HIERARCHIES")
      .InCube(place)
      .Finish(kHierarchiesTitle, {place.cube, place.catalog, place.dataSourceInfo});
}

DiscoverRequest Levels(XmlASoapRequest& builder, const CubePlace& place, const String& hierarchy) {
  return RequestBuilder(builder, L"MDSCHEMA_LEVELS")
      .InCube(place)
      .Add(&XmlASoapRequest::PushHierarchyRestriction, hierarchy)
      .Finish(kLevelsTitle, {hierarchy, place.cube, place.catalog, place.dataSourceInfo});
}

DiscoverRequest Properties(XmlASoapRequest& builder, const CubePlace& place,
                           const String& hierarchy, const String& dimension, const String& level) {
  return RequestBuilder(builder, L"MDSCHEMA_PROPERTIES")
      .InCube(place)
      .Add(&XmlASoapRequest::PushHierarchyRestriction, hierarchy)
      .Add(&XmlASoapRequest::PushDimensionRestriction, dimension)
      .Add(&XmlASoapRequest::PushLevelRestriction, level)
      .Finish(kPropertiesTitle,
              {level, hierarchy, place.cube, place.catalog, place.dataSourceInfo});
}

DiscoverRequest Members(XmlASoapRequest& builder, const CubePlace& place, const String& hierarchy,
                        const String& member) {
  return RequestBuilder(builder, L"MDSCHEMA_MEMBERS")
      .InCube(place)
      .Add(&XmlASoapRequest::PushHierarchyRestriction, hierarchy)
      .Add(&XmlASoapRequest::PushMemberRestriction, member)
      .Finish(kMembersTitle, {hierarchy, place.cube, place.catalog, place.dataSourceInfo});
}

DiscoverRequest Measures(XmlASoapRequest& builder, const CubePlace& place) {
  return RequestBuilder(builder, L"MDSCHEMA_MEASURES")
      .InCatalog(place.catalog, place.dataSourceInfo)
      .Add(&XmlASoapRequest::PushCubeRestriction,
           place.cube)  // unlike other requests, also if empty
      .Finish(kMeasuresTitle, {place.cube, place.catalog, place.dataSourceInfo});
}

DiscoverRequest Variables(XmlASoapRequest& builder, const CubePlace& place) {
  return RequestBuilder(builder, L"SAP_VARIABLES")
      .InCube(place)
      .Finish(kVariablesTitle, {place.cube, place.catalog, place.dataSourceInfo});
}

}  // namespace Requests
