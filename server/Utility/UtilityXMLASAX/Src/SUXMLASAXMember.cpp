#include "SUXMLASAXColumnMap.h"
#include "Utility/XMLASAX/XmlAMember.h"

struct XmlAMemberColumns {
  using Row = XmlAMember;

  static void SetType(Row& row, const String& value) {
    row.m_MemberType = BaseStringUtil::Int16From(value);
  }

  static constexpr Column<Row> kMap[] = {{L"MEMBER_TYPE", &SetType}};
};

XmlAMember::Setter XmlAMember::FindColumn(const String& column) const {
  return FindSetter(XmlAMemberColumns::kMap, column);
}

void XmlAMember::AppendValueName(const String& column, const String& value) {
  SetColumn(*this, column, value);
}
