#include "Utility/Generic/ImportSettings.h"

namespace {

// A plain pointer: a thread-local object with a destructor would keep the library loaded.
thread_local const ImportSettings* g_settings = nullptr;

}  // namespace

const ImportSettings& ImportSettings::Current() noexcept {
  static const ImportSettings kDefaults;
  return g_settings ? *g_settings : kDefaults;
}

ImportSettings::Scope::Scope(const ImportSettings& settings) noexcept : m_previous(g_settings) {
  g_settings = &settings;
}

ImportSettings::Scope::~Scope() { g_settings = m_previous; }
