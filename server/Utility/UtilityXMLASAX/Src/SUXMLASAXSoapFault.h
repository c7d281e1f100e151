#pragma once

#include <optional>

#include "SUXMLASAXNameCache.h"
#include "Utility/Generic/SAX2XmlReadDriver.h"
#include "Utility/Generic/String.h"

/// Looks for a failure among the elements of a reply while somebody else reads its rows:
/// - a SOAP 1.1 fault: the last `faultcode`, and all `faultstring`s joined. Without any text it is
///   no fault, and the string "null" (any case) means that there is none;
/// - another `Fault`, such as that of SOAP 1.2: its first `Value` and `Text`;
/// - an XMLA `Exception`: ErrorCode and Description of the first `Error`.
/// Of each text the first 64 Ki characters are kept.
class SoapFault {
 public:
  /// To be called for every element of the reply, in order.
  void OnElement(const SAX2XmlElement& element);

  /// True, after the last element, when the reply is a failure.
  bool IsFault() const;
  String Code() const;
  String Text() const;

 private:
  enum class Meaning {
    kNone,
    kFaultCode,
    kFaultString,
    kFault,
    kException,
    kValue,
    kText,
    kErrorCode,
    kDescription,
    kEndOfDetails
  };
  /// The first of each counts.
  struct Texts {
    std::optional<String> code;
    std::optional<String> text;
  };

  static Meaning MeaningOf(const String& name);

  NameCache<Meaning> m_meanings;
  String m_faultCode;
  String m_faultString;
  Texts m_soap12;
  Texts m_error;
  bool m_isSoap11 = false;  // a faultcode or faultstring has come, if only an empty one
  bool m_isSoap12 = false;
  bool m_isException = false;
};
