#pragma once

#include <optional>

#include "SUXMLASAXNameCache.h"
#include "Utility/Generic/SAX2XmlReadDriver.h"
#include "Utility/Generic/String.h"

/// Detects failures in a reply while a rowset reader reads the same elements:
/// - A SOAP 1.1 fault: the last `faultcode`, and all `faultstring`s concatenated. If both are
///   empty, or the string is "null" (in any case), there is no fault.
/// - Another `Fault`, such as SOAP 1.2: the first `Value` of its `Code` and the first `Text` of its
///   `Reason`, or its first `Value` and `Text` outside of `Detail`. If it has no texts: those of an
///   `Error` in its `Detail`.
/// - An XMLA `Exception`: ErrorCode and Description of the first `Error` that is not in a row.
/// The order of these elements does not matter. Texts are truncated to 64 Ki characters. Texts of a
/// row are kept only until its end, because rows have elements with the same names.
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
    kCode,
    kReason,
    kDetail,
    kErrorCode,
    kDescription,
    kError,
    kEndOfRow
  };
  struct Texts {
    std::optional<String> code;
    std::optional<String> text;

    bool IsEmpty() const { return (!code || code->empty()) && (!text || text->empty()); }
  };

  static Meaning MeaningOf(const String& name);
  const Texts& Found() const;

  NameCache<Meaning> m_meanings;
  String m_faultCode;
  String m_faultString;
  Texts m_loose;  // Value and Text whose parent has not ended
  Texts m_soap12;
  Texts m_error;
  bool m_isErrorComplete = false;  // m_error does not change before the end of the row
  bool m_isSoap11 = false;         // a faultcode or faultstring exists, even if empty
  bool m_isSoap12 = false;
  bool m_isException = false;
};
