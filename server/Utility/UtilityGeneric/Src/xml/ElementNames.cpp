#include "xml/ElementNames.h"

#include "text/UnicodeConversion.h"

namespace {

// A server that makes up names without end gets no more memory than this for them.
constexpr std::size_t kMaxNames = 1024;
constexpr std::size_t kMaxNameBytes = 256;

String Wide(std::string_view name) {
  String text;
  const std::size_t length = UnicodeConversion::WideLength(name);
  text.AppendFilled(length, [&](wchar_t* place) noexcept {
    UnicodeConversion::Decode(name, place);
    return length;
  });
  return text;
}

}  // namespace

String ElementNames::Find(std::string_view name) {
  if (const auto found = m_names.find(name); found != m_names.end()) return found->second;
  String text = Wide(name);
  if (name.size() > kMaxNameBytes) return text;
  if (m_names.size() >= kMaxNames) m_names.clear();
  m_names.emplace(name, text);
  return text;
}
