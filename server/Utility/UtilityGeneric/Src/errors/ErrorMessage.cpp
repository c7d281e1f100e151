#include "Utility/Generic/ErrorMessage.h"

#include "errors/MessageCatalogue.h"

ErrorMessage::ErrorMessage(int number, const std::vector<String>& arguments)
    : m_number(number), m_texts{MessageCatalogue::Render(number, arguments)} {}

ErrorMessage::ErrorMessage(const String& text) : m_texts{MessageCatalogue::OneLine(text)} {}

ErrorMessage::ErrorMessage(const ErrorMessage&) = default;
ErrorMessage& ErrorMessage::operator=(const ErrorMessage&) = default;
ErrorMessage::~ErrorMessage() = default;

void ErrorMessage::Append(const ErrorMessage& other) {
  const std::vector<String> added(other.m_texts);  // `other` may be this object
  m_texts.insert(m_texts.end(), added.begin(), added.end());
}

void ErrorMessage::RetrieveErrorMessages(String& texts) const {
  for (const String& text : m_texts) {
    if (!texts.empty() && texts[texts.size() - 1] != L'\n') texts += L'\n';
    texts += text;
  }
}

int ErrorMessage::GetNumber() const noexcept { return m_number; }
const String& ErrorMessage::GetSourceFile() const noexcept { return m_sourceFile; }
int ErrorMessage::GetSourceLine() const noexcept { return m_sourceLine; }

void ErrorMessage::SetSource(const String& file, int line) {
  m_sourceFile = file;
  m_sourceLine = line;
}

void SUGThrow(const ErrorMessage& error, const String& sourceFile, int line) {
  ErrorMessage located(error);
  located.SetSource(sourceFile, line);
  throw located;
}
