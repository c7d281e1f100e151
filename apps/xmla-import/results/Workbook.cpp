#include "results/Workbook.h"

#include <sys/mman.h>
#include <unistd.h>
#include <xlsxwriter.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "base/Descriptor.h"
#include "base/OutputError.h"
#include "base/Text.h"

namespace {

/// Set if a temporary file could not be written, see lxw_tmpfile. A process writes one workbook.
std::atomic<bool> g_hasLostData{false};

/// A temporary file in memory, in the list of those that are open.
struct MemoryFile {
  std::string bytes;
  std::size_t position = 0;
  FILE* stream = nullptr;
  MemoryFile* next = nullptr;
};
MemoryFile* g_files = nullptr;

MemoryFile& Of(void* cookie) { return *static_cast<MemoryFile*>(cookie); }

ssize_t ReadMemory(void* cookie, char* to, std::size_t size) {
  MemoryFile& file = Of(cookie);
  const std::size_t count =
      std::min(size, file.bytes.size() - std::min(file.position, file.bytes.size()));
  std::memcpy(to, file.bytes.data() + std::min(file.position, file.bytes.size()), count);
  file.position += count;
  return static_cast<ssize_t>(count);
}

ssize_t WriteMemory(void* cookie, const char* from, std::size_t size) {
  MemoryFile& file = Of(cookie);
  try {
    if (file.bytes.size() < file.position + size) file.bytes.resize(file.position + size);
  } catch (const std::exception&) {  // out of memory
    g_hasLostData = true;
    return 0;
  }
  std::memcpy(file.bytes.data() + file.position, from, size);
  file.position += size;
  return static_cast<ssize_t>(size);
}

int SeekMemory(void* cookie, off64_t* offset, int whence) {
  MemoryFile& file = Of(cookie);
  const std::size_t base = whence == SEEK_SET   ? 0
                           : whence == SEEK_CUR ? file.position
                                                : file.bytes.size();
  const off64_t position = static_cast<off64_t>(base) + *offset;
  if (position < 0) return -1;
  file.position = static_cast<std::size_t>(position);
  *offset = position;
  return 0;
}

int CloseMemory(void* cookie) {
  MemoryFile** place = &g_files;
  while (*place && *place != cookie) place = &(*place)->next;
  if (*place) *place = (*place)->next;
  delete &Of(cookie);
  return 0;
}

/// The library does not close the files of a workbook that it drops.
void CloseMemoryFiles() {
  while (g_files) fclose(g_files->stream);
}

}  // namespace

/// Replaces the function of libxlsxwriter that opens its temporary files. The library does not
/// notice when the disk of these files is full, and would write a workbook with missing rows.
extern "C" __attribute__((visibility("default"))) FILE* lxw_tmpfile(char*) {
  auto* const file = new (std::nothrow) MemoryFile();
  if (!file) return nullptr;
  FILE* const stream =
      fopencookie(file, "w+", {&ReadMemory, &WriteMemory, &SeekMemory, &CloseMemory});
  if (!stream) {
    delete file;
    return nullptr;
  }
  file->stream = stream;
  file->next = g_files;
  g_files = file;
  return stream;
}

namespace {

constexpr std::size_t kMaxNotices = 20;
constexpr double kMinWidth = 8;
constexpr double kMaxWidth = 60;
/// Workbooks have a creation time. It does not vary.
constexpr time_t kCreated = 315'532'800;  // 1980-01-01

bool IsHexadecimal(wchar_t c) {
  return (L'0' <= c && c <= L'9') || (L'A' <= c && c <= L'F') || (L'a' <= c && c <= L'f');
}

/// True for a text such as "_x0041_", which programs read as the character with that code.
bool LooksEscaped(String::View text) {
  constexpr std::size_t kLength = 7;
  if (text.size() < kLength || text[0] != L'_' || text[1] != L'x' || text[kLength - 1] != L'_')
    return false;
  return std::all_of(text.begin() + 2, text.begin() + kLength - 1, IsHexadecimal);
}

/// The text for a cell: without characters that XML cannot contain, and truncated. Control
/// characters are escaped by the library. `isCut` is set if the text is truncated.
std::string CellText(const String& text, bool& isCut) {
  String cell;
  std::size_t units = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto code = static_cast<std::uint32_t>(text[i]);
    units += code > 0xFFFF ? 2 : 1;
    if (units > Workbook::kMaxCharacters) {
      isCut = true;
      break;
    }
    const bool isOfXml = code != 0 && code != 0xFFFE && code != 0xFFFF;
    if (LooksEscaped(text.view().substr(i))) cell += String(L"_x005F");
    cell += isOfXml ? text[i] : L'\xFFFD';
  }
  return Utf8(cell);
}

}  // namespace

class Workbook::Book {
 public:
  explicit Book(std::size_t maxRows)
      : m_maxRows(maxRows), m_file(memfd_create("xlsx", MFD_CLOEXEC)) {
    if (!m_file.IsOpen()) Fail(std::strerror(errno));
    g_hasLostData = false;
    lxw_workbook_options options{};
    options.constant_memory = LXW_TRUE;
    m_book.reset(workbook_new_opt(FileName().c_str(), &options));
    if (!m_book) Fail("there is not enough memory");
    lxw_doc_properties properties{};
    properties.created = kCreated;
    Check(workbook_set_properties(m_book.get(), &properties));
    m_bold = workbook_add_format(m_book.get());
    if (!m_bold) Fail("there is not enough memory");
    format_set_bold(m_bold);
  }

  std::size_t AddSheet(const std::string& name, const std::vector<std::string_view>& keys) {
    Sheet& sheet = m_sheets.emplace_back();
    sheet.name = name;
    sheet.keys = keys;
    Open(sheet);
    return m_sheets.size() - 1;
  }

  void AddRow(std::size_t number, const Row& row) {
    Sheet& sheet = m_sheets.at(number);
    if (sheet.rows == m_maxRows) {
      Close(sheet);
      ++sheet.part;
      Open(sheet);
    }
    for (std::size_t column = 0; column < row.size(); ++column)
      PutCell(sheet, column, row[column].cell);
    ++sheet.rows;
  }

  std::vector<std::string> TakeNotices() {
    std::vector<std::string> notices = std::move(m_notices);
    if (m_moreNotices > 0)
      notices.push_back(std::to_string(m_moreNotices) + " more cells are truncated");
    m_notices.clear();
    m_moreNotices = 0;
    return notices;
  }

  void Finish(const std::function<void(std::string_view)>& write) {
    for (Sheet& sheet : m_sheets) Close(sheet);
    // Frees the book, also if it fails.
    const lxw_error error = workbook_close(m_book.release());
    CloseMemoryFiles();
    Check(error);
    if (g_hasLostData) Fail("there is not enough memory");
    std::array<char, std::size_t{64} << 10> block;
    off_t offset = 0;
    for (;;) {
      const ssize_t count = pread(m_file.Number(), block.data(), block.size(), offset);
      if (count < 0) Fail(std::strerror(errno));
      if (count == 0) return;
      write(std::string_view(block.data(), static_cast<std::size_t>(count)));
      offset += count;
    }
  }

 private:
  struct FreeBook {
    void operator()(lxw_workbook* book) const {
      lxw_workbook_free(book);
      CloseMemoryFiles();
    }
  };
  struct Sheet {
    std::string name;
    std::vector<std::string_view> keys;
    std::size_t part = 1;
    lxw_worksheet* sheet = nullptr;
    std::size_t rows = 0;  ///< of the current part, with the headings
    std::vector<double> widths;
    std::vector<bool> hasValue;  ///< of the current part, by column
    std::string PartName() const { return part == 1 ? name : name + ' ' + std::to_string(part); }
  };

  [[noreturn]] static void Fail(const std::string& reason) {
    throw OutputError("the workbook cannot be made: " + reason);
  }
  static void Check(lxw_error error) {
    if (error != LXW_NO_ERROR) Fail(lxw_strerror(error));
  }

  std::string FileName() const { return "/proc/self/fd/" + std::to_string(m_file.Number()); }

  void Open(Sheet& sheet) {
    sheet.sheet = workbook_add_worksheet(m_book.get(), sheet.PartName().c_str());
    if (!sheet.sheet) Fail("the sheet " + sheet.PartName() + " cannot be added");
    worksheet_freeze_panes(sheet.sheet, 1, 0);
    sheet.widths.assign(sheet.keys.size(), kMinWidth);
    sheet.hasValue.assign(sheet.keys.size(), false);
    for (std::size_t i = 0; i < sheet.keys.size(); ++i) {
      const std::string heading = Heading(sheet.keys[i]);
      Check(worksheet_write_string(sheet.sheet, 0, static_cast<lxw_col_t>(i), heading.c_str(),
                                   m_bold));
      Widen(sheet, i, heading.size());
    }
    sheet.rows = 1;
  }

  /// Adds what depends on all rows of the part.
  static void Close(const Sheet& sheet) {
    const auto columns = static_cast<lxw_col_t>(sheet.keys.size());
    Check(worksheet_autofilter(sheet.sheet, 0, 0, static_cast<lxw_row_t>(sheet.rows - 1),
                               static_cast<lxw_col_t>(columns - 1)));
    for (lxw_col_t i = 0; i < columns; ++i) {
      // Rows are written as they come, so a column cannot be left out at the end.
      lxw_row_col_options options{};
      options.hidden = !sheet.hasValue[i] && IsOfOneKind(sheet.keys[i]);
      Check(worksheet_set_column_opt(sheet.sheet, i, i, sheet.widths[i], nullptr, &options));
    }
  }

  static void Widen(Sheet& sheet, std::size_t column, std::size_t characters) {
    constexpr double kMargin = 2;
    const double wanted = static_cast<double>(characters) + kMargin;
    sheet.widths[column] = std::clamp(wanted, sheet.widths[column], kMaxWidth);
  }

  /// True for a column that only one kind of server fills.
  static bool IsOfOneKind(std::string_view key) { return key.starts_with("tamarind"); }

  void PutCell(Sheet& sheet, std::size_t column, const Cell& cell) {
    if (!cell.IsEmpty()) sheet.hasValue[column] = true;
    const auto row = static_cast<lxw_row_t>(sheet.rows);
    const auto place = static_cast<lxw_col_t>(column);
    if (cell.IsNumber())
      return Check(worksheet_write_number(sheet.sheet, row, place,
                                          static_cast<double>(cell.Number()), nullptr));
    const String text = cell.Text();
    bool isCut = false;
    const std::string bytes = CellText(text, isCut);
    if (isCut) AddNotice(sheet, column, text.size());
    Widen(sheet, column, text.size());
    Check(worksheet_write_string(sheet.sheet, row, place, bytes.c_str(), nullptr));
  }

  void AddNotice(const Sheet& sheet, std::size_t column, std::size_t characters) {
    if (m_notices.size() >= kMaxNotices) {
      ++m_moreNotices;
      return;
    }
    m_notices.push_back("row " + std::to_string(sheet.rows + 1) + " of the sheet " +
                        sheet.PartName() + " has a truncated " + Heading(sheet.keys[column]) +
                        ": a cell has at most 32767 characters, the text has " +
                        std::to_string(characters) + "; use another format");
  }

  const std::size_t m_maxRows;
  const Descriptor m_file;
  std::unique_ptr<lxw_workbook, FreeBook> m_book;
  lxw_format* m_bold = nullptr;
  std::vector<Sheet> m_sheets;
  std::vector<std::string> m_notices;
  std::size_t m_moreNotices = 0;
};

Workbook::Workbook(std::size_t maxRows) : m_book(std::make_unique<Book>(maxRows)) {}
Workbook::~Workbook() = default;
std::size_t Workbook::AddSheet(const std::string& name, const std::vector<std::string_view>& keys) {
  return m_book->AddSheet(name, keys);
}
void Workbook::AddRow(std::size_t sheet, const Row& row) { m_book->AddRow(sheet, row); }
std::vector<std::string> Workbook::TakeNotices() { return m_book->TakeNotices(); }
void Workbook::Finish(const std::function<void(std::string_view)>& write) { m_book->Finish(write); }
