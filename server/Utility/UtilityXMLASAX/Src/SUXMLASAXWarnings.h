#pragma once

#include <cstddef>
#include <vector>

#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/SUStrUtil.h"

/// Appends the warnings of one operation to the host's text, one line each, up to the limits of
/// ImportLimits.
class Warnings {
 public:
  explicit Warnings(String& warnings) : m_warnings(warnings) {}
  Warnings(const Warnings&) = delete;
  Warnings& operator=(const Warnings&) = delete;

  /// Adds a message of the catalogue.
  void Add(int number, const std::vector<String>& arguments) {
    // Warnings above the limit are only counted, because formatting a million takes seconds.
    if (IsFull())
      ++m_omitted;
    else
      AddText(SUStrUtil::LoadMsgStringOnly(number, arguments));
  }
  void Add(const ErrorMessage& error) {
    String text;
    error.RetrieveErrorMessages(text);
    AddText(text);
  }
  /// Adds a line with the number of omitted warnings, if any. Call last.
  void Finish();

 private:
  bool IsFull() const { return m_limits.maxWarnings > 0 && m_count >= m_limits.maxWarnings; }
  void AddText(const String& text);

  String& m_warnings;
  const ImportLimits& m_limits = ImportSettings::Current().limits;
  std::size_t m_count = 0;
  std::size_t m_characters = 0;
  std::size_t m_omitted = 0;
};
