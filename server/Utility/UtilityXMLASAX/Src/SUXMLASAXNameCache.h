#pragma once

#include <cstddef>
#include <vector>

#include "Utility/Generic/String.h"

/// Maps element names to their meaning for a reader. Each name is resolved once. A rowset repeats a
/// few names in the same order, and elements with the same name share its text. So the address of
/// the text identifies the name, and the search begins after the entry found last.
template <class Meaning>
class NameCache {
 public:
  /// The meaning of the name. Calls `resolve(name)` for a new name. The result is valid until the
  /// next call.
  template <class Resolve>
  const Meaning& Find(const String& name, Resolve&& resolve) {
    for (std::size_t i = 0; i < m_entries.size(); ++i) {
      m_last = m_last + 1 < m_entries.size() ? m_last + 1 : 0;
      if (m_entries[m_last].name.data() == name.data()) return m_entries[m_last].meaning;
    }
    // With very many names, equal names may not share their text. They must not make the list long.
    if (m_entries.size() >= kMaxEntries) m_entries.clear();
    m_last = m_entries.size();
    m_entries.push_back({name, resolve(name)});
    return m_entries.back().meaning;
  }

 private:
  static constexpr std::size_t kMaxEntries = 128;
  struct Entry {
    String name;  // keeps the address in use
    Meaning meaning;
  };

  std::vector<Entry> m_entries;
  std::size_t m_last = 0;
};
