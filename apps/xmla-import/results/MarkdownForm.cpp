#include <algorithm>
#include <string_view>

#include "base/Text.h"
#include "results/ChangeText.h"
#include "results/Form.h"
#include "results/Tables.h"

namespace {

/// True if the character may begin markup inside a line, or complete a link such as "www.x".
bool IsMarkup(String::View text, std::size_t place) {
  constexpr std::wstring_view kMarkup = L"\\`*_[]<>#&|~!@$^=";
  // It begins the name of an emoji, or ends the scheme of a link.
  if (text[place] == L':') return place + 1 < text.size() && text[place + 1] != L' ';
  return kMarkup.find(text[place]) != kMarkup.npos ||
         (text[place] == L'.' && text.substr(0, place).ends_with(L"www"));
}

/// Headings and tables of GitHub Flavored Markdown.
class MarkdownForm : public CubesForm {
 public:
  using CubesForm::CubesForm;
  using CubesForm::Write;

  void Write(const TreeResult& result) override {
    for (const OTDataSource& source : result.dataSources) {
      if (MustStop()) break;
      BeginHeading(m_depth);
      PutName(source.m_dataSourceName);
      EndBlock();
      if (source.m_catalogs.empty()) Paragraph("No catalogs.");
      for (const OTCatalog& catalog : source.m_catalogs) WriteCatalog(catalog);
    }
    WriteMessages(result.messages);
  }

  void Write(const CubeResult& result) override { WriteCube(result, SummaryOf(result)); }

  void Write(const DiffResult& result) override {
    if (result.before.empty()) return WriteMessages(result.messages);
    BeginHeading(1);
    Text().Append("Changes");
    EndBlock();
    PutText(Wide(result.before + " compared with " + result.after + ": " + FoundText(result)));
    EndBlock();
    m_depth = 2;
    for (const ChangeClass severity : kAllChangeClasses)
      WriteTable({.heading = ClassName(severity), .rows = [&](const Use& use) {
                    for (const Change& change : result.comparison.changes)
                      if (change.severity == severity && !use({{"where", PathText(change.path)},
                                                               {"change", ChangeText(change)},
                                                               {"id", change.id}}))
                        return;
                  }});
    PutText(Wide("Compared: " + ComparedText(result)));
    EndBlock();
    WriteMessages(result.messages);
  }

  void BeginImport(const ImportResult& result) override {
    BeginHeading(1);
    Text().Append("Import");
    EndBlock();
    Row row;
    AppendCells(result, Values::kWords, row);
    WriteTable({.rows = [&](const Use& use) { use(row); }, .keepsEmpty = true});
    m_depth = 2;
  }

  void AddCube(const CubeResult& cube) override {
    Row row = SummaryOf(cube);
    WriteCube(cube, row);
    row.insert(row.begin(), {"cube", Utf8(cube.cube)});
    m_cubes.push_back(std::move(row));
  }
  void EndImport(const ImportResult& result) override {
    WriteTable({.heading = "cubes",
                .rows =
                    [&](const Use& use) {
                      for (const Row& row : m_cubes)
                        if (!use(row)) return;
                    },
                .keepsEmpty = true});
    WriteMessages(result.messages);
  }

 private:
  void WriteOnly(const Messages& messages) override { WriteMessages(messages); }

  using Use = std::function<bool(const Row&)>;

  struct TableText {
    const char* heading = "";  ///< empty: none
    std::function<void(const Use&)> rows;
    /// Otherwise a column is omitted in which every cell is empty, 0 or unknown.
    bool keepsEmpty = false;
  };

  void WriteCube(const CubeResult& cube, const Row& summary) {
    BeginHeading(m_depth++);
    PutName(cube.cube);
    EndBlock();
    WriteTable({.rows = [&](const Use& use) { use(summary); }, .keepsEmpty = true});
    for (const Table table : kTables) {
      if (MustStop()) break;
      WriteTable({.heading = NameOf(table),
                  .rows = [&](const Use& use) { ForEachRow(cube, table, use); }});
    }
    WriteMessages(cube.messages);
    --m_depth;
  }

  /// The cube may be gone when the row is used.
  static Row SummaryOf(const CubeResult& cube) {
    Row row{{"dataSource", Utf8(cube.dataSource)},
            {"catalog", Utf8(cube.catalog)},
            {"state", std::string(StateOf(cube))}};
    for (const Table table : kTables) {
      long long count = 0;
      ForEachRow(cube, table, [&](const Row&) {
        ++count;
        return true;
      });
      row.push_back({NameOf(table), count});
    }
    return row;
  }

  void WriteCatalog(const OTCatalog& catalog) {
    if (MustStop()) return;
    BeginHeading(m_depth + 1);
    PutName(catalog.m_catalogName);
    EndBlock();
    if (catalog.m_cubes.empty()) Paragraph("No cubes.");
    WriteTable({.rows =
                    [&](const Use& use) {
                      Row row;
                      for (const OTCube& cube : catalog.m_cubes) {
                        row.clear();
                        AppendCells(cube, Values::kWords, row);
                        if (!use(row)) return;
                      }
                    },
                .keepsEmpty = true});
  }

  void WriteMessages(const Messages& messages) {
    std::vector<std::string> errors = messages.errors;
    if (IsCut()) errors.emplace_back(kCutShort);
    WriteLines("errors", "error", errors);
    std::vector<std::string> warnings;
    std::vector<std::string> notes;
    for (const std::string& line : messages.warnings)
      (NeedsNoAction(line) ? notes : warnings).push_back(line);
    WriteLines("warnings", "warning", warnings);
    WriteLines("notes", "note", notes);
  }
  void WriteLines(const char* heading, std::string_view key, const std::vector<std::string>& all) {
    WriteTable({.heading = heading, .rows = [&](const Use& use) {
                  for (const std::string& line : all)
                    if (!use({{key, line}})) return;
                }});
  }

  /// Writes a table that is not empty. Reads the rows twice: first to find the columns.
  void WriteTable(const TableText& table) {
    std::vector<std::string_view> keys;
    std::vector<bool> isShown;
    table.rows([&](const Row& row) {
      if (keys.empty())
        for (const NamedCell& each : row) keys.push_back(each.key);
      isShown.resize(keys.size(), table.keepsEmpty);
      for (std::size_t i = 0; i < row.size(); ++i)
        isShown[i] = isShown[i] || !row[i].cell.IsEmpty();
      return true;
    });
    if (keys.empty()) return;
    isShown[0] = true;  // a table has at least one column
    if (*table.heading) {
      BeginHeading(m_depth);
      Text().Append(static_cast<char>(*table.heading - 'a' + 'A'));
      Text().Append(table.heading + 1);
      EndBlock();
    }
    Row heading;
    Row rule;
    for (const std::string_view key : keys) {
      heading.push_back({key, Heading(key)});
      rule.push_back({key, std::string("---")});
    }
    WriteRow(heading, isShown);
    WriteRow(rule, isShown);
    table.rows([&](const Row& row) {
      if (MustStop()) return false;
      WriteRow(row, isShown);
      return true;
    });
    Text().EndLine();
  }

  void WriteRow(const Row& row, const std::vector<bool>& isShown) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (!isShown[i]) continue;
      Text().Append("| ");
      PutCell(row[i].cell);
      Text().Append(' ');
    }
    Text().Append('|');
    Text().EndLine();
  }

  void PutCell(const Cell& cell) {
    if (cell.IsNumber())
      Text().Append(std::to_string(cell.Number()));
    else
      PutText(cell.Text());
  }

  void BeginHeading(std::size_t level) {
    for (; level > 0; --level) Text().Append('#');
    Text().Append(' ');
  }
  void Paragraph(std::string_view ours) {
    Text().Append(ours);
    EndBlock();
  }
  void EndBlock() {
    Text().EndLine();
    Text().EndLine();
  }

  void PutName(const String& name) {
    if (name.empty()) return Text().Append("(no name)");
    PutText(name);
  }
  /// Blanks at the ends and line breaks are character references: as such, they stay.
  void PutText(const String& text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
      const wchar_t character = text[i];
      const bool isAtEnd = i == 0 || i + 1 == text.size();
      if (IsMarkup(text.view(), i)) {
        Text().Append('\\');
        Text().Append(static_cast<char>(character));
      } else if (character < L' ' || (character == L' ' && isAtEnd)) {
        Text().Append("&#");
        Text().Append(std::to_string(static_cast<int>(character)));
        Text().Append(';');
      } else {
        Text().AppendCharacter(character);
      }
    }
  }

  std::size_t m_depth = 1;   // level of the next heading
  std::vector<Row> m_cubes;  // of an import: a row for each
};

}  // namespace

std::unique_ptr<Form> MakeMarkdownForm(ResultText& text) {
  return std::make_unique<MarkdownForm>(text);
}
