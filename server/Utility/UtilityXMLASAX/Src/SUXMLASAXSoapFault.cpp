#include "SUXMLASAXSoapFault.h"

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <utility>

#include "Utility/Generic/BaseStringUtil.h"

using BaseStringUtil::IsCaseInsensitiveMatch;

namespace {

constexpr std::size_t kMaxCharacters = 512;
constexpr std::size_t kShownCharacters = 450;  // of a longer text, to have room for the number
constexpr std::size_t kMaxDetails = 3;

/// Error codes of Analysis Services are documented as hexadecimal numbers, but sent as decimal
/// ones.
String ShownCode(const String& code) {
  const std::uint32_t number = BaseStringUtil::UIntFrom(code);
  if (number < 0x80000000U || BaseStringUtil::StringFrom(number) != code) return code;
  wchar_t text[11];
  std::swprintf(text, std::size(text), L"0x%08X", number);
  return text;
}

}  // namespace

void SoapFault::LimitedText::Append(const String& text) {
  constexpr String::View kBlanks = L" \t\n\v\f\r\x85\x2028\x2029";
  m_isBlank = m_isBlank && text.view().find_first_not_of(kBlanks) == String::npos;
  m_length += text.size();
  if (m_beginning.size() < kMaxCharacters)
    m_beginning += text.substr(0, kMaxCharacters - m_beginning.size());
}

String SoapFault::LimitedText::Get() const {
  if (m_isBlank || m_length <= kMaxCharacters) return m_beginning;
  return m_beginning.substr(0, kShownCharacters) + L"... (" +
         BaseStringUtil::StringFrom(m_length - kShownCharacters) + L" more characters)";
}

SoapFault::Meaning SoapFault::MeaningOf(const String& name) {
  static const struct {
    String::View name;
    Meaning meaning;
  } kMeanings[] = {
      {L"faultcode", Meaning::kFaultCode}, {L"faultstring", Meaning::kFaultString},
      {L"Fault", Meaning::kFault},         {L"Exception", Meaning::kException},
      {L"Value", Meaning::kCode},          {L"Text", Meaning::kText},
      {L"ErrorCode", Meaning::kCode},      {L"Description", Meaning::kText},
      {L"Code", Meaning::kOuterCode},      {L"Reason", Meaning::kOuterText},
      {L"Error", Meaning::kError},         {L"Row", Meaning::kRow},
      {L"desc", Meaning::kDescription},    {L"Source", Meaning::kSource},
      {L"Header", Meaning::kHeader},
  };
  for (const auto& entry : kMeanings)
    if (IsCaseInsensitiveMatch(name, entry.name)) return entry.meaning;
  return Meaning::kNone;
}

/// The texts in the element of this depth that ends. Drops those of deeper elements.
SoapFault::Texts SoapFault::TakeChildren(std::size_t depth) {
  if (m_open.size() <= depth + 1) return {};
  Texts children = std::move(m_open[depth + 1]);
  m_open.resize(depth + 1);
  return children;
}

void SoapFault::AddDetail(const Texts& error) {
  if (m_details.size() < kMaxDetails && (error.text || error.description))
    m_details.push_back(error);
}

void SoapFault::SetError(Texts texts, std::size_t depth) {
  if (!m_error.IsEmpty() || texts.IsEmpty()) return;
  m_error = std::move(texts);
  m_errorDepth = m_errorTop = depth;
}

void SoapFault::OnElement(const SAX2XmlElement& element) {
  const std::size_t depth = element.GetDepth();
  Texts children = TakeChildren(depth);
  const bool isAroundError = depth < m_errorTop;
  m_errorTop = std::min(m_errorTop, depth);
  const auto setIfUnset = [&](std::optional<LimitedText> Texts::*which,
                              std::optional<LimitedText> text) {
    if (m_open.size() <= depth) m_open.resize(depth + 1);
    std::optional<LimitedText>& place = m_open[depth].*which;
    if (!place) place = std::move(text);
  };
  const auto value = [&] {
    LimitedText text;
    text.Append(element.GetValue());
    return text;
  };
  switch (m_meanings.Find(element.GetLocalName(), &MeaningOf)) {
    case Meaning::kNone:
      break;
    case Meaning::kFaultCode:
      m_isSoap11 = true;
      m_faultCode = value();
      break;
    case Meaning::kFaultString:
      m_isSoap11 = true;
      m_faultString.Append(element.GetValue());
      break;
    case Meaning::kCode:
      setIfUnset(&Texts::code, value());
      break;
    case Meaning::kText:
      setIfUnset(&Texts::text, value());
      break;
    case Meaning::kOuterCode:
      setIfUnset(&Texts::code, std::move(children.code));
      break;
    case Meaning::kOuterText:
      setIfUnset(&Texts::text, std::move(children.text));
      break;
    case Meaning::kDescription:
      setIfUnset(&Texts::description, value());
      break;
    case Meaning::kSource:
      setIfUnset(&Texts::source, value());
      break;
    case Meaning::kFault:
      if (m_isSoap11 || m_isSoap12) break;
      m_isSoap12 = true;
      m_soap12 = std::move(children);
      break;
    case Meaning::kException:
      m_isException = true;
      [[fallthrough]];
    case Meaning::kError:
      AddDetail(children);
      SetError(std::move(children), depth);
      break;
    case Meaning::kRow:
      if (isAroundError && (m_errorDepth == depth + 1 || !(m_isException || m_isSoap12)))
        m_error = Texts();
      break;
    case Meaning::kHeader:
      if (isAroundError) m_error = Texts();
      break;
  }
}

bool SoapFault::IsFault() const {
  if (IsCaseInsensitiveMatch(m_faultString.Get(), L"null")) return false;
  return m_isSoap12 || m_isException || !m_faultCode.IsEmpty() || !m_faultString.IsEmpty();
}

SoapFault::Texts SoapFault::Found() const {
  if (!m_faultCode.IsEmpty() || !m_faultString.IsEmpty())
    return {m_faultCode, m_faultString, {}, {}};
  return m_soap12.IsEmpty() ? m_error : m_soap12;
}

bool SoapFault::HasReason() const {
  const Texts found = Found();
  return (found.code && !found.code->IsBlank()) || (found.text && !found.text->IsBlank());
}

String SoapFault::Code() const { return Found().code.value_or(LimitedText()).Get(); }

String SoapFault::Text() const { return Found().text.value_or(LimitedText()).Get(); }

std::vector<String> SoapFault::Details() const {
  std::vector<String> details;
  std::vector<String> known{Text()};
  for (const Texts& error : m_details) {
    const LimitedText& description = error.text ? *error.text : *error.description;
    String text = description.Get();
    if (description.IsBlank() || std::ranges::find(known, text) != known.end()) continue;
    known.push_back(text);
    const auto shown = [](const std::optional<LimitedText>& part) {
      return part && !part->IsBlank() ? part->Get() : String();
    };
    const String code = ShownCode(shown(error.code));
    const String source = shown(error.source);
    if (!code.empty() && !source.empty())
      text += L" (" + code + L", from " + source + L")";
    else if (!code.empty() || !source.empty())
      text += L" (" + (code.empty() ? L"from " + source : code) + L")";
    details.push_back(std::move(text));
  }
  return details;
}
