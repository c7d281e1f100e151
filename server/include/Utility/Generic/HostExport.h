#pragma once

// Marks what libxmlahost.so offers to its users. Everything else in it is hidden.
#define XMLAHOST_API __attribute__((visibility("default")))
