#include "SUXMLASAXSoapFault.h"

#include "Utility/Generic/BaseStringUtil.h"

using BaseStringUtil::IsCaseInsensitiveMatch;

namespace {

constexpr std::size_t kMostCharacters = std::size_t{64} << 10;

String Beginning(const SAX2XmlElement& element, std::size_t most = kMostCharacters) {
  return element.GetValue().substr(0, most);
}

}  // namespace

SoapFault::Role SoapFault::RoleOf(const String& name) {
  static const struct {
    String::View name;
    Role role;
  } kRoles[] = {
      {L"faultcode", {Meaning::kCode, nullptr, nullptr}},
      {L"faultstring", {Meaning::kString, nullptr, nullptr}},
      {L"Fault", {Meaning::kFault, nullptr, nullptr}},
      {L"Exception", {Meaning::kException, nullptr, nullptr}},
      {L"Value", {Meaning::kDetail, &SoapFault::m_soap12, &Texts::code}},
      {L"Text", {Meaning::kDetail, &SoapFault::m_soap12, &Texts::text}},
      {L"ErrorCode", {Meaning::kDetail, &SoapFault::m_error, &Texts::code}},
      {L"Description", {Meaning::kDescription, nullptr, nullptr}},
      {L"Row", {Meaning::kEndOfDetails, nullptr, nullptr}},
      {L"Header", {Meaning::kEndOfDetails, nullptr, nullptr}},
  };
  for (const auto& entry : kRoles)
    if (IsCaseInsensitiveMatch(name, entry.name)) return entry.role;
  return {Meaning::kNone, nullptr, nullptr};
}

void SoapFault::Watch(const SAX2XmlElement& element) {
  const Role& role = m_roles.Find(element.GetLocalName(), &RoleOf);
  switch (role.meaning) {
    case Meaning::kNone:
      break;
    case Meaning::kCode:
      m_isSoap11 = true;
      m_faultCode = Beginning(element);
      break;
    case Meaning::kString:
      m_isSoap11 = true;
      if (m_faultString.size() < kMostCharacters)
        m_faultString += Beginning(element, kMostCharacters - m_faultString.size());
      break;
    case Meaning::kFault:
      m_isSoap12 = m_isSoap12 || !m_isSoap11;
      break;
    case Meaning::kException:
      m_isException = true;
      break;
    case Meaning::kDetail:
      // Rows have elements with these names, too: their values are dropped at the row's end.
      if (!m_isSoap12 && !(this->*role.texts.*role.part))
        this->*role.texts.*role.part = Beginning(element);
      break;
    case Meaning::kDescription:
      // Rows have long ones: they are taken only where an error is likely.
      if (!m_error.text && (m_isException || m_error.code)) m_error.text = Beginning(element);
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
