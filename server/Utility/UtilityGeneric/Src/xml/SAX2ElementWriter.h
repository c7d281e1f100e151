#pragma once

#include <string_view>

#include "xml/SAX2ElementQueue.h"

/// The parser thread's end of the queue. Collects the elements of one parse into blocks, because
/// queueing costs as much as parsing many elements.
class SAX2ElementWriter {
 public:
  /// An element name and its index in the current block.
  struct Name {
    String text;
    std::uint64_t block = 0;
    std::uint16_t index = 0;
  };

  SAX2ElementWriter(SAX2ElementQueue& queue, SAX2ElementQueue::Generation parse) noexcept
      : m_queue(queue), m_parse(parse) {}

  /// Adds an element with a well-formed UTF-8 value and the number of its enclosing elements, at
  /// most 65,535. Returns false if the parse must end. Throws std::bad_alloc.
  bool Add(Name& name, std::size_t depth, std::string_view value);
  /// Queues the last block. Throws std::bad_alloc.
  void Finish();
  /// True if the parse must end. Cheap.
  bool IsStopped() const noexcept { return !m_queue.IsCurrent(m_parse); }

 private:
  void StartBlock();

  SAX2ElementQueue& m_queue;
  const SAX2ElementQueue::Generation m_parse;
  SAX2ElementQueue::Block m_block;
  std::uint64_t m_number = 0;  // number of the current block
};
