#include <algorithm>
#include <string_view>

#include "results/Cells.h"
#include "results/Form.h"

namespace {

using Keys = std::vector<std::string_view>;

/// Adds the keys that the list does not have.
void Merge(const Keys& more, Keys& keys) {
  for (const std::string_view key : more)
    if (std::ranges::find(keys, key) == keys.end()) keys.push_back(key);
}

/// The keys of the records that are fields, and of the provider.
Keys FieldKeys() {
  Keys keys = KeysOf<OTXMLAUnit>();
  Merge(KeysOf<XmlACubeVariable>(), keys);
  Merge(KeysOf<ImportResult>(), keys);
  return keys;
}

/// Comma-separated values: one row per field of a cube, after the names of its cube, hierarchy and
/// level. The column "kind" says what a row is.
class CsvForm : public CubesForm {
 public:
  using CubesForm::CubesForm;
  using CubesForm::Write;

  void Write(const TreeResult& result) override {
    m_cubeKeys = KeysOf<OTCube>();
    Keys columns{"kind", "dataSource", "catalog"};
    columns.insert(columns.end(), m_cubeKeys.begin(), m_cubeKeys.end());
    columns.push_back("message");
    Header(columns);
    for (const OTDataSource& source : result.dataSources) {
      if (MustStop()) break;
      if (source.m_catalogs.empty()) BeginRow("dataSource", {&source.m_dataSourceName});
      if (source.m_catalogs.empty()) EndRow();
      for (const OTCatalog& catalog : source.m_catalogs) WriteCatalog(source, catalog);
    }
    WriteMessages(result.messages);
  }

  void Write(const CubeResult& result) override {
    HeaderOfCubes();
    AddCube(result);
  }

  void BeginImport(const ImportResult& result) override {
    HeaderOfCubes();
    BeginRow("provider", {});
    PutEmpty(kCubeColumns + m_hierarchyKeys.size() + m_levelKeys.size());
    PutField(result);
    EndRow();
  }

  void AddCube(const CubeResult& cube) override {
    m_cube = &cube;
    if (cube.IsEmpty()) {
      BeginCubeRow("cube");
      EndRow();
    }
    for (const OTXMLAHierarchy& hierarchy : cube.hierarchies) {
      if (MustStop()) break;
      WriteHierarchy(hierarchy);
    }
    for (const OTXMLAUnit& measure : cube.measures)
      if (!MustStop()) WriteField("measure", nullptr, nullptr, measure);
    for (const XmlACubeVariable& variable : cube.sapVariables)
      if (!MustStop()) WriteField("variable", nullptr, nullptr, variable);
    WriteMessages(cube.messages);
    m_cube = nullptr;
  }

  void EndImport(const ImportResult& result) override { WriteMessages(result.messages); }

 private:
  static constexpr std::size_t kCubeColumns = 4;  // of HeaderOfCubes

  void WriteOnly(const Messages& messages) override {
    Header({"kind", "message"});
    WriteMessages(messages);
  }

  void HeaderOfCubes() {
    m_hierarchyKeys = KeysOf<OTXMLAHierarchy>();
    m_levelKeys = KeysOf<OTXMLALevel>();
    m_fieldKeys = FieldKeys();
    for (const char* const key : {"kind", "dataSource", "catalog", "cube", "state"})
      Put(std::string(key));
    for (const std::string_view key : m_hierarchyKeys) Put("hierarchy." + std::string(key));
    for (const std::string_view key : m_levelKeys) Put("level." + std::string(key));
    for (const std::string_view key : m_fieldKeys) Put(std::string(key));
    Put(std::string("message"));
    m_columns = m_used;
    EndRow();
  }

  void WriteCatalog(const OTDataSource& source, const OTCatalog& catalog) {
    if (catalog.m_cubes.empty()) {
      BeginRow("catalog", {&source.m_dataSourceName, &catalog.m_catalogName});
      EndRow();
    }
    for (const OTCube& cube : catalog.m_cubes) {
      if (MustStop()) return;
      BeginRow("cube", {&source.m_dataSourceName, &catalog.m_catalogName});
      PutRecord(cube);
      EndRow();
    }
  }

  void WriteHierarchy(const OTXMLAHierarchy& hierarchy) {
    if (hierarchy.m_levels.empty()) {
      BeginCubeRow("hierarchy");
      PutRecord(hierarchy);
      EndRow();
    }
    for (const OTXMLALevel& level : hierarchy.m_levels) {
      if (MustStop()) return;
      WriteField("level", &hierarchy, &level, level.m_level);
      for (const OTXMLAUnit& property : level.m_memberProperties)
        if (!MustStop()) WriteField("property", &hierarchy, &level, property);
    }
  }

  /// A row of a level, property, measure or variable.
  template <class Field>
  void WriteField(const char* kind, const OTXMLAHierarchy* hierarchy, const OTXMLALevel* level,
                  const Field& field) {
    BeginCubeRow(kind);
    hierarchy ? PutRecord(*hierarchy) : PutEmpty(m_hierarchyKeys.size());
    level ? PutRecord(*level) : PutEmpty(m_levelKeys.size());
    PutField(field);
    EndRow();
  }

  void WriteMessages(const Messages& messages) {
    for (const std::string& line : messages.errors) WriteMessage("error", line);
    if (IsCut()) WriteMessage("error", kCutShort);
    for (const std::string& line : messages.warnings) WriteMessage("warning", line);
  }
  void WriteMessage(const char* kind, const std::string& line) {
    if (m_cube)
      BeginCubeRow(kind);
    else
      BeginRow(kind, {});
    PutEmpty(m_columns - m_used - 1);
    Put(line);
    EndRow();
  }

  void Header(const Keys& columns) {
    for (const std::string_view key : columns) Put(std::string(key));
    m_columns = m_used;
    EndRow();
  }

  void BeginRow(std::string kind, std::initializer_list<const String*> texts) {
    Put(std::move(kind));
    for (const String* const text : texts) Put(text);
  }
  void BeginCubeRow(const char* kind) {
    BeginRow(kind, {&m_cube->dataSource, &m_cube->catalog, &m_cube->cube});
    Put(std::string(StateOf(*m_cube)));
  }

  template <class Record>
  void PutRecord(const Record& record) {
    m_row.clear();
    AppendCells(record, Values::kNames, m_row);
    for (const NamedCell& cell : m_row) Put(cell.cell);
  }

  /// The members of the record in the columns of all fields.
  template <class Record>
  void PutField(const Record& record) {
    m_row.clear();
    AppendCells(record, Values::kNames, m_row);
    for (const std::string_view key : m_fieldKeys) {
      const auto found = std::ranges::find(m_row, key, &NamedCell::key);
      Put(found == m_row.end() ? Cell(std::string()) : found->cell);
    }
  }

  void PutEmpty(std::size_t cells) {
    for (; cells > 0; --cells) Put(std::string());
  }
  void Put(const Cell& cell) {
    if (m_used++ > 0) Text().Append(',');
    if (cell.IsNumber())
      Text().Append(std::to_string(cell.Number()));
    else
      PutText(cell.Text());
  }
  void PutText(const String& text) {
    const auto needsQuotes = [](wchar_t c) {
      return c == L'"' || c == L',' || c == L'\r' || c == L'\n';
    };
    if (std::none_of(text.begin(), text.end(), needsQuotes)) return Text().AppendName(text);
    Text().Append('"');
    for (const wchar_t character : text) {
      if (character == L'"') Text().Append('"');
      Text().AppendCharacter(character);
    }
    Text().Append('"');
  }
  void EndRow() {
    if (m_columns > m_used) PutEmpty(m_columns - m_used);
    Text().EndRecord();
    m_used = 0;
  }

  Keys m_cubeKeys, m_hierarchyKeys, m_levelKeys, m_fieldKeys;
  std::size_t m_columns = 0;
  std::size_t m_used = 0;  // cells of the current row
  const CubeResult* m_cube = nullptr;
  Row m_row;
};

}  // namespace

std::unique_ptr<Form> MakeCsvForm(ResultText& text) { return std::make_unique<CsvForm>(text); }
