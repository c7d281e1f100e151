#include "connection/LogFailures.h"

#include <new>
#include <utility>

#include "base/Text.h"

LogFailures::LogFailures(std::vector<std::string>& warnings) : m_warnings(warnings) {}

LogFailures::~LogFailures() {
  try {
    for (std::string& line : m_lines) m_warnings.push_back(std::move(line));
  } catch (const std::bad_alloc&) {
    // Out of memory: the warnings are lost, the import continues.
  }
}

void LogFailures::Add(const String& name, const String& reason) {
  try {
    const std::lock_guard lock(m_mutex);
    m_lines.push_back("the import log " + Listed({Utf8(name)}) + " is incomplete: " + Utf8(reason));
  } catch (const std::bad_alloc&) {
    // Out of memory: the warning is lost.
  }
}
