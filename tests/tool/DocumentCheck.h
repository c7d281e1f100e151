#pragma once

#include <string>
#include <vector>

#include "tool/ToolProcess.h"

namespace tool {

/// Remembers the JSON documents of a call: standard output, and the file of -o. At the end of the
/// test program, all are validated against the schemas in docs/schema, and an invalid one is a
/// failure. Documents of a call that a signal ended are not complete, and are left out.
void CollectDocuments(const Arguments& call, const Outcome& outcome);

/// A document for the validator. The schema "any" stands for those of all commands.
struct CollectedDocument {
  std::string schema;
  std::string call;
  std::string text;
};

/// Validates documents. `damages`: they are valid, and every small change must make them invalid.
/// Returns the validator's messages, which are empty on success. Throws std::runtime_error if the
/// validator is not installed.
std::string Validate(const std::vector<CollectedDocument>& documents, bool damages = false);

/// True if the validator is installed. If not, the test must skip itself.
bool CanValidate();

}  // namespace tool
