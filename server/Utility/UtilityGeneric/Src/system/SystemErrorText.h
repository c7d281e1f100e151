#pragma once

#include "Utility/Generic/String.h"

/// What an errno value means, in English whatever the locale.
String SystemErrorText(int error);
