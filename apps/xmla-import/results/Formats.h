#pragma once

#include <memory>
#include <string>
#include <vector>

#include "call/OutputFormat.h"
#include "results/Form.h"

/// All output formats, the default first.
OutputFormats Formats();
/// Their names.
std::vector<std::string> FormatNames();
/// Writes results in the format with this name, which is one of FormatNames().
std::unique_ptr<Form> MakeForm(const std::string& format, ResultText& text);
