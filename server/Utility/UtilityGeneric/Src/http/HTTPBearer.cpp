#include "http/HTTPBearer.h"

#include <algorithm>

#include "Utility/Generic/BaseStringUtil.h"
#include "text/ASCIIText.h"

namespace HTTPBearer {
namespace {

constexpr std::size_t kMaxShownWord = 40;

/// Removes the text up to the next comma outside of quotes, with the comma, and returns it.
std::string_view NextItem(std::string_view& list) {
  bool isQuoted = false;
  std::size_t end = 0;
  for (; end < list.size() && (isQuoted || list[end] != ','); ++end) {
    if (list[end] == '"') isQuoted = !isQuoted;
    if (isQuoted && list[end] == '\\') ++end;
  }
  end = std::min(end, list.size());
  const std::string_view item = ASCIIText::Trimmed(list.substr(0, end));
  list.remove_prefix(std::min(end + 1, list.size()));
  return item;
}

std::string Unquoted(std::string_view value) {
  if (!value.starts_with('"')) return std::string(value);
  std::string text;
  for (std::size_t i = 1; i < value.size() && value[i] != '"'; ++i) {
    if (value[i] == '\\' && i + 1 < value.size()) ++i;
    text += value[i];
  }
  return text;
}

/// The server may repeat the token in its text, so that long words are not shown.
String Shown(const std::string& text) {
  std::string shown;
  std::string_view rest = text;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find_first_of(" \t\"'<>()"), rest.size());
    shown += end > kMaxShownWord ? std::string_view("...") : rest.substr(0, end);
    if (end < rest.size()) shown += rest[end];
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return BaseStringUtil::FromUTF8(NarrowString(shown.data(), shown.size()));
}

struct ErrorText {
  std::string_view error;
  const wchar_t* what;
  const wchar_t* advice;
};
constexpr ErrorText kErrors[] = {
    {"invalid_token", L"the server says that the token is invalid or expired", L"get a new token"},
    {"insufficient_scope", L"the server says that the token does not allow this",
     L"get a token with more rights"},
    {"invalid_request", L"the server says that the request with the token is malformed",
     L"check that the token is meant for this service"},
};
constexpr ErrorText kOther = {"", L"the server rejected the token", L"get a new token"};

}  // namespace

bool IsToken(std::wstring_view text) noexcept {
  const std::size_t padding = std::min(text.find(L'='), text.size());
  constexpr std::wstring_view kMarks = L"-._~+/";
  return padding > 0 && text.find_first_not_of(L'=', padding) == std::wstring_view::npos &&
         std::all_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(padding),
                     [kMarks](wchar_t character) {
                       return (character >= L'0' && character <= L'9') ||
                              (character >= L'A' && character <= L'Z') ||
                              (character >= L'a' && character <= L'z') ||
                              kMarks.find(character) != std::wstring_view::npos;
                     });
}

Challenge ChallengeIn(std::string_view header) {
  Challenge challenge;
  bool isBearer = false;
  while (!header.empty()) {
    std::string_view item = NextItem(header);
    // A word before a space begins a challenge; its first parameter may follow.
    const std::size_t end = item.find_first_of(" \t=");
    if (end == std::string_view::npos || item[end] != '=') {
      isBearer = ASCIIText::EqualsIgnoringCase(item.substr(0, end), "bearer");
      item =
          end == std::string_view::npos ? std::string_view() : ASCIIText::Trimmed(item.substr(end));
    }
    const std::size_t sign = item.find('=');
    if (!isBearer || sign == std::string_view::npos) continue;
    const std::string_view name = ASCIIText::Trimmed(item.substr(0, sign));
    const std::string value = Unquoted(ASCIIText::Trimmed(item.substr(sign + 1)));
    if (ASCIIText::EqualsIgnoringCase(name, "error")) challenge.error = value;
    if (ASCIIText::EqualsIgnoringCase(name, "error_description")) challenge.description = value;
    if (ASCIIText::EqualsIgnoringCase(name, "scope")) challenge.scope = value;
  }
  return challenge;
}

bool Describe(long status, const std::string& header, HTTPDiagnosis& diagnosis) {
  const Challenge challenge = ChallengeIn(header);
  if (challenge.error.empty() && status != 401) return false;
  const auto* const known =
      std::find_if(std::begin(kErrors), std::end(kErrors),
                   [&](const ErrorText& text) { return text.error == challenge.error; });
  const ErrorText& text = known == std::end(kErrors) ? kOther : *known;
  diagnosis.what += L": " + String(text.what);
  diagnosis.advice = text.advice;
  diagnosis.setting = HTTPSetting::kToken;
  diagnosis.details =
      Shown(challenge.description.empty() ? challenge.error : challenge.description);
  if (!challenge.scope.empty()) {
    if (!diagnosis.details.empty()) diagnosis.details += L"; ";
    diagnosis.details += L"required scope: " + Shown(challenge.scope);
  }
  return true;
}

}  // namespace HTTPBearer
