#include "SUXMLASAXSoapFault.h"

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

}  // namespace

SoapFault::Meaning SoapFault::MeaningOf(const String& name) {
  static const struct {
    String::View name;
    Meaning meaning;
  } kMeanings[] = {
      {L"faultcode", Meaning::kFaultCode}, {L"faultstring", Meaning::kFaultString},
      {L"Fault", Meaning::kFault},         {L"Exception", Meaning::kException},
      {L"Value", Meaning::kValue},         {L"Text", Meaning::kText},
      {L"ErrorCode", Meaning::kErrorCode}, {L"Description", Meaning::kDescription},
      {L"Row", Meaning::kEndOfDetails},    {L"Header", Meaning::kEndOfDetails},
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
    case Meaning::kFault:
      m_isSoap12 = m_isSoap12 || !m_isSoap11;
      break;
    case Meaning::kException:
      m_isException = true;
      break;
    // Rows also have elements with these names. Their values are dropped at the end of the row.
    case Meaning::kValue:
      if (!m_isSoap12) SetIfUnset(m_soap12.code, element);
      break;
    case Meaning::kText:
      if (!m_isSoap12) SetIfUnset(m_soap12.text, element);
      break;
    case Meaning::kErrorCode:
      SetIfUnset(m_error.code, element);
      break;
    case Meaning::kDescription:
      // Rows have long descriptions, so they are stored only after a sign of an error.
      if (m_isException || m_error.code) SetIfUnset(m_error.text, element);
      break;
    case Meaning::kEndOfDetails:
      if (!m_isSoap12) m_soap12 = Texts();
      if (!m_isException) m_error = Texts();
      break;
  }
}

bool SoapFault::IsFault() const {
  if (IsCaseInsensitiveMatch(m_faultString, L"null")) return false;
  return m_isSoap12 || m_isException || !m_faultCode.empty() || !m_faultString.empty();
}

String SoapFault::Code() const {
  if (!m_faultCode.empty() || !m_faultString.empty()) return m_faultCode;
  return (m_isSoap12 ? m_soap12 : m_error).code.value_or(String());
}

String SoapFault::Text() const {
  if (!m_faultCode.empty() || !m_faultString.empty()) return m_faultString;
  return (m_isSoap12 ? m_soap12 : m_error).text.value_or(String());
}
