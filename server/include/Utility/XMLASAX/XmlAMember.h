#pragma once

#include <cstdint>

#include "Utility/Generic/RefCnt.h"
#include "Utility/Generic/String.h"

/// A member that is looked up in MDSCHEMA_MEMBERS: its unique name is given by the caller, its kind
/// read from the reply.
class XmlAMember : public RefCountable {
 public:
  void SetUniqueName(const String& uniqueName) { m_UniqueName = uniqueName; }
  String GetUniqueName() const { return m_UniqueName; }
  /// The MEMBER_TYPE code; 0 when the provider did not say.
  int GetMemberType() const { return m_MemberType; }
  /// Takes MEMBER_TYPE, matched ignoring case; every other column is ignored.
  void AppendValueName(const String& column, const String& value);
  /// The operation that takes this column's values, for many rows; null for an unknown column.
  using Setter = void (*)(XmlAMember& member, const String& value);
  Setter FindColumn(const String& column) const;

 private:
  String m_UniqueName;
  std::int16_t m_MemberType = 0;

  friend struct XmlAMemberColumns;
};
