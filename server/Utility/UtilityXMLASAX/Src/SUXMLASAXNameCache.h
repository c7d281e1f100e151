#pragma once

#include <cstddef>
#include <vector>

#include "Utility/Generic/String.h"

/// What each element name means to a reader, looked up once a name. A rowset repeats a few names in
/// one order many times, and the elements of one name share its text: so the text's address tells
/// the name, and the entry behind the one found last is most often the right one.
template <class Meaning>
class NameCache {
 public:
  /// The name's meaning: `resolve(name)` when the name is new. Valid until the next call.
  template <class Resolve>
  const Meaning& Find(const String& name, Resolve&& resolve) {
    for (std::size_t i = 0; i < m_entries.size(); ++i) {
      m_last = m_last + 1 < m_entries.size() ? m_last + 1 : 0;
      if (m_entries[m_last].name.data() == name.data()) return m_entries[m_last].meaning;
    }
    // Names that share no text, from a reader that does not do so or has met too many, must not
    // make the list long.
    if (m_entries.size() >= kMaxEntries) m_entries.clear();
    m_last = m_entries.size();
    m_entries.push_back({name, resolve(name)});
    return m_entries.back().meaning;
  }

 private:
  static constexpr std::size_t kMaxEntries = 128;
  struct Entry {
    String name;  // keeps the address taken
    Meaning meaning;
  };

  std::vector<Entry> m_entries;
  std::size_t m_last = 0;
};
