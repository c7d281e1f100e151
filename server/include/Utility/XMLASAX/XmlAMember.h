#pragma once

#include <cstdint>

#include "Utility/Generic/RefCnt.h"
#include "Utility/Generic/String.h"

/// A row of MDSCHEMA_MEMBERS. The caller sets the unique name, and the reply the type.
class XmlAMember : public RefCountable {
 public:
  void SetUniqueName(const String& uniqueName) { m_UniqueName = uniqueName; }
  String GetUniqueName() const { return m_UniqueName; }
  /// The MEMBER_TYPE code; 0 without that column.
  int GetMemberType() const { return m_MemberType; }
  /// Sets MEMBER_TYPE. Compares names ignoring case, and ignores other columns.
  void AppendValueName(const String& column, const String& value);
  /// The setter of a column, for use with many rows; null for an unknown column.
  using Setter = void (*)(XmlAMember& member, const String& value);
  Setter FindColumn(const String& column) const;

 private:
  String m_UniqueName;
  std::int16_t m_MemberType = 0;

  friend struct XmlAMemberColumns;
};
