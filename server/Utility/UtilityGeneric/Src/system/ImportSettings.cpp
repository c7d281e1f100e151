#include "Utility/Generic/ImportSettings.h"

namespace {

// A plain pointer: a thread-local object with a destructor would keep the library loaded.
thread_local const ImportSettings* g_current = nullptr;

}  // namespace

const ImportSettings& ImportSettings::Current() noexcept {
  static const ImportSettings kDefaults;
  return g_current ? *g_current : kDefaults;
}

ImportSettings::Scope::Scope(const ImportSettings& settings) noexcept : m_previous(g_current) {
  g_current = &settings;
}

ImportSettings::Scope::~Scope() { g_current = m_previous; }
