#pragma once

#include "Utility/Generic/SAX2XmlReadDriver.h"
#include "xml/SAX2ElementQueue.h"

/// The reading thread's end of the queue. Reuses one element object while no one else keeps it, so
/// that the only allocations are those for requested values.
class SAX2ElementReader {
 public:
  explicit SAX2ElementReader(SAX2ElementQueue& queue);
  ~SAX2ElementReader();
  SAX2ElementReader(const SAX2ElementReader&) = delete;
  SAX2ElementReader& operator=(const SAX2ElementReader&) = delete;

  /// See SAX2XmlReadDriver::Read. Throws std::bad_alloc.
  RefCnt<SAX2XmlElement> Read();

 private:
  void ReleaseBlock();
  RefCnt<SAX2XmlElement> Next();

  SAX2ElementQueue& m_queue;
  SAX2ElementQueue::Block m_block;
  SAX2ElementQueue::Generation m_parse = SAX2ElementQueue::kNone;  // the parse of m_block
  std::vector<SAX2XmlElement::LastDecoded> m_lastDecoded;          // index: name in the block
  std::size_t m_next = 0;                                          // index of the next record
  std::size_t m_textAt = 0;
  RefCnt<SAX2XmlElement> m_element;  // the element returned last
  // Created in advance, so that the end of a parse needs no memory.
  const RefCnt<SAX2XmlElement> m_failed;
  const RefCnt<SAX2XmlElement> m_cancelled;
};
