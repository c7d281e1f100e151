#include "http/HTTPUrl.h"

#include <algorithm>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/Secret.h"
#include "text/ASCIIText.h"
#include "text/UnicodeConversion.h"

namespace HTTPUrl {
namespace {

constexpr std::wstring_view kSchemeEnd = L"://";

struct Authority {
  std::size_t begin;
  std::size_t end;
};

/// Finds credentials, host and port in a URL. Both positions are 0 if it has no scheme.
Authority FindAuthority(std::wstring_view url) {
  const std::size_t scheme = url.find(kSchemeEnd);
  if (scheme == std::wstring_view::npos) return {0, 0};
  const std::size_t begin = scheme + kSchemeEnd.size();
  const std::size_t end = url.find_first_of(L"/?#\\", begin);
  return {begin, end == std::wstring_view::npos ? url.size() : end};
}

/// Finds the first colon that may belong to a port or a password. The colons of an IPv6 address
/// precede the closing bracket.
std::size_t FindColon(std::wstring_view authority) {
  const std::size_t bracket = authority.starts_with(L'[') ? authority.find(L']') : 0;
  return authority.find(L':', bracket == std::wstring_view::npos ? 0 : bracket);
}

/// True if credentials with a colon, which begins a password, precede the host.
bool HasPassword(std::wstring_view url) {
  const Authority authority = FindAuthority(url);
  const std::wstring_view whole = url.substr(authority.begin, authority.end - authority.begin);
  const std::size_t sign = whole.rfind(L'@');
  return sign != std::wstring_view::npos && whole.find(L':') < sign;
}

int HexDigit(wchar_t character) {
  if (character >= L'0' && character <= L'9') return character - L'0';
  if (character >= L'a' && character <= L'f') return character - L'a' + 10;
  if (character >= L'A' && character <= L'F') return character - L'A' + 10;
  return -1;
}

/// Decodes percent-encoded UTF-8. A percent sign without two hexadecimal digits stays.
String Decoded(std::wstring_view text) {
  Secret<NarrowString> bytes;  // may be a password
  bytes.reserve(text.size() * UnicodeConversion::kMaxBytesPerCharacter);
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int high = text[i] == L'%' && i + 2 < text.size() ? HexDigit(text[i + 1]) : -1;
    const int low = high >= 0 ? HexDigit(text[i + 2]) : -1;
    if (low >= 0) {
      bytes += static_cast<char>(high * 16 + low);
      i += 2;
    } else {
      char encoded[UnicodeConversion::kMaxBytesPerCharacter];
      const char* const end = UnicodeConversion::Encode(text.substr(i, 1), encoded);
      bytes.append(encoded, static_cast<std::size_t>(end - encoded));
    }
  }
  return BaseStringUtil::FromUTF8(bytes);
}

}  // namespace

bool RemoveCredentials(String& url, String& user, String& password) {
  const std::wstring_view text = url.view();
  const Authority authority = FindAuthority(text);
  const std::wstring_view whole = text.substr(authority.begin, authority.end - authority.begin);
  const std::size_t sign = whole.rfind(L'@');
  if (sign == std::wstring_view::npos) return false;
  const std::wstring_view credentials = whole.substr(0, sign);
  const std::size_t colon = credentials.find(L':');
  user = Decoded(credentials.substr(0, colon));
  ReplaceSecret(password, colon == std::wstring_view::npos
                              ? String()
                              : Decoded(credentials.substr(colon + 1)));
  String rest(text.substr(0, authority.begin));
  rest.append(text.substr(authority.begin + sign + 1));
  ReplaceSecret(url, std::move(rest));
  return true;
}

namespace {

/// The last "@" up to which a usable URL without credentials may contain a part of a password that
/// is not percent-encoded; npos if there is none. `hadPassword`: one was in front of the host.
std::size_t EndOfPossiblePassword(std::wstring_view url, bool hadPassword) {
  constexpr std::size_t kNone = std::wstring_view::npos;
  const Authority authority = FindAuthority(url);
  const bool hasPath =
      authority.end < url.size() && url[authority.end] != L'?' && url[authority.end] != L'#';
  const std::size_t sign =
      url.substr(0, hasPath ? url.find_first_of(L"?#", authority.end) : kNone).rfind(L'@');
  if (sign == kNone || hadPassword) return sign;
  // "user:123/word@host" or "DOMAIN/user:word@host"
  const std::wstring_view whole = url.substr(authority.begin, authority.end - authority.begin);
  const bool hasColon = FindColon(whole) != kNone || url.find(L':', authority.end) < sign;
  return hasColon ? sign : kNone;
}

}  // namespace

String ForDisplay(const String& url) {
  String shown = url;
  Secret<String> user;
  Secret<String> password;
  RemoveCredentials(shown, user, password);
  const std::wstring_view text = shown.view();
  const std::size_t scheme = text.find(kSchemeEnd);
  const std::size_t sign = Problem(shown).empty()
                               ? EndOfPossiblePassword(text, HasPassword(url.view()))
                               : text.rfind(L'@');
  if (sign == std::wstring_view::npos) return shown;
  String kept;
  if (text.find_first_of(L":@/") == scheme) kept.append(text.substr(0, scheme + kSchemeEnd.size()));
  kept += L"...";
  kept.append(text.substr(sign));
  return kept;
}

bool HidesPart(const String& shownUrl) {
  return shownUrl.view().find(L"://...@") != std::wstring_view::npos;
}

bool IsHTTPS(const String& url) {
  constexpr std::wstring_view kScheme = L"https:";
  return BaseStringUtil::IsCaseInsensitiveMatch(
      ASCIIText::Trimmed(url.view()).substr(0, kScheme.size()), kScheme);
}

bool IsLoopback(const String& url) {
  const std::wstring_view text = url.view();
  const Authority authority = FindAuthority(text);
  std::wstring_view host = text.substr(authority.begin, authority.end - authority.begin);
  host.remove_prefix(host.rfind(L'@') + 1);
  if (host.starts_with(L'[')) return host.substr(0, host.find(L']')) == L"[::1";
  host = host.substr(0, host.find(L':'));
  return BaseStringUtil::IsCaseInsensitiveMatch(host, L"localhost") ||
         (host.starts_with(L"127.") &&
          host.find_first_not_of(L"0123456789.") == std::wstring_view::npos);
}

bool IsLoopbackAddress(std::string_view address) {
  return address.starts_with("127.") || address == "::1";
}

bool HasControlCharacter(std::wstring_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](wchar_t character) { return character < 0x20 || character == 0x7F; });
}

std::string PathForRequest(const NarrowString& request) {
  const std::string_view text = request.view();
  const std::size_t host = text.find("://") + 3;
  const std::size_t begin = text.find_first_of("/?", host);
  if (begin == std::string_view::npos || text[begin] != '/') return "/";
  return std::string(text.substr(begin, text.find('?', begin) - begin));
}

String Problem(const String& url) {
  const std::wstring_view text = ASCIIText::Trimmed(url.view());
  const std::size_t colon = text.find(kSchemeEnd);
  if (colon == std::wstring_view::npos)
    return L"it must begin with http:// or https://, as in http://host/path";
  const String scheme(text.substr(0, colon));
  if (!BaseStringUtil::IsCaseInsensitiveMatch(scheme, L"http") &&
      !BaseStringUtil::IsCaseInsensitiveMatch(scheme, L"https"))
    return L"only http:// and https:// are supported";
  const std::size_t sign = text.rfind(L'@');
  if (sign != std::wstring_view::npos && text.rfind(kSchemeEnd, sign) != colon)
    return L"it contains \"://\" twice before an \"@\"; write http:// once, a slash in a user name "
           L"or password as %2F, and an \"@\" behind the host as %40";
  return AuthorityProblem(url);
}

String AuthorityProblem(const String& url) {
  const std::wstring_view text = ASCIIText::Trimmed(url.view());
  if (HasControlCharacter(text))
    return L"it contains a control character, such as a tab or line break; remove it";
  const Authority authority = FindAuthority(text);
  const std::wstring_view whole = text.substr(authority.begin, authority.end - authority.begin);
  if (whole.empty() || whole.front() == L':') return L"it has no host name; write http://host/path";
  const bool mayBePassword = text.find(L'@', authority.end) != std::wstring_view::npos;
  if (text.substr(authority.end).starts_with(L'\\'))
    return String(L"there is a \\ behind its host name") +
           (mayBePassword ? kURLPasswordAdvice : L"; write / instead");
  if (whole.find(L' ') != std::wstring_view::npos)
    return L"there is a space in its host name; remove it";
  if (text.find(L' ') != std::wstring_view::npos) return L"it contains a space; write %20 instead";
  if (std::any_of(whole.begin(), whole.end(), [](wchar_t character) { return character > 0x7E; }))
    return L"its host name has a character that is not ASCII; write its form that begins with xn--";
  const std::size_t port = FindColon(whole);
  if (port == std::wstring_view::npos) return L"";
  const std::wstring_view digits = whole.substr(port + 1);
  String problem;
  const wchar_t* advice = L"";
  if (digits.empty()) {
    problem = L"the port is missing after the colon";
    advice = L"; write http://host:port/path, with http:// only once";
  } else if (digits.find_first_not_of(L"0123456789") != std::wstring_view::npos) {
    problem = L"its port is not a number";
    advice = L"; write http://host:port/path";
  } else if (BaseStringUtil::UIntFrom(String(digits)) > 65535) {
    problem = L"its port is above 65535, the highest one";
  } else {
    return L"";
  }
  return problem + (mayBePassword ? kURLPasswordAdvice : advice);
}

NarrowString ForRequest(const String& url) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::wstring_view text = ASCIIText::Trimmed(url.view());
  text = text.substr(0, text.find(L'#'));
  const NarrowString bytes = BaseStringUtil::ToUTF8(text);
  NarrowString request;
  for (const char byte : bytes) {
    const auto code = static_cast<unsigned char>(byte);
    if (code > 0x20 && code < 0x7F) {
      request += byte;
    } else {
      const char encoded[] = {'%', kDigits[code >> 4], kDigits[code & 0xF]};
      request.append(encoded, sizeof encoded);
    }
  }
  return request;
}

}  // namespace HTTPUrl
