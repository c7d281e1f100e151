#pragma once

// Exports a symbol of a shared library. All other symbols are hidden.
#define XMLAHOST_API __attribute__((visibility("default")))
