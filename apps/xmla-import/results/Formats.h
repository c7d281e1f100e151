#pragma once

#include <memory>
#include <string>
#include <vector>

#include "results/Form.h"

/// The names of all output formats, the default first.
std::vector<std::string> FormatNames();
/// Writes results in the format with this name. The name is one of FormatNames().
std::unique_ptr<Form> MakeForm(const std::string& format, ResultText& text);
