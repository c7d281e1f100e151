#include "SUXMLASAXWarnings.h"

#include "Utility/Generic/BaseStringUtil.h"

void Warnings::AddText(const String& text) {
  const bool isTooLong = m_limits.maxWarningCharacters > 0 &&
                         m_characters + text.size() > m_limits.maxWarningCharacters;
  if (IsFull() || isTooLong) {
    ++m_omitted;
    return;
  }
  ++m_count;
  m_characters += text.size();
  m_warnings += text;
  m_warnings += L"\n";
}

void Warnings::Finish() {
  if (m_omitted == 0) return;
  m_warnings += L"and " + BaseStringUtil::StringFrom(std::uint64_t{m_omitted}) +
                L" more warnings (limits maxWarnings and maxWarningCharacters)\n";
}
