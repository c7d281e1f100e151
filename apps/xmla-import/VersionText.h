#pragma once

#include <string>

/// The text of --version: version and commit of the tool, the libraries that it uses and what they
/// can do, and its formats.
std::string VersionText();
