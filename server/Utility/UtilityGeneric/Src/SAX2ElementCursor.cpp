#include "SAX2ElementCursor.h"

#include <algorithm>
#include <utility>

#include "UnicodeConversion.h"
#include "Utility/Generic/BaseStringUtil.h"

void SAX2XmlElement::Decode() const {
  const std::string_view bytes(m_bytes, m_byteCount);
  String value;
  const std::size_t length = UnicodeConversion::WideLength(bytes);
  value.AppendFilled(length, [bytes, length](wchar_t* place) noexcept {
    UnicodeConversion::Decode(bytes, place);
    return length;
  });
  m_value = std::move(value);
  m_byteCount = 0;
}

void SAX2XmlElement::Detach() {
  if (m_byteCount != 0) Decode();
  m_localName = *m_name;
  m_name = &m_localName;
}

SAX2ElementCursor::~SAX2ElementCursor() {
  try {
    LetGo();
  } catch (...) {
    // Out of memory, and somebody still holds the element: it must not look into the block.
    m_element->m_name = &m_element->m_localName;
    m_element->m_byteCount = 0;
  }
}

void SAX2ElementCursor::LetGo() {
  if (m_element && m_element->GetRefCount() > 1) {
    m_element->Detach();
    m_element = nullptr;
  }
}

void SAX2ElementCursor::Enter(std::unique_ptr<SAX2ElementBlock> block) noexcept {
  m_block = std::move(block);
  m_next = 0;
  m_textAt = 0;
}

void SAX2ElementCursor::PassOverUnless(std::span<const String::View> names) noexcept {
  const auto isAmong = [names](const String& name) {
    return std::any_of(names.begin(), names.end(), [&](String::View wanted) {
      return BaseStringUtil::IsCaseInsensitiveMatch(name, wanted);
    });
  };
  if (std::none_of(m_block->names.begin(), m_block->names.end(), isAmong))
    m_next = m_block->records.size();
}

std::unique_ptr<SAX2ElementBlock> SAX2ElementCursor::Leave() {
  LetGo();
  if (m_element) m_element->m_value.clear();  // it may be long
  return std::move(m_block);
}

const RefCnt<SAX2XmlElement>& SAX2ElementCursor::Next() {
  LetGo();
  if (!m_element) m_element = new SAX2XmlElement(SAX2XmlElement::Kind::kElement);
  const SAX2ElementBlock::Record& record = m_block->records[m_next++];
  SAX2XmlElement& element = *m_element;
  element.m_name = &m_block->names[record.name];
  element.m_value.clear();
  element.m_bytes = m_block->text.data() + m_textAt;
  element.m_byteCount = record.length;
  m_textAt += record.length;
  return m_element;
}
