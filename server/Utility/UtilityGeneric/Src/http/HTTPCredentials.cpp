#include "http/HTTPCredentials.h"

#include <algorithm>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/HTTPClientWrapper.h"

namespace {

constexpr wchar_t kLastOfLatin1 = 0xFF;

bool IsASCII(const NarrowString& text) {
  const std::string_view bytes = text.view();
  return std::all_of(bytes.begin(), bytes.end(),
                     [](char byte) { return static_cast<unsigned char>(byte) < 0x80; });
}

/// The capital of a letter of ISO 8859-1 that is not ASCII, if it is in ISO 8859-1, too.
wchar_t Capital(wchar_t letter) {
  const bool hasCapital = letter >= 0xE0 && letter <= 0xFE && letter != 0xF7;  // division sign
  return hasCapital ? static_cast<wchar_t>(letter - 0x20) : letter;
}

/// Converts UTF-8 to ISO 8859-1. False if a character is not in it.
bool ToLatin1(const NarrowString& text, bool isCapital, NarrowString& bytes) {
  const Secret<String> wide(BaseStringUtil::FromUTF8(text));
  bytes.reserve(wide.size());
  for (const wchar_t character : wide) {
    if (character > kLastOfLatin1) return false;
    bytes += static_cast<char>(isCapital ? Capital(character) : character);
  }
  return true;
}

}  // namespace

HTTPCredentials::HTTPCredentials(const NarrowString& user, const NarrowString& password)
    : m_hasUser(!user.empty()) {
  // A colon ends the user name of Basic, and its rest would become part of the password.
  if (user.view().find(':') != std::string_view::npos) m_unusable |= kAuthBasic;
  if (!m_hasUser || (::IsASCII(user) && ::IsASCII(password))) return;
  m_user.append(user.view());
  m_password.append(password.view());
  if (!ToLatin1(user, true, m_ntlmUser) || !ToLatin1(password, false, m_ntlmPassword))
    m_unusable |= kAuthNTLM;
}

const NarrowString& HTTPCredentials::User(unsigned int scheme) const noexcept {
  return scheme == kAuthNTLM ? m_ntlmUser : m_user;
}

const NarrowString& HTTPCredentials::Password(unsigned int scheme) const noexcept {
  return scheme == kAuthNTLM ? m_ntlmPassword : m_password;
}
