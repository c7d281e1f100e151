#include "SUXMLASAXColumnMap.h"
#include "Utility/XMLASAX/XmlAMember.h"

struct XmlAMemberColumns {
  using Row = XmlAMember;

  static void TakeType(Row& row, const String& value) {
    row.m_MemberType = BaseStringUtil::Int16From(value);
  }

  static constexpr Column<Row> kMap[] = {{L"MEMBER_TYPE", &TakeType}};
};

XmlAMember::Take XmlAMember::FindColumn(const String& column) const {
  return FindTake(XmlAMemberColumns::kMap, column);
}

void XmlAMember::AppendValueName(const String& column, const String& value) {
  TakeColumn(*this, column, value);
}
