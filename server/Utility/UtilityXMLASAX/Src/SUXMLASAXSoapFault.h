#pragma once

#include <optional>

#include "SUXMLASAXNameCache.h"
#include "Utility/Generic/SAX2XmlReadDriver.h"
#include "Utility/Generic/String.h"

/// Detects failures in a reply while a rowset reader reads the same elements:
/// - A SOAP 1.1 fault: the last `faultcode`, and all `faultstring`s concatenated. If both are
///   empty, or the string is "null" (in any case), there is no fault.
/// - Another `Fault`, such as SOAP 1.2: its first `Value` and `Text`.
/// - An XMLA `Exception`: ErrorCode and Description of the first `Error`.
/// Texts are truncated to 64 Ki characters.
class SoapFault {
 public:
  /// Call for every element of the reply, in order.
  void OnElement(const SAX2XmlElement& element);

  /// True if the reply is a failure. Valid after the last element.
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
  /// The first code and text found.
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
  bool m_isSoap11 = false;  // a faultcode or faultstring exists, even if empty
  bool m_isSoap12 = false;
  bool m_isException = false;
};
