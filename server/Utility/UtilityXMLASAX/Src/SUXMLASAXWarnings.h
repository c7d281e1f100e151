#pragma once

#include <cstddef>
#include <vector>

#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/SUStrUtil.h"

/// The warnings of one operation, appended to the host's text one line each, up to the limits of
/// ImportLimits.
class Warnings {
 public:
  explicit Warnings(String& warnings) : m_warnings(warnings) {}
  Warnings(const Warnings&) = delete;
  Warnings& operator=(const Warnings&) = delete;

  /// A message of the catalogue.
  void Add(int number, const std::vector<String>& arguments) {
    // A million of them are only counted: making their texts would take seconds.
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
  /// Says how many warnings were left out, if any. To be called last.
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
