#pragma once

#include <cstddef>
#include <memory>
#include <span>

#include "SAX2ElementBlock.h"
#include "Utility/Generic/SAX2XmlReadDriver.h"

/// The reading thread's place in a block. Hands out one element object again and again as long as
/// nobody keeps it, so that an element costs no allocation but that of the value that is asked for.
class SAX2ElementCursor {
 public:
  SAX2ElementCursor() = default;
  ~SAX2ElementCursor();
  SAX2ElementCursor(const SAX2ElementCursor&) = delete;
  SAX2ElementCursor& operator=(const SAX2ElementCursor&) = delete;

  /// REQUIRES: no block is held.
  void Enter(std::unique_ptr<SAX2ElementBlock> block) noexcept;
  /// Gives the block back, null when none is held; an element that somebody keeps gets texts of its
  /// own.
  std::unique_ptr<SAX2ElementBlock> Leave();
  bool HasNext() const noexcept { return m_block && m_next < m_block->records.size(); }
  /// When no element of the block has one of the names, ignoring case, it has no next one any more.
  void PassOverUnless(std::span<const String::View> names) noexcept;
  /// REQUIRES: HasNext().
  const RefCnt<SAX2XmlElement>& Next();

 private:
  void LetGo();

  std::unique_ptr<SAX2ElementBlock> m_block;
  std::size_t m_next = 0;
  std::size_t m_textAt = 0;
  RefCnt<SAX2XmlElement> m_element;  // the one handed out last
};
