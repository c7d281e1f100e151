#include "tool/ScriptedProvider.h"

namespace tool {
namespace {

std::string Between(const std::string& text, const std::string& open, const std::string& close) {
  const std::size_t from = text.find(open);
  if (from == std::string::npos) return {};
  const std::size_t begin = from + open.size();
  return text.substr(begin, text.find(close, begin) - begin);
}

std::string Rowset(const std::vector<Row>& rows) {
  std::string text;
  for (const Row& row : rows) {
    text += "<row>";
    for (const auto& [column, value] : row)
      text += "<" + column + ">" + value + "</" + column + ">";
    text += "</row>";
  }
  return support::RowsetReply(text);
}

}  // namespace

ScriptedProvider::ScriptedProvider(Script script, int port)
    : m_script(std::move(script)),
      m_server([this](const support::Request& request) { return Answer(request); }, port) {}

support::Reply ScriptedProvider::Answer(const support::Request& request) const {
  const int status = m_script.status ? m_script.status() : 200;
  if (status != 200) return {"", status};
  const std::string type = support::RequestType(request.body);
  if (m_script.answer) {
    std::string answer = m_script.answer(type, request.body);
    if (!answer.empty()) return {std::move(answer)};
  }
  const std::string property = Between(request.body, "<PropertyName>", "</PropertyName>");
  if (type == "DISCOVER_PROPERTIES") {
    const std::string& value = property == "ProviderName" ? m_script.name : m_script.version;
    return {Rowset({{{"PropertyName", property}, {"Value", value}}})};
  }
  const std::string catalog = Between(request.body, "<CATALOG_NAME>", "</CATALOG_NAME>");
  auto rows = m_script.rows.find(type + " " + catalog);
  if (rows == m_script.rows.end()) rows = m_script.rows.find(type);
  return {Rowset(rows == m_script.rows.end() ? std::vector<Row>{} : rows->second)};
}

std::vector<std::string> ScriptedProvider::RequestTypes() const {
  std::vector<std::string> types;
  for (const support::Request& request : Requests())
    types.push_back(support::RequestType(request.body));
  return types;
}

ScriptedProvider::Script TwoSources() {
  ScriptedProvider::Script script;
  script.rows["DISCOVER_DATASOURCES"] = {
      {{"DataSourceName", "Alpha"}, {"DataSourceInfo", "Provider=alpha"}},
      {{"DataSourceName", "Beta"}, {"DataSourceInfo", "Provider=beta"}}};
  script.rows["DBSCHEMA_CATALOGS"] = {{{"CATALOG_NAME", "One"}}, {{"CATALOG_NAME", "Two"}}};
  script.rows["MDSCHEMA_CUBES One"] = {{{"CUBE_NAME", "Sales"}}, {{"CUBE_NAME", "Stock"}}};
  return script;
}

ScriptedProvider::Script OneCube() {
  ScriptedProvider::Script script;
  script.rows["DISCOVER_DATASOURCES"] = {
      {{"DataSourceName", "Solo"}, {"DataSourceInfo", "Provider=solo"}}};
  script.rows["DBSCHEMA_CATALOGS"] = {{{"CATALOG_NAME", "Lone"}}};
  script.rows["MDSCHEMA_CUBES Lone"] = {{{"CUBE_NAME", "Unit"}}};
  script.rows["MDSCHEMA_HIERARCHIES"] = {{{"DIMENSION_UNIQUE_NAME", "[Shop]"},
                                          {"HIERARCHY_NAME", "Place"},
                                          {"HIERARCHY_UNIQUE_NAME", "[Shop].[Place]"},
                                          {"HIERARCHY_CAPTION", "Ort"},
                                          {"DIMENSION_TYPE", "3"},
                                          {"DEFAULT_MEMBER", "[Shop].[Place].[All]"},
                                          {"STRUCTURE", "0"}}};
  script.rows["MDSCHEMA_MEMBERS"] = {
      {{"MEMBER_UNIQUE_NAME", "[Shop].[Place].[All]"}, {"MEMBER_TYPE", "2"}}};
  script.rows["MDSCHEMA_LEVELS"] = {{{"LEVEL_NAME", "(All)"},
                                     {"LEVEL_UNIQUE_NAME", "[Shop].[Place].[(All)]"},
                                     {"LEVEL_NUMBER", "0"}},
                                    {{"LEVEL_NAME", "Town"},
                                     {"LEVEL_UNIQUE_NAME", "[Shop].[Place].[Town]"},
                                     {"LEVEL_CAPTION", "Stadt"},
                                     {"LEVEL_NUMBER", "1"}}};
  script.answer = [](const std::string& type, const std::string& body) -> std::string {
    // Only the level Town has a property.
    if (type != "MDSCHEMA_PROPERTIES" || body.find("[Town]") == std::string::npos) return {};
    return support::RowsetReply(
        "<row><PROPERTY_NAME>Opened</PROPERTY_NAME><PROPERTY_CAPTION>Opened on</PROPERTY_CAPTION>"
        "<DATA_TYPE>7</DATA_TYPE></row>");
  };
  script.rows["MDSCHEMA_MEASURES"] = {{{"MEASURE_NAME", "Pieces"},
                                       {"MEASURE_CAPTION", "Stück"},
                                       {"MEASURE_AGGREGATOR", "1"},
                                       {"DATA_TYPE", "5"},
                                       {"NUMERIC_PRECISION", "15"},
                                       {"NUMERIC_SCALE", "2"}},
                                      {{"MEASURE_NAME", "Ratio"},
                                       {"MEASURE_CAPTION", "Ratio"},
                                       {"MEASURE_AGGREGATOR", "127"},
                                       {"DATA_TYPE", "130"}}};
  return script;
}

}  // namespace tool
