#include "xml/SAX2ElementReader.h"

#include "Utility/Generic/Cancellation.h"

SAX2ElementReader::SAX2ElementReader(SAX2ElementQueue& queue)
    : m_queue(queue),
      m_failed(new SAX2XmlElement(SAX2XmlElement::Kind::kError)),
      m_cancelled(new SAX2XmlElement(SAX2XmlElement::Kind::kCancelled)) {}

SAX2ElementReader::~SAX2ElementReader() {
  try {
    ReleaseBlock();
  } catch (...) {
    m_element->Clear();  // out of memory: an element that is still in use becomes empty
  }
}

/// Frees the block. An element that is still in use gets copies of its texts.
void SAX2ElementReader::ReleaseBlock() {
  if (m_element) {
    if (m_element->GetRefCount() > 1) {
      m_element->Detach();
      m_element = nullptr;
    } else {
      m_element->Clear();
    }
  }
  m_lastDecoded.clear();
  m_block.reset();
}

RefCnt<SAX2XmlElement> SAX2ElementReader::Next() {
  if (m_element && m_element->GetRefCount() > 1) {
    m_element->Detach();
    m_element = nullptr;
  }
  if (!m_element) m_element = new SAX2XmlElement(SAX2XmlElement::Kind::kElement);
  const SAX2ElementBlock::Record& record = m_block->records[m_next++];
  m_element->Refer(m_block->names[record.name], record.depth, m_block->text.data() + m_textAt,
                   record.length, m_lastDecoded[record.name]);
  m_textAt += record.length;
  return m_element;
}

RefCnt<SAX2XmlElement> SAX2ElementReader::Read() {
  for (;;) {
    if (m_block) {
      const bool isCurrent = m_queue.IsCurrent(m_parse) && !IsThreadToStop();
      if (isCurrent && m_next < m_block->records.size()) return Next();
      ReleaseBlock();
    }
    switch (m_queue.Take(m_block, m_parse)) {
      case SAX2ElementQueue::TakeResult::kBlock:
        m_lastDecoded.clear();
        m_lastDecoded.resize(m_block->names.size());
        m_next = 0;
        m_textAt = 0;
        break;
      case SAX2ElementQueue::TakeResult::kEnd:
        return {};
      case SAX2ElementQueue::TakeResult::kFailure:
        return m_failed;
      case SAX2ElementQueue::TakeResult::kCancellation:
        return m_cancelled;
    }
  }
}
