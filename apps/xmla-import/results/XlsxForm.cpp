#include <algorithm>
#include <map>
#include <optional>
#include <string_view>

#include "base/Text.h"
#include "results/Form.h"
#include "results/Tables.h"
#include "results/Workbook.h"

namespace {

using Keys = std::vector<std::string_view>;

/// A workbook with one sheet for the cubes, each table of Tables.h, and the messages.
class XlsxForm : public CubesForm {
 public:
  using CubesForm::CubesForm;
  using CubesForm::Write;

  void Write(const TreeResult& result) override {
    Keys keys{"dataSource", "catalog"};
    for (const std::string_view key : KeysOf<OTCube>()) keys.push_back(key);
    m_cubes = m_book.AddSheet("cubes", keys);
    for (const OTDataSource& source : result.dataSources) {
      if (source.m_catalogs.empty()) m_book.AddRow(m_cubes, {{"", &source.m_dataSourceName}});
      for (const OTCatalog& catalog : source.m_catalogs) WriteCatalog(source, catalog);
    }
    WriteMessages(result.messages);
  }

  void Write(const CubeResult& result) override {
    BeginCubes();
    AddCube(result);
    Finish();
  }

  void BeginImport(const ImportResult& result) override {
    BeginCubes();
    AddMessage("provider", nullptr,
               Utf8(result.providerName) + ", version " + Utf8(result.providerVersion) + ", kind " +
                   result.target);
  }

  void AddCube(const CubeResult& cube) override {
    Row summary = NamesOf(cube);
    summary.push_back({"", std::string(StateOf(cube))});
    for (const Table table : kTables) {
      Row row = NamesOf(cube);
      const std::size_t begin = row.size();
      long long count = 0;
      ForEachRow(cube, table, [&](const Row& cells) {
        ++count;
        row.resize(begin);
        row.insert(row.end(), cells.begin(), cells.end());
        m_book.AddRow(m_tables[table], row);
        return true;
      });
      summary.push_back({"", count});
    }
    const auto& [errors, warnings, _] = cube.messages;
    summary.push_back({"", static_cast<long long>(errors.size())});
    summary.push_back({"", static_cast<long long>(warnings.size()) -
                               std::ranges::count_if(warnings, &NeedsNoAction)});
    m_book.AddRow(m_cubes, summary);
    AddMessages(cube.messages, &cube);
  }

  void EndImport(const ImportResult& result) override { WriteMessages(result.messages); }

 private:
  void WriteOnly(const Messages& messages) override { WriteMessages(messages); }

  static Row NamesOf(const CubeResult& cube) {
    Row row;
    AppendCells(cube, Values::kWords, row);
    return row;
  }

  void BeginCubes() {
    const Keys names = KeysOf<CubeResult>();
    Keys keys = names;
    keys.push_back("state");
    for (const Table table : kTables) keys.push_back(NameOf(table));
    keys.insert(keys.end(), {"errors", "warnings"});
    m_cubes = m_book.AddSheet("cubes", keys);
    for (const Table table : kTables) {
      keys = names;
      for (const std::string_view key : KeysOf(table)) keys.push_back(key);
      m_tables[table] = m_book.AddSheet(NameOf(table), keys);
    }
  }

  void WriteCatalog(const OTDataSource& source, const OTCatalog& catalog) {
    Row row{{"", &source.m_dataSourceName}, {"", &catalog.m_catalogName}};
    const std::size_t begin = row.size();
    if (catalog.m_cubes.empty()) m_book.AddRow(m_cubes, row);
    for (const OTCube& cube : catalog.m_cubes) {
      row.resize(begin);
      AppendCells(cube, Values::kWords, row);
      m_book.AddRow(m_cubes, row);
    }
  }

  void WriteMessages(const Messages& messages) {
    AddMessages(messages, nullptr);
    Finish();
  }
  void AddMessages(const Messages& messages, const CubeResult* cube) {
    for (const std::string& line : messages.errors) AddMessage("error", cube, line);
    for (const std::string& line : messages.warnings)
      AddMessage(NeedsNoAction(line) ? "note" : "warning", cube, line);
  }
  void AddMessage(const char* kind, const CubeResult* cube, const std::string& text) {
    const CubeResult none;
    Row row{{"", std::string(kind)}};
    AppendCells(cube ? *cube : none, Values::kWords, row);
    row.push_back({"", text});
    m_book.AddRow(MessagesSheet(), row);
  }
  std::size_t MessagesSheet() {
    if (m_messages) return *m_messages;
    Keys keys{"kind"};
    for (const std::string_view key : KeysOf<CubeResult>()) keys.push_back(key);
    keys.push_back("message");
    m_messages = m_book.AddSheet("messages", keys);
    return *m_messages;
  }

  void Finish() {
    MessagesSheet();  // is in every workbook
    for (const std::string& notice : m_book.TakeNotices()) {
      AddNotice(notice);
      AddMessage("note", nullptr, notice);
    }
    m_book.Finish([this](std::string_view bytes) { Text().AppendBytes(bytes); });
  }

  Workbook m_book;
  std::size_t m_cubes = 0;
  std::map<Table, std::size_t> m_tables;
  std::optional<std::size_t> m_messages;
};

}  // namespace

std::unique_ptr<Form> MakeXlsxForm(ResultText& text) { return std::make_unique<XlsxForm>(text); }
