#pragma once

#include <cstddef>

#include "Utility/Generic/ImportSettings.h"

/// The current settings, with a budget of `requests` at a time for `imports` import objects that
/// work at the same time. Without a budget if there is nothing to divide.
ImportSettings SettingsForRequests(int requests, std::size_t imports);
