#pragma once

#include "Utility/Generic/SAX2XmlReadDriver.h"
#include "xml/SAX2ElementQueue.h"

/// The reading thread's end of the queue. Hands out one element object again and again as long as
/// nobody else keeps it, so that an element costs no allocation but that of a value that is asked
/// for.
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
  SAX2ElementQueue::Generation m_parse = SAX2ElementQueue::kNone;  // that the block belongs to
  std::vector<SAX2XmlElement::LastDecoded> m_lastDecoded;          // by name
  std::size_t m_next = 0;                                          // record
  std::size_t m_textAt = 0;
  RefCnt<SAX2XmlElement> m_element;  // the one handed out last
  // Made beforehand: the end of a parse needs no memory.
  const RefCnt<SAX2XmlElement> m_failed;
  const RefCnt<SAX2XmlElement> m_cancelled;
};
