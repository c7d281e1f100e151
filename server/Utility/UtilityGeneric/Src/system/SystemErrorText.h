#pragma once

#include "Utility/Generic/String.h"

/// The English text of an errno value, independent of the locale.
String SystemErrorText(int error);
