#include "SUXMLASAXSoapFault.h"

#include <utility>

#include "Utility/Generic/BaseStringUtil.h"

using BaseStringUtil::IsCaseInsensitiveMatch;

namespace {

constexpr std::size_t kMaxTextCharacters = std::size_t{64} << 10;

String Truncated(const SAX2XmlElement& element, std::size_t most = kMaxTextCharacters) {
  return element.GetValue().substr(0, most);
}

void SetIfUnset(std::optional<String>& text, const SAX2XmlElement& element) {
  if (!text) text = Truncated(element);
}

void MoveIfUnset(std::optional<String>& text, std::optional<String>& from) {
  if (!text) text = std::exchange(from, std::nullopt);
}

}  // namespace

SoapFault::Meaning SoapFault::MeaningOf(const String& name) {
  static const struct {
    String::View name;
    Meaning meaning;
  } kMeanings[] = {
      {L"faultcode", Meaning::kFaultCode}, {L"faultstring", Meaning::kFaultString},
      {L"Fault", Meaning::kFault},         {L"Exception", Meaning::kException},
      {L"Value", Meaning::kValue},         {L"Text", Meaning::kText},
      {L"Code", Meaning::kCode},           {L"Reason", Meaning::kReason},
      {L"Detail", Meaning::kDetail},       {L"ErrorCode", Meaning::kErrorCode},
      {L"Error", Meaning::kError},         {L"Description", Meaning::kDescription},
      {L"Row", Meaning::kEndOfRow},        {L"Header", Meaning::kEndOfRow},
  };
  for (const auto& entry : kMeanings)
    if (IsCaseInsensitiveMatch(name, entry.name)) return entry.meaning;
  return Meaning::kNone;
}

void SoapFault::OnElement(const SAX2XmlElement& element) {
  switch (m_meanings.Find(element.GetLocalName(), &MeaningOf)) {
    case Meaning::kNone:
      break;
    case Meaning::kFaultCode:
      m_isSoap11 = true;
      m_faultCode = Truncated(element);
      break;
    case Meaning::kFaultString:
      m_isSoap11 = true;
      if (m_faultString.size() < kMaxTextCharacters)
        m_faultString += Truncated(element, kMaxTextCharacters - m_faultString.size());
      break;
    case Meaning::kValue:
      SetIfUnset(m_loose.code, element);
      break;
    case Meaning::kText:
      SetIfUnset(m_loose.text, element);
      break;
    case Meaning::kCode:
      MoveIfUnset(m_soap12.code, m_loose.code);
      break;
    case Meaning::kReason:
      MoveIfUnset(m_soap12.text, m_loose.text);
      break;
    case Meaning::kDetail:
      m_loose = Texts();
      break;
    case Meaning::kFault:
      if (m_isSoap11 || m_isSoap12) break;
      m_isSoap12 = true;
      MoveIfUnset(m_soap12.code, m_loose.code);
      MoveIfUnset(m_soap12.text, m_loose.text);
      break;
    case Meaning::kErrorCode:
      if (!m_isErrorComplete) m_error.code = Truncated(element);
      break;
    case Meaning::kDescription:
      if (!m_isErrorComplete) m_error.text = Truncated(element);
      break;
    case Meaning::kException:
      m_isException = true;
      [[fallthrough]];
    case Meaning::kError:
      m_isErrorComplete = !m_error.IsEmpty();
      break;
    case Meaning::kEndOfRow:
      m_loose = Texts();
      if (!m_isSoap12) m_soap12 = Texts();
      if (m_isException && m_isErrorComplete) break;
      m_error = Texts();
      m_isErrorComplete = false;
      break;
  }
}

bool SoapFault::IsFault() const {
  if (IsCaseInsensitiveMatch(m_faultString, L"null")) return false;
  return m_isSoap12 || m_isException || !m_faultCode.empty() || !m_faultString.empty();
}

const SoapFault::Texts& SoapFault::Found() const {
  return m_soap12.IsEmpty() || !m_isSoap12 ? m_error : m_soap12;
}

String SoapFault::Code() const {
  if (!m_faultCode.empty() || !m_faultString.empty()) return m_faultCode;
  return Found().code.value_or(String());
}

String SoapFault::Text() const {
  if (!m_faultCode.empty() || !m_faultString.empty()) return m_faultString;
  return Found().text.value_or(String());
}
