#include "SUXMLASAXNames.h"

#include <algorithm>

namespace {

constexpr std::size_t kMaxGeneratedName = 128;  // characters

/// Removes the unwanted characters, and truncates the result to `most` characters. One pass,
/// because names may be very long.
String RemoveCharacters(const String& name, String::View unwanted, std::size_t most) {
  String kept;
  if (name.view().find_first_of(unwanted) == String::npos) return name.substr(0, most);
  kept.AppendFilled(std::min(most, name.size()), [&](wchar_t* place) noexcept {
    std::size_t count = 0;
    for (const wchar_t* c = name.begin(); c != name.end() && count < most; ++c)
      if (unwanted.find(*c) == String::npos) place[count++] = *c;
    return count;
  });
  return kept;
}

}  // namespace

String WithoutBrackets(const String& name) { return RemoveCharacters(name, L"[]", String::npos); }

String GeneratedName(const String& name) {
  return RemoveCharacters(name, L" \t\r.*?'", kMaxGeneratedName);
}
