#include "SUXMLASAXNameCache.h"
#include "SUXMLASAXProviderRules.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/HostConstants.h"
#include "Utility/Generic/ImportOperation.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/XMLASAX/XmlACubeVariableUtility.h"
#include "Utility/XMLASAX/XmlADiscoverAgentImpl.h"
#include "Utility/XMLASAX/XmlASaxDefs.h"

// The rowset readers of the agent: from elements of a reply to values and row objects.

namespace {

using BaseStringUtil::IsCaseInsensitiveMatch;

/// Counts the rows of one reply.
class RowCount {
 public:
  /// Throws ErrorMessage if the reply or the operation has too many rows.
  void Add() {
    if (m_operation) m_operation->CountRow();
    if (m_max == 0 || m_rows++ < m_max) return;
    SUGThrow(ErrorMessage(L"The reply has more than " + BaseStringUtil::StringFrom(m_max) +
                          L" rows (limit maxRowsPerReply); choose a smaller part of the server's "
                          L"metadata, or raise the limit"),
             L"SUXMLASAXRowsetReaders.cpp", __LINE__);
  }

 private:
  ImportOperation* const m_operation = ImportOperation::Current();
  const std::uint64_t m_max = ImportSettings::Current().limits.maxRowsPerReply;
  std::uint64_t m_rows = 0;
};

template <class Row>
auto FindColumn(const Row& row, const String& name) {
  return row.FindColumn(name);
}

auto FindColumn(const XmlACubeVariable&, const String& name) {
  return XmlACubeVariableUtility::FindColumn(name);
}

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

// Rows: sets the columns of the current row object. The row element comes after its columns and
// completes the row object.

template <class Row, class Make>
void XmlADiscoverAgentImpl::ReadRows(std::vector<RefCnt<Row>>& rows, Make make) {
  RefCnt<Row> row = make();
  using Setter = decltype(FindColumn(*row, String()));
  struct Meaning {
    bool endsRow;
    Setter set;  // null: a schema element or an unknown column
  };
  NameCache<Meaning> meanings;
  const auto resolve = [&](const String& name) {
    if (IsCaseInsensitiveMatch(name, L"Row")) return Meaning{true, nullptr};
    return Meaning{false, IsSchemaElement(name) ? Setter() : FindColumn(*row, name)};
  };
  RowCount count;
  while (const RefCnt<SAX2XmlElement> element = NextElement()) {
    const Meaning& meaning = meanings.Find(element->GetLocalName(), resolve);
    if (meaning.endsRow) {
      count.Add();
      rows.push_back(std::move(row));
      row = make();
    } else if (meaning.set) {
      meaning.set(*row, element->GetValue());
    }
  }
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
