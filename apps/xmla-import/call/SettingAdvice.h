#pragma once

#include "Utility/Generic/HTTPClientWrapper.h"

/// Which option changes a setting of the connection, as advice; null: there is none.
const char* SettingAdvice(HTTPSetting setting);
