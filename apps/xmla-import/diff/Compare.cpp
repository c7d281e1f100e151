#include "diff/Compare.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <unordered_map>

namespace {

using Json = nlohmann::json;

const Json& Field(const Json& record, std::string_view path) {
  const Json* value = &record;
  while (!path.empty()) {
    const std::string_view key = path.substr(0, path.find('.'));
    value = &value->at(std::string(key));
    path.remove_prefix(std::min(key.size() + 1, path.size()));
  }
  return *value;
}

/// A value for people: texts without quotation marks.
std::string Shown(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

/// The name by which a record is matched. If it has several names, they are joined with NUL.
std::string KeyOf(const Json& record, const RecordRule& rule) {
  if (rule.names.empty()) return record.get<std::string>();
  std::string key;
  for (const std::string_view name : rule.names)
    key += record.at(std::string(name)).get<std::string>() + '\0';
  return key;
}

std::string NameOf(const Json& record, const RecordRule& rule) {
  if (rule.names.empty()) return record.get<std::string>();
  return record.at(std::string(rule.names.back())).get<std::string>();
}

/// The positions of records by name. Records with the same name are matched in their order.
class Positions {
 public:
  Positions(const Json& items, const RecordRule& rule) {
    for (std::size_t i = 0; i < items.size(); ++i) m_positions[KeyOf(items[i], rule)].push_back(i);
    for (auto& [key, positions] : m_positions) std::ranges::reverse(positions);
  }
  /// The next record with this name.
  std::optional<std::size_t> Take(const std::string& key) {
    const auto found = m_positions.find(key);
    if (found == m_positions.end() || found->second.empty()) return std::nullopt;
    const std::size_t position = found->second.back();
    found->second.pop_back();
    return position;
  }

 private:
  std::unordered_map<std::string, std::vector<std::size_t>> m_positions;
};

/// A record without its names and display names, to recognise renamed ones.
Json WithoutNames(Json record, const RecordRule& rule) {
  for (const std::string_view name : rule.names) record.erase(std::string(name));
  for (const char* const key : {"name", "externalName", "caption"}) {
    record.erase(key);
    if (record.contains("unit")) record["unit"].erase(key);
  }
  return record;
}

class Comparer {
 public:
  explicit Comparer(Comparison& result) : m_result(result) {}

  void Record(const Json& before, const Json& after, const RecordRule& rule) {
    for (const FieldRule& field : rule.fields) {
      if (field.key.starts_with("provider.") &&
          !(before.contains("provider") && after.contains("provider")))
        continue;
      const Json& old = Field(before, field.key);
      const Json& now = Field(after, field.key);
      if (old == now) continue;
      if (!field.sameAs.empty() && old == Field(before, field.sameAs) &&
          now == Field(after, field.sameAs))
        continue;
      const bool isSameText = Shown(old) == Shown(now);  // such as 7 and "7"
      Add(ChangedId(rule, field), field.severity, std::string(field.what),
          isSameText ? old.dump() : Shown(old), isSameText ? now.dump() : Shown(now));
    }
    for (const ListRule& list : rule.lists)
      List(before.at(std::string(list.key)), after.at(std::string(list.key)), *list.record);
  }

 private:
  void List(const Json& before, const Json& after, const RecordRule& rule) {
    Positions positions(before, rule);
    std::vector<std::optional<std::size_t>> oldPositions;  // of the new records
    std::vector<bool> isKept(before.size());
    for (const Json& item : after) {
      oldPositions.push_back(positions.Take(KeyOf(item, rule)));
      if (oldPositions.back()) isKept[*oldPositions.back()] = true;
    }
    Count(rule, isKept);
    for (std::size_t i = 0; i < before.size(); ++i)
      if (!isKept[i]) Removed(before[i], rule, RenamedTo(before, i, after, oldPositions, rule));
    for (std::size_t i = 0; i < after.size(); ++i) {
      if (!oldPositions[i]) {
        Added(after[i], rule);
      } else if (!rule.isMessage) {
        Enter(after[i], rule);
        Record(before[*oldPositions[i]], after[i], rule);
        Leave(rule);
      }
    }
    std::erase(oldPositions, std::nullopt);
    if (!rule.isMessage && !std::ranges::is_sorted(oldPositions))
      Add(ReorderedId(rule), ChangeClass::kCosmetic, "order of its " + std::string(rule.plural), "",
          "");
  }

  /// The new name, if the record at the same place is new and has the same content.
  static std::string RenamedTo(const Json& before, std::size_t position, const Json& after,
                               const std::vector<std::optional<std::size_t>>& oldPositions,
                               const RecordRule& rule) {
    if (rule.isMessage || position >= after.size() || oldPositions[position]) return {};
    if (WithoutNames(before[position], rule) != WithoutNames(after[position], rule)) return {};
    return NameOf(after[position], rule);
  }

  void Removed(const Json& record, const RecordRule& rule, const std::string& newName) {
    Enter(record, rule);
    const ChangeClass severity = rule.isMessage ? ChangeClass::kCosmetic : ChangeClass::kBreaking;
    Add(RemovedId(rule), severity, rule.isMessage ? "is gone" : "removed", "", "");
    if (!newName.empty())
      m_result.changes.back().remark =
          "perhaps renamed to \"" + newName + "\", which has the same content";
    Leave(rule);
  }

  void Added(const Json& record, const RecordRule& rule) {
    Enter(record, rule);
    Add(AddedId(rule), rule.isMessage ? ChangeClass::kCosmetic : ChangeClass::kAddition,
        rule.isMessage ? "is new" : "added", "", "");
    Leave(rule);
  }

  void Enter(const Json& record, const RecordRule& rule) {
    m_path.push_back({rule.kind, NameOf(record, rule)});
    if (rule.names.size() < 2)
      return;  // else the name has several parts, such as data source and catalog
    m_path.pop_back();
    for (const std::string_view name : rule.names)
      m_path.push_back({name == "dataSource" ? "data source" : name,
                        record.at(std::string(name)).get<std::string>()});
  }

  void Leave(const RecordRule& rule) {
    m_path.resize(m_path.size() - std::max<std::size_t>(1, rule.names.size()));
  }

  void Add(std::string id, ChangeClass severity, std::string what, std::string before,
           std::string after) {
    m_result.changes.push_back({std::move(id),
                                severity,
                                m_path,
                                std::move(what),
                                std::move(before),
                                std::move(after),
                                {}});
  }

  void Count(const RecordRule& rule, const std::vector<bool>& isKept) {
    if (rule.isMessage) return;
    const auto found = std::ranges::find(m_result.compared, rule.plural, &ComparedRecords::plural);
    if (found == m_result.compared.end()) return;
    found->count += static_cast<std::size_t>(std::ranges::count(isKept, true));
  }

  Comparison& m_result;
  std::vector<PathPart> m_path;
};

}  // namespace

Comparison Compare(const Document& before, const Document& after) {
  Comparison result;
  Comparer(result).Record(*before.content, *after.content, before.Rule());
  return result;
}
