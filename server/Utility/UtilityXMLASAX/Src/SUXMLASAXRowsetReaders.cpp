#include "SUXMLASAXNameCache.h"
#include "SUXMLASAXProviderRules.h"
#include "SUXMLASAXReadRows.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/HostConstants.h"
#include "Utility/XMLASAX/XmlADiscoverAgentImpl.h"
#include "Utility/XMLASAX/XmlASaxDefs.h"

// The rowset readers of the agent: from elements of a reply to values and row objects.

namespace {

using BaseStringUtil::IsCaseInsensitiveMatch;

}  // namespace

void XmlADiscoverAgentImpl::ReadValue(String& value, const String& propertyName) {
  bool wanted = false;
  while (const RefCnt<SAX2XmlElement> element = NextElement()) {
    if (IsCaseInsensitiveMatch(element->GetLocalName(), L"PropertyName")) {
      if (IsCaseInsensitiveMatch(element->GetValue(), propertyName)) wanted = true;
    } else if (IsCaseInsensitiveMatch(element->GetLocalName(), L"Value")) {
      if (wanted) value = element->GetValue();
      wanted = false;
    }
  }
}

void XmlADiscoverAgentImpl::ReadProviderName(String& name) {
  while (const RefCnt<SAX2XmlElement> element = NextElement())
    if (IsCaseInsensitiveMatch(element->GetLocalName(), L"ProviderName"))
      name = element->GetValue();
}

// Lists of names: reads every element with the column's name, at any place of the reply.

template <class Add>
void XmlADiscoverAgentImpl::ReadColumn(const wchar_t* column, Add add) {
  NameCache<bool> isColumn;
  const auto compare = [&](const String& name) { return IsCaseInsensitiveMatch(name, column); };
  RowCount rows;
  while (const RefCnt<SAX2XmlElement> element = NextElement()) {
    if (!isColumn.Find(element->GetLocalName(), compare)) continue;
    rows.Add();
    add(element->GetValue());
  }
}

void XmlADiscoverAgentImpl::ReadDataSourceInfo(VXStringVector& dataSources) {
  ReadColumn(L"DataSourceInfo", [&](const String& value) { dataSources.push_back(value); });
}

void XmlADiscoverAgentImpl::ReadDataSourceName(VXStringVector& dataSources) {
  ReadColumn(L"DataSourceName", [&](const String& value) { dataSources.push_back(value); });
}

void XmlADiscoverAgentImpl::ReadCatalogs(VXStringVector& catalogs) {
  ReadColumn(S_CATALOG_NAME, [&](const String& value) { catalogs.push_back(value); });
}

void XmlADiscoverAgentImpl::ReadCubes(std::vector<OTCube>& cubes) {
  ReadColumn(L"CUBE_NAME", [&](const String& value) {
    OTCube& cube = cubes.emplace_back();
    cube.first = value;
    cube.second = value;
    cube.m_bMemberNameUnique = true;
  });
}

template <class Row, class Make>
void XmlADiscoverAgentImpl::ReadRows(std::vector<RefCnt<Row>>& rows, Make make) {
  ::ReadRows(
      rows, [this] { return NextElement(); }, make);
}

void XmlADiscoverAgentImpl::ReadDimensions(std::vector<RefCnt<XmlADimension>>& dimensions) {
  ReadRows(dimensions, [] { return new XmlADimension; });
}

void XmlADiscoverAgentImpl::ReadHierarchies(std::vector<RefCnt<XmlAHierarchy>>& hierarchies) {
  ReadRows(hierarchies, [this] { return new XmlAHierarchy(m_TargetType, m_CLIType); });
}

void XmlADiscoverAgentImpl::ReadLevels(std::vector<RefCnt<XmlALevel>>& levels) {
  ReadRows(levels, [this] { return new XmlALevel(m_TargetType, m_CLIType); });
}

void XmlADiscoverAgentImpl::ReadLevelProperties(
    std::vector<RefCnt<XmlALevelProperty>>& properties) {
  ReadRows(properties, [] { return new XmlALevelProperty; });
}

void XmlADiscoverAgentImpl::ReadMeasures(std::vector<RefCnt<XmlAMeasure>>& measures) {
  const bool byUniqueName = Rules().measuresByUniqueName;
  ReadRows(measures, [=] { return new XmlAMeasure(byUniqueName); });
}

void XmlADiscoverAgentImpl::ReadVariables(std::vector<RefCnt<XmlACubeVariable>>& variables) {
  ReadRows(variables, [] { return new XmlACubeVariable; });
}

void XmlADiscoverAgentImpl::ReadMember(XmlAMember& member) {
  // A request without a member name returns all members of the hierarchy.
  NameCache<XmlAMember::Setter> columns;
  const auto resolve = [&](const String& name) {
    return IsSchemaElement(name) ? XmlAMember::Setter() : member.FindColumn(name);
  };
  while (const RefCnt<SAX2XmlElement> element = NextElement())
    if (const auto set = columns.Find(element->GetLocalName(), resolve))
      set(member, element->GetValue());
}
