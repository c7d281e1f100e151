#include "http/HTTPOwnSecrets.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string_view>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/Secret.h"
#include "http/HTTPProxy.h"

namespace {

std::size_t HashOf(std::wstring_view part) { return std::hash<std::wstring_view>()(part); }

void AppendPercentEncoded(const NarrowString& bytes, String& text) {
  constexpr wchar_t kDigits[] = L"0123456789ABCDEF";
  constexpr std::string_view kPlain = "-._~";
  for (const char byte : bytes) {
    const auto code = static_cast<unsigned char>(byte);
    const bool isAlphanumeric = (code >= '0' && code <= '9') || (code >= 'A' && code <= 'Z') ||
                                (code >= 'a' && code <= 'z');
    if (isAlphanumeric || kPlain.find(byte) != std::string_view::npos) {
      text += static_cast<wchar_t>(code);
    } else {
      text += L'%';
      text += kDigits[code >> 4];
      text += kDigits[code & 0xF];
    }
  }
}

void AppendBase64(const NarrowString& bytes, String& text) {
  constexpr wchar_t kDigits[] = L"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::uint32_t bits = 0;
  unsigned int count = 0;
  for (const char byte : bytes) {
    bits = bits << 8 | static_cast<unsigned char>(byte);
    for (count += 8; count >= 6; count -= 6) text += kDigits[bits >> (count - 6) & 0x3F];
  }
  if (count > 0) text += kDigits[bits << (6 - count) & 0x3F];
}

}  // namespace

HTTPOwnSecrets::HTTPOwnSecrets(const String& user, const String& password,
                               const HTTPClientOptions& options) {
  Add(options.bearerToken);
  AddLogIn(user, password);
  Secret<String> proxyUser;
  Secret<String> proxyPassword;
  HTTPProxy::GetCredentials(*options.proxy, proxyUser, proxyPassword);
  AddLogIn(proxyUser, proxyPassword);
}

void HTTPOwnSecrets::AddLogIn(const String& user, const String& password) {
  if (password.size() < kMinLength) return;
  Add(password);
  const Secret<NarrowString> narrowUser(BaseStringUtil::ToUTF8(user));
  Secret<NarrowString> bytes;
  bytes.reserve(narrowUser.size() + 1 + password.size() * 4);  // one buffer
  bytes.append(narrowUser.view());
  bytes += ':';
  const Secret<NarrowString> narrowPassword(BaseStringUtil::ToUTF8(password));
  bytes.append(narrowPassword.view());
  Secret<String> basic;
  basic.reserve(bytes.size() * 2);
  AppendBase64(bytes, basic);
  Add(basic);
}

void HTTPOwnSecrets::Add(const String& secret) {
  if (secret.size() < kMinLength) return;
  const Secret<NarrowString> bytes(BaseStringUtil::ToUTF8(secret));
  Secret<String> encoded;
  encoded.reserve(bytes.size() * 3);
  AppendPercentEncoded(bytes, encoded);
  for (const String& form : {std::cref(secret), std::cref<String>(encoded)}) {
    const std::wstring_view text = form.view();
    Hashes hashes{std::min(text.size(), kPartLength), {}};
    for (std::size_t i = 0; i + hashes.length <= text.size(); ++i)
      hashes.parts.push_back(HashOf(text.substr(i, hashes.length)));
    std::sort(hashes.parts.begin(), hashes.parts.end());
    m_secrets.push_back(std::move(hashes));
    if (encoded == secret) break;
  }
}

void HTTPOwnSecrets::RemoveFrom(String& text) const {
  const std::wstring_view whole = text.view();
  std::vector<bool> isSecret(whole.size());
  for (const Hashes& secret : m_secrets)
    for (std::size_t i = 0; i + secret.length <= whole.size(); ++i)
      if (std::binary_search(secret.parts.begin(), secret.parts.end(),
                             HashOf(whole.substr(i, secret.length))))
        std::fill_n(isSecret.begin() + static_cast<std::ptrdiff_t>(i), secret.length, true);
  String kept;
  for (std::size_t i = 0; i < whole.size(); ++i) {
    if (!isSecret[i])
      kept += whole[i];
    else if (i == 0 || !isSecret[i - 1])
      kept += L"...";
  }
  text = kept;
}

void HTTPOwnSecrets::RemoveFrom(HTTPConnectionDetails& details) const {
  for (String* const text :
       {&details.address, &details.proxy, &details.tlsProtocol, &details.certificateSubject,
        &details.certificateIssuer, &details.offeredSchemes, &details.usedScheme, &details.server,
        &details.contentType, &details.contentEncoding})
    RemoveFrom(*text);
}
