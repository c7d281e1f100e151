#pragma once

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "diff/RecordRules.h"

/// One side of a comparison.
struct Document {
  enum class Kind { kImport, kCube, kTree };

  std::string name;   ///< the file as given, "standard input" or "the service"
  std::string shown;  ///< the same, with a file in quotation marks
  Kind kind = Kind::kImport;
  /// As `kImportRule` or `kTreeRule` describes. Owned by the Document.
  std::shared_ptr<const nlohmann::json> content;

  const RecordRule& Rule() const { return kind == Kind::kTree ? kTreeRule : kImportRule; }
};

const char* KindName(Document::Kind kind);

/// Reads a document that `import`, `cube` or `tree` wrote as JSON. `name` may be "-" for standard
/// input. Throws UsageError, which says what is wrong with the file.
Document ReadDocument(const std::string& name);
/// The same for a text. `name` and `shown` are as in Document.
Document ParseDocument(const std::string& text, const std::string& name, const std::string& shown);
