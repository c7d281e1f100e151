#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "Utility/Generic/String.h"

/// The element names of one document: a rowset repeats a few names a million times, and all
/// elements with one name share its text. One thread at a time.
class ElementNames {
 public:
  /// The wide text of a UTF-8 name.
  String Find(std::string_view name);

 private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view name) const noexcept {
      return std::hash<std::string_view>()(name);
    }
  };

  std::unordered_map<std::string, String, Hash, std::equal_to<>> m_names;
};
