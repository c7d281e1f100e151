#include "Utility/Generic/ImportSettings.h"

namespace {

// A plain pointer: it needs no destructor at a thread's end, which would keep the library loaded.
thread_local const ImportSettings* t_current = nullptr;

}  // namespace

const ImportSettings& ImportSettings::Current() noexcept {
  static const ImportSettings kDefaults;
  return t_current ? *t_current : kDefaults;
}

ImportSettings::Scope::Scope(const ImportSettings& settings) noexcept : m_former(t_current) {
  t_current = &settings;
}

ImportSettings::Scope::~Scope() { t_current = m_former; }
