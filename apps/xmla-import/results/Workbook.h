#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "results/Cells.h"

/// A workbook for spreadsheets (Office Open XML). Texts are text cells, never formulas or links;
/// numbers are numbers. The first row of a sheet has the headings, with a filter, and stays
/// visible. A column that only one kind of server fills is hidden if it is empty. The same calls
/// give the same bytes.
///
/// At most one object per process at a time. The workbook is in memory until it is finished,
/// because the library that writes it does not report every write error of a temporary file.
class Workbook {
 public:
  /// Limits of spreadsheet programs.
  static constexpr std::size_t kMaxRows = 1'048'576;
  static constexpr std::size_t kMaxCharacters = 32'767;  ///< UTF-16 code units of a cell

  /// `maxRows`: of a sheet, with the headings.
  explicit Workbook(std::size_t maxRows = kMaxRows);
  ~Workbook();
  Workbook(const Workbook&) = delete;
  Workbook& operator=(const Workbook&) = delete;

  /// Adds a sheet with these columns, whose headings are made from the keys. Returns its number.
  std::size_t AddSheet(const std::string& name, const std::vector<std::string_view>& keys);
  /// Adds a row. A full sheet continues in another one with the same headings, such as "levels 2".
  /// Longer texts than kMaxCharacters are truncated. Throws OutputError.
  void AddRow(std::size_t sheet, const Row& row);
  /// One text for each truncated cell since the last call, at most 20, and one for all others.
  std::vector<std::string> TakeNotices();
  /// Completes the workbook and passes its bytes to `write` in blocks. Call this last. Throws
  /// OutputError.
  void Finish(const std::function<void(std::string_view)>& write);

 private:
  class Book;
  const std::unique_ptr<Book> m_book;
};
