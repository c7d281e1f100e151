#pragma once

#include <string>
#include <string_view>
#include <vector>

/// What a change means for somebody who relied on the old state.
enum class ChangeClass {
  kBreaking,  ///< may fail: something is gone, or has another type
  kAddition,  ///< did not exist
  kCosmetic,  ///< looks different: display names, order, messages
};

inline constexpr ChangeClass kAllChangeClasses[] = {ChangeClass::kBreaking, ChangeClass::kAddition,
                                                    ChangeClass::kCosmetic};
inline constexpr const char* kChangeClasses[] = {"breaking", "addition", "cosmetic"};
inline const char* ClassName(ChangeClass value) { return kChangeClasses[static_cast<int>(value)]; }

/// A record on the way from the document to the changed one.
struct PathPart {
  std::string_view kind;  ///< such as "hierarchy"
  std::string name;       ///< by which both documents are matched
};

/// A difference between two documents. Texts are UTF-8.
struct Change {
  std::string id;  ///< kind of change, the same in every version, such as "measure-type-changed"
  ChangeClass severity = ChangeClass::kBreaking;
  std::vector<PathPart> path;  ///< empty: the document itself
  std::string what;            ///< such as "type" or "removed"
  std::string before;          ///< value of a changed field
  std::string after;
  std::string remark;  ///< what else may be the cause; usually empty
};

/// What can change, for the documentation.
struct ChangeKind {
  std::string id;
  ChangeClass severity;
};
