#include "LogFailures.h"

#include <mutex>
#include <new>
#include <utility>

#include "Text.h"

namespace {

std::mutex mutex;
std::vector<std::string> lines;  // guarded

void OnFailure(const String& name, const String& reason) {
  try {
    const std::lock_guard lock(mutex);
    lines.push_back("the import log " + Listed({Utf8(name)}) + " is incomplete: " + Utf8(reason));
  } catch (const std::bad_alloc&) {
    // Then nobody is told; the import itself matters more.
  }
}

}  // namespace

LogFailures::LogFailures(std::vector<std::string>& warnings) : m_warnings(warnings) {
  AFile::SetFailureHandler(&OnFailure);
}

LogFailures::~LogFailures() {
  AFile::SetFailureHandler(nullptr);
  try {
    const std::lock_guard lock(mutex);
    for (std::string& line : lines) m_warnings.push_back(std::move(line));
    lines.clear();
  } catch (const std::bad_alloc&) {
    // As above.
  }
}
