#include <string_view>
#include <type_traits>

#include "Import/EnumNames.h"
#include "results/Fields.h"
#include "results/Form.h"
#include "results/JsonWriter.h"

namespace {

/// Writes each host record as an object with keys in fixed order.
class JsonForm : public Form {
 public:
  explicit JsonForm(ResultText& text, JsonWriter::Layout layout = JsonWriter::Layout::kIndented)
      : Form(text), m_json(text, layout) {}

  void Write(const NoResult& result) override {
    m_json.BeginObject();
    EndWith(result.messages);
  }

  void Write(const ServersResult& result) override {
    BeginObject().Add("servers", result.servers);
    EndWith(result.messages);
  }

  void Write(const SourcesResult& result) override {
    BeginObject().Add("dataSources", result.dataSources);
    EndWith(result.messages);
  }

  void Write(const TreeResult& result) override {
    BeginObject().Add("dataSources", result.dataSources);
    EndWith(result.messages);
  }

  void Write(const CubeResult& result) override {
    Value(result);
    Text().EndLine();
  }

  void Write(const DiffResult& result) override {
    BeginObject()
        .Add("old", result.before)
        .Add("new", result.after)
        .Add("document", result.document);
    Add("changes", result.comparison.changes);
    m_json.Key("compared");
    m_json.BeginObject();
    for (const auto& [kind, plural, count] : result.comparison.compared)
      Add(kind == "data source" ? "dataSources" : plural, count);
    m_json.EndObject();
    m_json.Key("found");
    m_json.BeginObject();
    for (const ChangeClass severity : kAllChangeClasses)
      Add(ClassName(severity), result.Count(severity));
    m_json.EndObject();
    EndWith(result.messages);
  }

  void BeginImport(const ImportResult& result) override {
    BeginObject().Add("provider", result);
    m_json.Key("cubes");
    m_json.BeginList();
  }

  void AddCube(const CubeResult& cube) override { Value(cube); }

  void EndImport(const ImportResult& result) override {
    m_json.EndList();
    EndWith(result.messages);
  }

  void BeginSteps(const CheckResult& result) override {
    BeginObject().Add("url", result.url).Add("target", result.target);
    m_json.Key("steps");
    m_json.BeginList();
  }

  void AddStep(const CheckStep& step) override {
    BeginObject()
        .Add("step", step.name)
        .Add("status", std::string_view(StatusName(step.status)))
        .Add("found", step.found)
        .Add("advice", step.advice);
    m_json.Key("seconds");
    if (step.seconds)
      m_json.Value(*step.seconds);
    else
      m_json.Null();
    m_json.EndObject();
  }

  void EndSteps(const CheckResult& result) override {
    m_json.EndList();
    EndWith(result.messages);
  }

 protected:
  JsonForm& BeginObject() {
    m_json.BeginObject();
    return *this;
  }

  template <class Type>
  JsonForm& Add(std::string_view key, const Type& value) {
    m_json.Key(key);
    Value(value);
    return *this;
  }

  /// Writes an enumerator, text, record, list, number or flag.
  template <class Type>
  void Value(const Type& value) {
    if constexpr (std::is_enum_v<Type>)
      Enumerator(value);
    else if constexpr (HasFields<Type>)
      Record(value);
    else if constexpr (requires { m_json.Value(value); })
      m_json.Value(value);
    else
      List(value);
  }

  /// The last two members of every result.
  void Messages(const ::Messages& messages) {
    m_json.Key("errors");
    m_json.BeginList();
    for (const std::string& line : messages.errors) m_json.Value(line);
    if (IsCut()) m_json.Value(std::string_view(kCutShort));
    m_json.EndList();
    m_json.Key("warnings");
    m_json.BeginList();
    for (const std::string& line : messages.warnings) m_json.Value(line);
    m_json.EndList();
  }

  void EndDocument() {
    m_json.EndObject();
    Text().EndLine();
  }
  void EndWith(const ::Messages& messages) {
    Messages(messages);
    EndDocument();
  }

 private:
  template <class Type>
  void Record(const Type& record) {
    m_json.BeginObject();
    VisitFields(record,
                [this](std::string_view key, const auto& member) { this->Add(key, member); });
    if constexpr (std::is_same_v<Type, CubeResult>) Messages(record.messages);
    m_json.EndObject();
  }

  /// Writes the enumerator's name, or the number if there is none.
  template <class Enum>
  void Enumerator(Enum value) {
    const std::string_view name = EnumName(value);
    if (name.empty())
      m_json.Value(static_cast<long long>(value));
    else
      m_json.Value(name);
  }

  template <class Items>
  void List(const Items& items) {
    m_json.BeginList();
    for (const auto& item : items) {
      if (MustStop()) break;
      Value(item);
    }
    m_json.EndList();
  }

  JsonWriter m_json;
};

/// Writes an import as one document per line. Other results are documents of one line.
class JsonLinesForm : public JsonForm {
 public:
  explicit JsonLinesForm(ResultText& text) : JsonForm(text, JsonWriter::Layout::kOneLine) {}

  void BeginImport(const ImportResult& result) override {
    BeginObject();
    Add("provider", result);
    EndDocument();
  }
  void AddCube(const CubeResult& cube) override { Write(cube); }
  void EndImport(const ImportResult& result) override {
    BeginObject();
    EndWith(result.messages);
  }
};

}  // namespace

std::unique_ptr<Form> MakeJsonForm(ResultText& text) { return std::make_unique<JsonForm>(text); }
std::unique_ptr<Form> MakeCompactJsonForm(ResultText& text) {
  return std::make_unique<JsonForm>(text, JsonWriter::Layout::kOneLine);
}
std::unique_ptr<Form> MakeJsonLinesForm(ResultText& text) {
  return std::make_unique<JsonLinesForm>(text);
}
