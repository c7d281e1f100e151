#include "errors/MessageCatalogue.h"

#include <algorithm>
#include <optional>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/MessageNumbers.h"

namespace MessageCatalogue {
namespace {

// Beginnings of a text, until nullptr. The first one whose arguments are not blank is used, or the
// last one.
using Beginnings = const wchar_t*;

constexpr Beginnings kNone[] = {L"", nullptr};
constexpr Beginnings kHierarchy[] = {L"The hierarchy \"{1}\"", L"A hierarchy without a name",
                                     nullptr};
constexpr Beginnings kFault[] = {L"The server refused the request with the SOAP fault {1}, \"{2}\"",
                                 L"The server refused the request with the SOAP fault {1}",
                                 L"The server refused the request with the SOAP fault \"{2}\"",
                                 L"The server refused the request without a reason", nullptr};

struct Message {
  int number;
  const wchar_t* text;
  const Beginnings* beginnings = kNone;
};

// Each text says what happened, on which object, and what to try. {1} to {9} are arguments.
constexpr Message kMessages[] = {
    {kMessageReadCancelled,
     L"interrupted: the request was cancelled before its reply was complete"},
    {kMessageParseError,
     L"The server's reply could not be read as XML: {1}. Check that the URL leads to an XML for "
     L"Analysis service; if it does, look for errors in the server's own log."},
    {kMessageTargetMismatch,
     L"The connection is configured for {1}, but the server calls itself \"{2}\". The import uses "
     L"the rules of the configured kind (or of Tamarind, if OT_XMLA_IMPORT_TAMARIND is set). If "
     L"the result looks wrong or incomplete, choose the target kind that matches the server."},
    {kMessageVirtualHierarchy,
     L" was skipped because it is virtual (data source \"{2}\", catalog \"{3}\", cube \"{4}\"). "
     L"Use the hierarchy that it is built on, in the same or another cube.",
     kHierarchy},
    {kMessageMeasuresHierarchy,
     L" was skipped because it holds the measures, which are imported separately (data source "
     L"\"{2}\", catalog \"{3}\", cube \"{4}\"). There is nothing to do.",
     kHierarchy},
    {kMessageUnknownStructure,
     L" was skipped because its structure is not supported (data source \"{2}\", catalog \"{3}\", "
     L"cube \"{4}\"). Only balanced, ragged, unbalanced and network hierarchies can be imported; "
     L"change the hierarchy on the server if it is needed.",
     kHierarchy},
    {kMessageSoapFault,
     L". Check the user's rights and the chosen data source, catalog and cube; the server's own "
     L"log may say more.",
     kFault},
};

bool IsLineBreak(wchar_t character) {
  return (character >= L'\t' && character <= L'\r') || character == L'\0' || character == 0x85 ||
         character == 0x2028 || character == 0x2029;
}

bool IsBlank(const String& text) {
  return std::all_of(text.begin(), text.end(),
                     [](wchar_t character) { return character == L' ' || IsLineBreak(character); });
}

/// The place of the argument that the pattern continues with, from 0; nothing if it is a character.
std::optional<std::size_t> ArgumentAt(const wchar_t* pattern) {
  if (pattern[0] != L'{' || pattern[1] < L'1' || pattern[1] > L'9' || pattern[2] != L'}') return {};
  return static_cast<std::size_t>(pattern[1] - L'1');
}

constexpr std::size_t kPlaceholderLength = 3;

bool HasArguments(const wchar_t* pattern, const std::vector<String>& arguments) {
  for (; *pattern; ++pattern) {
    const std::optional<std::size_t> argument = ArgumentAt(pattern);
    if (argument && (*argument >= arguments.size() || IsBlank(arguments[*argument]))) return false;
  }
  return true;
}

/// Appends the pattern with its arguments. Braces inside an argument have no meaning.
void AppendFormatted(String& text, const wchar_t* pattern, const std::vector<String>& arguments) {
  while (*pattern) {
    if (const std::optional<std::size_t> argument = ArgumentAt(pattern)) {
      if (*argument < arguments.size()) text += Truncated(arguments[*argument]);
      pattern += kPlaceholderLength;
    } else {
      text += *pattern++;
    }
  }
}

}  // namespace

String OneLine(const String& text) {
  std::size_t position = 0;
  while (position < text.size() && !IsLineBreak(text[position])) ++position;
  if (position == text.size()) return text;
  String line;
  line.AppendFilled(text.size(), [&text](wchar_t* place) {
    for (const wchar_t character : text) *place++ = IsLineBreak(character) ? L' ' : character;
    return text.size();
  });
  return line;
}

String Truncated(const String& argument) {
  if (argument.size() <= kMaxArgumentCharacters) return OneLine(argument);
  return OneLine(argument.substr(0, kMaxArgumentCharacters)) + L"... (" +
         BaseStringUtil::StringFrom(argument.size() - kMaxArgumentCharacters) +
         L" more characters)";
}

String Render(int number, const std::vector<String>& arguments) {
  String text(L"[");
  if (number < 0) text += L'-';
  text += BaseStringUtil::StringFrom(static_cast<std::uint64_t>(
      number < 0 ? -static_cast<std::int64_t>(number) : static_cast<std::int64_t>(number)));
  text += L"] ";
  for (const Message& message : kMessages) {
    if (message.number != number) continue;
    const Beginnings* beginning = message.beginnings;
    while (beginning[1] && !HasArguments(*beginning, arguments)) ++beginning;
    AppendFormatted(text, *beginning, arguments);
    AppendFormatted(text, message.text, arguments);
    return text;
  }
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (i > 0) text += L", ";
    text += Truncated(arguments[i]);
  }
  return text;
}

}  // namespace MessageCatalogue
