#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "diff/Change.h"

// How the records of two documents are compared: one table row per field.

/// A field of a record.
struct FieldRule {
  std::string_view key;   ///< in JSON; "unit.type" is a member of a member
  std::string_view what;  ///< for people and for ids, such as "type"
  ChangeClass severity = ChangeClass::kBreaking;
  std::string_view sameAs = {};  ///< if both fields changed in the same way, only this one counts
};

struct RecordRule;

/// A list of records in a record.
struct ListRule {
  std::string_view key;
  const RecordRule* record;
};

/// A kind of record. Texts, such as messages, are records without fields.
struct RecordRule {
  std::string_view kind;
  std::string_view plural;
  std::span<const std::string_view> names;  ///< keys by which records are matched; empty: texts
  std::span<const FieldRule> fields = {};
  std::span<const ListRule> lists = {};
  bool isMessage = false;  ///< always cosmetic, in any order
};

/// A document of `import`; a document of `cube` is treated as one with this cube.
extern const RecordRule kImportRule;
/// A document of `tree`.
extern const RecordRule kTreeRule;

/// Ids of changes of a record.
std::string RemovedId(const RecordRule& rule);
std::string AddedId(const RecordRule& rule);
std::string ReorderedId(const RecordRule& rule);
std::string ChangedId(const RecordRule& rule, const FieldRule& field);

/// All kinds of changes, in the order of the records.
std::vector<ChangeKind> ChangeKinds();
