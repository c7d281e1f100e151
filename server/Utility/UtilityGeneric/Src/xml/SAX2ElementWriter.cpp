#include "xml/SAX2ElementWriter.h"

#include <utility>

namespace {

// A block is queued when it has this many elements or this much text. The index of a name and the
// depth of an element have 16 bits.
constexpr std::size_t kMaxElements = 2048;
constexpr std::size_t kTypicalTextBytes = std::size_t{32} << 10;  // bytes
constexpr std::size_t kMaxTextBytes = std::size_t{64} << 10;      // bytes

}  // namespace

void SAX2ElementWriter::StartBlock() {
  m_block = std::make_unique<SAX2ElementBlock>();
  if (++m_number == 1) return;  // small replies have only one block
  m_block->records.reserve(kMaxElements);
  m_block->text.reserve(kTypicalTextBytes);
}

bool SAX2ElementWriter::Add(Name& name, std::size_t depth, std::string_view value) {
  if (!m_block) StartBlock();
  if (name.block != m_number) {
    m_block->names.push_back(name.text);
    m_block->nameBytes += name.text.size() * sizeof(wchar_t);
    name.index = static_cast<std::uint16_t>(m_block->names.size() - 1);
    name.block = m_number;
  }
  m_block->text.append(value);
  m_block->records.push_back(
      {name.index, static_cast<std::uint16_t>(depth), static_cast<std::uint32_t>(value.size())});
  if (m_block->records.size() < kMaxElements &&
      m_block->text.size() + m_block->nameBytes < kMaxTextBytes)
    return !IsStopped();
  return m_queue.Push(m_parse, std::move(m_block));
}

void SAX2ElementWriter::Finish() {
  if (m_block) m_queue.PushLast(m_parse, std::move(m_block));
}
