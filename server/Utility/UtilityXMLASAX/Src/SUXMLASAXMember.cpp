#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/XMLASAX/XmlAMember.h"

void XmlAMember::AppendValueName(const String& column, const String& value) {
  if (BaseStringUtil::IsCaseInsensitiveMatch(column, L"MEMBER_TYPE"))
    m_MemberType = BaseStringUtil::Int16From(value);
}
