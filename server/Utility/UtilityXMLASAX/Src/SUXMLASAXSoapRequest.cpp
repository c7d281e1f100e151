#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/XMLASAX/XmlASaxDefs.h"
#include "Utility/XMLASAX/XmlASoapRequest.h"

namespace {

// Some servers depend on the exact text of the envelope, so its line ends and indentation must not
// change.
constexpr String::View kPrologue =
    L"<?xml version=\"1.0\"?>\r\n"
    L"                <SOAP-ENV:Envelope\r\n"
    L"                xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\"\r\n"
    L"                SOAP-ENV:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\">\r\n"
    L"                <SOAP-ENV:Body>\r\n"
    L"                <Discover xmlns=\"urn:schemas-microsoft-com:xml-analysis\"\r\n"
    L"                SOAP-ENV:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\">\r\n";
constexpr String::View kEpilogue = L"</Discover>\r\n </SOAP-ENV:Body>\r\n </SOAP-ENV:Envelope>\r\n";

constexpr std::size_t kTypicalLength = 2048;  // characters

void AppendElement(String& text, String::View name, const String& value) {
  for (const String::View part : {String::View(L"<"), name, String::View(L">"), value.view(),
                                  String::View(L"</"), name, String::View(L">")})
    text.append(part);
}

void AppendElements(String& text, String::View name, const VXStringVector& values) {
  for (const String& value : values) AppendElement(text, name, value);
}

void AppendSingle(String& text, String::View name, const String& value) {
  if (!value.empty()) AppendElement(text, name, value);
}

void AppendSubject(String& subject, const wchar_t* words, const String& name) {
  if (name.empty()) return;
  subject += words;
  subject += L" \"";
  subject += name;
  subject += L"\"";
}

}  // namespace

XmlASoapRequest::XmlASoapRequest() { ClearRestrictions(); }

void XmlASoapRequest::SetRequestType(const String& type) {
  m_RequestType = type;
  m_Subject = type;
}

void XmlASoapRequest::SetDataSourceInfo(const String& info) {
  m_DataSourceInfo = BaseStringUtil::EscapeXMLChars(info);
}

void XmlASoapRequest::PushCatalogRestriction(const String& name) {
  AppendSubject(m_Subject, L" of catalog", name);
  m_CatalogRestriction.push_back(BaseStringUtil::EscapeXMLChars(name));
}

void XmlASoapRequest::PushCubeRestriction(const String& name) {
  AppendSubject(m_Subject, L", cube", name);
  m_CubeRestriction.push_back(BaseStringUtil::EscapeXMLChars(name));
}

void XmlASoapRequest::PushDimensionRestriction(const String& name) {
  m_DimensionRestriction.push_back(BaseStringUtil::EscapeXMLChars(name));
}

void XmlASoapRequest::PushHierarchyRestriction(const String& name) {
  AppendSubject(m_Subject, L", hierarchy", name);
  m_HierarchyRestriction.push_back(BaseStringUtil::EscapeXMLChars(name));
}

void XmlASoapRequest::PushPropertyRestriction(const String& name) {
  AppendSubject(m_Subject, L" of property", name);
  m_PropertiesRestriction.push_back(BaseStringUtil::EscapeXMLChars(name));
}

void XmlASoapRequest::PushLevelRestriction(const String& name) {
  AppendSubject(m_Subject, L", level", name);
  m_LevelUniqueName = BaseStringUtil::EscapeXMLChars(name);
}

void XmlASoapRequest::PushMemberRestriction(const String& name) {
  AppendSubject(m_Subject, L", member", name);
  m_MemberUniqueName = BaseStringUtil::EscapeXMLChars(name);
}

void XmlASoapRequest::ClearRestrictions() {
  for (String* text :
       {&m_Subject, &m_RequestType, &m_DataSourceInfo, &m_LevelUniqueName, &m_MemberUniqueName})
    text->clear();
  for (VXStringVector* list : {&m_CatalogRestriction, &m_CubeRestriction, &m_DimensionRestriction,
                               &m_HierarchyRestriction, &m_PropertiesRestriction})
    list->clear();
}

String XmlASoapRequest::Subject() const { return m_Subject; }

bool XmlASoapRequest::HasRestriction() const {
  return !(m_CatalogRestriction.empty() && m_CubeRestriction.empty() &&
           m_DimensionRestriction.empty() && m_HierarchyRestriction.empty() &&
           m_PropertiesRestriction.empty() && m_LevelUniqueName.empty() &&
           m_MemberUniqueName.empty());
}

String XmlASoapRequest::GetContent() {
  String text;
  text.reserve(kTypicalLength);
  text.append(kPrologue);
  AppendElement(text, L"RequestType", m_RequestType);
  text += L"\n";
  text += L"<Restrictions>";
  if (HasRestriction()) {
    text += L"<RestrictionList>";
    AppendElements(text, XmlASaxDefsNameSpace::CatalogName, m_CatalogRestriction);
    AppendElements(text, L"CUBE_NAME", m_CubeRestriction);
    AppendElements(text, L"DIMENSION_UNIQUE_NAME", m_DimensionRestriction);
    AppendElements(text, L"HIERARCHY_UNIQUE_NAME", m_HierarchyRestriction);
    AppendSingle(text, L"LEVEL_UNIQUE_NAME", m_LevelUniqueName);
    AppendSingle(text, L"MEMBER_UNIQUE_NAME", m_MemberUniqueName);
    AppendElements(text, L"PropertyName", m_PropertiesRestriction);
    text += L"</RestrictionList>";
  }
  text += L"</Restrictions>";
  text += L"<Properties>";
  if (!m_DataSourceInfo.empty()) {
    text += L"<PropertyList>";
    AppendElement(text, L"DataSourceInfo", m_DataSourceInfo);
    if (!m_CatalogRestriction.empty())
      AppendElement(text, L"Catalog", m_CatalogRestriction.front());
    text += L"</PropertyList>";
  }
  text += L"</Properties>";
  text.append(kEpilogue);
  ClearRestrictions();
  return text;
}
