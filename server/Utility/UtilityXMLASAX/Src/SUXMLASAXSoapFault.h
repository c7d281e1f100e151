#pragma once

#include <optional>
#include <vector>

#include "SUXMLASAXNameCache.h"
#include "Utility/Generic/SAX2XmlReadDriver.h"
#include "Utility/Generic/String.h"

/// Detects failures in a reply while a rowset reader reads the same elements:
/// - A SOAP 1.1 fault: the last `faultcode`, and all `faultstring`s concatenated. Not a fault
///   if both are empty, or if the string is "null" in upper or lower case.
/// - Another `Fault`, such as SOAP 1.2: the first `Value` of its `Code` and the first `Text` of its
///   `Reason`, or its own `Value` and `Text`. If it has no texts: those of an `Error` in it.
/// - An XMLA `Exception`: ErrorCode and Description of the first `Error` that is not in a `Header`
///   and not a column. In a row, it counts only with the exception. If there is none: its own ones.
///
/// The details are the descriptions of the `Error`s in the reply: often the useful part of a fault.
///
/// The order of these elements does not matter. A text counts only as a child of these elements,
/// because the columns of a row have the same names.
class SoapFault {
 public:
  /// Call for every element of the reply, in order.
  void OnElement(const SAX2XmlElement& element);

  /// True if the reply is a failure. Valid after the last element.
  bool IsFault() const;
  /// True if a text of the fault is not blank.
  bool HasReason() const;
  /// Texts of more than 512 characters are truncated, and contain the number of missing ones.
  String Code() const;
  String Text() const;
  /// One line for each of the first errors in the reply whose description differs from Text() and
  /// from the ones before, as in `The Kids cube does not exist. (0xC10F000A, from Source)`.
  std::vector<String> Details() const;

 private:
  enum class Meaning {
    kNone,
    kFaultCode,
    kFaultString,
    kFault,
    kException,
    kCode,
    kText,
    kOuterCode,
    kOuterText,
    kError,
    kDescription,
    kSource,
    kRow,
    kHeader
  };
  /// A text of the server. Only its beginning is kept.
  class LimitedText {
   public:
    void Append(const String& text);
    bool IsEmpty() const { return m_length == 0; }
    bool IsBlank() const { return m_isBlank; }
    String Get() const;

   private:
    String m_beginning;
    std::size_t m_length = 0;
    bool m_isBlank = true;
  };
  struct Texts {
    std::optional<LimitedText> code;
    std::optional<LimitedText> text;
    std::optional<LimitedText> description;  // of an error of another namespace
    std::optional<LimitedText> source;

    bool IsEmpty() const { return (!code || code->IsEmpty()) && (!text || text->IsEmpty()); }
  };

  static Meaning MeaningOf(const String& name);
  Texts TakeChildren(std::size_t depth);
  void AddDetail(const Texts& error);
  void SetError(Texts texts, std::size_t depth);
  Texts Found() const;

  NameCache<Meaning> m_meanings;
  LimitedText m_faultCode;
  LimitedText m_faultString;
  std::vector<Texts> m_open;  // index: depth of texts whose parent has not ended
  Texts m_soap12;
  Texts m_error;
  std::vector<Texts> m_details;  // of the first errors
  std::size_t m_errorDepth = 0;
  std::size_t m_errorTop = 0;  // depth of the last element around m_error that has ended
  bool m_isSoap11 = false;     // a faultcode or faultstring exists, even if empty
  bool m_isSoap12 = false;
  bool m_isException = false;
};
