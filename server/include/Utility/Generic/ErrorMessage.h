#pragma once

/// \file
/// The exception type of the host, and the function that throws it.

#include <utility>
#include <vector>

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// The host's error object and exception type: one or more formatted messages. Copies share the
/// texts. Use an object from one thread at a time.
///
/// Reads the variables of a cube, and adds the reason of a failure to `errors`:
/// \code
/// #include "Import/OTXMLAImportAPI.h"
/// #include "Utility/Generic/ErrorMessage.h"
///
/// void ReadVariables(OTXMLAImportAPI& import, OTCube& cube, String& errors, String& warnings) {
///   try {
///     import.GetSAPVariables(cube, errors, warnings);
///   } catch (const ErrorMessage& error) {
///     error.RetrieveErrorMessages(errors);
///   }
/// }
/// \endcode
class XMLAHOST_API ErrorMessage {
 public:
  /// A message of the catalogue with wide texts as arguments. See SUStrUtil::LoadMsgStringOnly for
  /// the format. MessageNumbers.h has the numbers.
  template <class... Arguments>
  explicit ErrorMessage(int number, const Arguments&... arguments)
      : ErrorMessage(number, std::vector<String>{String(arguments)...}) {}
  /// The same, with all arguments in one list.
  ErrorMessage(int number, const std::vector<String>& arguments);
  /// A text without a number. Line breaks and tabs become spaces. The caller must limit the length
  /// of texts that come from a server.
  explicit ErrorMessage(const String& text);
  /// Copies are independent.
  /// @{
  ErrorMessage(const ErrorMessage&);
  ErrorMessage& operator=(const ErrorMessage&);
  /// @}
  virtual ~ErrorMessage();

  /// Appends the messages of `other`, which may be this object.
  void Append(const ErrorMessage& other);
  /// Appends the messages to `texts`. Line feeds separate them from each other and from earlier
  /// text. There is no trailing line feed.
  void RetrieveErrorMessages(String& texts) const;
  /// The number of the first message, or 0 for a text without a number.
  int GetNumber() const noexcept;
  /// Source file and line of SUGThrow; empty and 0 before it.
  /// @{
  const String& GetSourceFile() const noexcept;
  int GetSourceLine() const noexcept;
  void SetSource(const String& file, int line);
  /// @}

 private:
  int m_number = 0;
  std::vector<String> m_texts;
  String m_sourceFile;
  int m_sourceLine = 0;
};

/// Throws a copy of `error` that contains the source file and line.
[[noreturn]] XMLAHOST_API void SUGThrow(const ErrorMessage& error, const String& sourceFile,
                                        int line);
