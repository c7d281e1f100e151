#pragma once

#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Import/EnumNames.h"
#include "base/Text.h"
#include "results/Fields.h"
#include "results/TextColumn.h"
#include "results/TextLegend.h"

// The members of a record as cells of a table.

/// A number, a text of the result (the result must outlive the cell), or a text in UTF-8. Not a
/// std::variant: copying one whose text cannot be allocated has undefined behaviour in GCC 12.
class Cell {
 public:
  Cell() = default;
  Cell(long long number) : m_number(number) {}  // NOLINT: cells are lists of values
  Cell(const String* name) : m_name(name) {}    // NOLINT
  Cell(std::string text) : m_isText(true), m_text(std::move(text)) {}  // NOLINT

  bool IsNumber() const { return !m_isText && !m_name; }
  long long Number() const { return m_number; }
  String Text() const { return m_name ? *m_name : Wide(m_text); }
  /// True for an empty text, and for 0.
  bool IsEmpty() const {
    if (m_isText) return m_text.empty();
    return m_name ? m_name->empty() : m_number == 0;
  }

 private:
  bool m_isText = false;
  long long m_number = 0;
  const String* m_name = nullptr;
  std::string m_text;
};

struct NamedCell {
  std::string_view key;  ///< as in Fields.h
  Cell cell;
};
using Row = std::vector<NamedCell>;

/// How enumerators are written.
enum class Values {
  kNames,  ///< the enumerator's name; for a value without a name, its number
  kWords,  ///< for people; an unknown number is an empty cell
};

/// True for a member that the import never sets. It has the same value in every result, so tables
/// have no column for it. docs/formats.md lists these members.
bool IsConstant(std::string_view key);
/// The key as a heading for people: the word of the HTML report, else the key in words, such as
/// "data source" for "dataSource".
std::string Heading(std::string_view key);
/// A word of the text format without parentheses and without the label before a colon.
std::string WithoutLabel(const std::string& word);
/// "complete"; after errors "incomplete" or "not read".
std::string_view StateOf(const CubeResult& cube);

template <class Enum>
std::string EnumText(Enum value, Values values) {
  if (values == Values::kWords) {
    if constexpr (std::is_same_v<Enum, OTXMLAUnit::AggrType>)
      if (value == OTXMLAUnit::kAggrUnknown) return {};  // not a measure
    if constexpr (requires { Word(value); }) return WithoutLabel(Word(value));
    if constexpr (requires { TypeName(value); }) return TypeName(value);
  }
  const std::string_view name = EnumName(value);
  return name.empty() ? std::to_string(static_cast<long long>(value)) : std::string(name);
}

/// A list is not a cell, and neither is another record.
template <class Type>
constexpr bool kIsCell = std::is_enum_v<Type> || std::is_integral_v<Type> ||
                         std::is_same_v<Type, String> || std::is_same_v<Type, std::string>;

template <class Type>
Cell CellOf(const Type& member, Values values) {
  if constexpr (std::is_enum_v<Type>)
    return EnumText(member, values);
  else if constexpr (std::is_integral_v<Type>)
    return values == Values::kWords && static_cast<long long>(member) == -1
               ? Cell(std::string())
               : Cell(static_cast<long long>(member));
  else if constexpr (std::is_same_v<Type, String>)
    return &member;
  else
    return member;
}

/// Appends a cell for each member of the record that is a column.
template <class Record>
void AppendCells(const Record& record, Values values, Row& row) {
  VisitFields(record, [&](std::string_view key, const auto& member) {
    using Type = std::remove_cvref_t<decltype(member)>;
    if constexpr (kIsCell<Type>)
      if (!IsConstant(key)) row.push_back({key, CellOf(member, values)});
    if constexpr (std::is_same_v<Record, OTXMLAUnit>)
      if (values == Values::kWords && key == "precision" && IsPrecisionUnknown(record))
        row.back().cell = std::string();
  });
}

/// The keys of the columns of a record.
template <class Record>
std::vector<std::string_view> KeysOf() {
  Row row;
  const Record record;
  AppendCells(record, Values::kNames, row);
  std::vector<std::string_view> keys;
  for (const NamedCell& cell : row) keys.push_back(cell.key);
  return keys;
}
