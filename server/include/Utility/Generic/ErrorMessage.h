#pragma once

#include <utility>
#include <vector>

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// The host's error object and exception type: one or several rendered messages. Copyable; copying
/// shares the texts.
class XMLAHOST_API ErrorMessage {
 public:
  /// A message of the catalogue with its arguments, each a wide text; rendered as
  /// SUStrUtil::LoadMsgStringOnly says.
  template <class... Arguments>
  explicit ErrorMessage(int number, const Arguments&... arguments)
      : ErrorMessage(number, std::vector<String>{String(arguments)...}) {}
  ErrorMessage(int number, const std::vector<String>& arguments);
  /// A bare text without number; line breaks and tabs inside it become blanks. Whoever
  /// puts a server's text into it limits its length.
  explicit ErrorMessage(const String& text);
  ErrorMessage(const ErrorMessage&);
  ErrorMessage& operator=(const ErrorMessage&);
  virtual ~ErrorMessage();

  /// Adds the messages of another error behind these.
  void Append(const ErrorMessage& other);
  /// Appends the rendered texts to `texts`, separated by line feeds from each other and from what
  /// already stands there, without a trailing line feed.
  void RetrieveErrorMessages(String& texts) const;
  /// The number of the first message; 0 for a bare text.
  int GetNumber() const noexcept;
  /// Where the error was thrown (SUGThrow); empty and 0 before.
  const String& GetSourceFile() const noexcept;
  int GetSourceLine() const noexcept;
  void SetSource(const String& file, int line);

 private:
  int m_number = 0;
  std::vector<String> m_texts;
  String m_sourceFile;
  int m_sourceLine = 0;
};

/// Throws a copy of `error` stamped with the source file and line.
[[noreturn]] XMLAHOST_API void SUGThrow(const ErrorMessage& error, const String& sourceFile,
                                        int line);
