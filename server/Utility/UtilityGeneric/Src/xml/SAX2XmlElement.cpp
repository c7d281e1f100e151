#include <utility>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/SAX2XmlReadDriver.h"

void SAX2XmlElement::Refer(const String& name, std::uint16_t depth, const char* bytes,
                           std::size_t byteCount, LastDecoded& last) noexcept {
  m_name = &name;
  m_depth = depth;
  m_value.clear();
  m_bytes = bytes;
  m_byteCount = byteCount;
  m_last = &last;
}

void SAX2XmlElement::Decode() const {
  const std::string_view bytes(m_bytes, m_byteCount);
  // Many columns have the same value in consecutive rows. Their elements share the text.
  if (bytes == std::string_view(m_last->bytes, m_last->byteCount)) {
    m_value = m_last->text;
    m_byteCount = 0;
    return;
  }
  String value = BaseStringUtil::FromUTF8(bytes);
  *m_last = {m_bytes, m_byteCount, value};
  m_value = std::move(value);
  m_byteCount = 0;
}

void SAX2XmlElement::Detach() {
  if (m_byteCount != 0) Decode();
  m_localName = *m_name;
  m_name = &m_localName;
}

void SAX2XmlElement::Clear() noexcept {
  m_name = &m_localName;
  m_value.clear();
  m_byteCount = 0;
}
