#include "Replies.h"

#include <utility>

namespace replies {
namespace {

std::string Envelope(const std::string& rows) {
  return "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\"><soap:Body>"
         "<DiscoverResponse xmlns=\"urn:schemas-microsoft-com:xml-analysis\"><return>"
         "<root xmlns=\"urn:schemas-microsoft-com:xml-analysis:rowset\">" +
         rows + "</root></return></DiscoverResponse></soap:Body></soap:Envelope>";
}

std::string Column(const char* name, const std::string& value) {
  return std::string("<") + name + ">" + value + "</" + name + ">";
}

void AppendMeasure(std::string& text, std::size_t number) {
  const std::string n = std::to_string(number);
  text += "<row>" + Column("CATALOG_NAME", "Foodmart 2000") + Column("SCHEMA_NAME", "Adventure") +
          Column("CUBE_NAME", "Sales Summary Cube") + Column("MEASURE_NAME", "Units " + n) +
          Column("MEASURE_UNIQUE_NAME", "[Measures].[Units " + n + "]") +
          Column("MEASURE_CAPTION", "Units sold &amp; " + n) + Column("MEASURE_AGGREGATOR", "1") +
          Column("DATA_TYPE", "5") + Column("NUMERIC_PRECISION", "16") +
          Column("NUMERIC_SCALE", "2") + Column("EXPRESSION", "[A] / " + n) +
          Column("DESCRIPTION", "How many units were sold") +
          Column("MEASUREGROUP_NAME", "Sales Facts") + "</row>";
}

}  // namespace

std::string Measures(std::size_t rows) {
  std::string text;
  for (std::size_t i = 0; i < rows; ++i) AppendMeasure(text, i);
  return Envelope(text);
}

Provider::Provider(std::size_t cubes, std::size_t hierarchies, std::size_t measures) {
  const auto property = [](const char* name, const char* value) {
    return "<row>" + Column("PropertyName", name) + Column("Value", value) + "</row>";
  };
  m_identity = Envelope(property("ProviderName", "Microsoft Analysis Services") +
                        property("ProviderVersion", "9.0.1399"));
  m_sources = Envelope("<row>" + Column("DataSourceName", "Local") + "</row>");
  m_catalogs = Envelope("<row>" + Column("CATALOG_NAME", "Foodmart") + "</row>");
  std::string rows;
  for (std::size_t i = 0; i < cubes; ++i)
    rows += "<row>" + Column("CUBE_NAME", "Sales " + std::to_string(i)) + "</row>";
  m_cubes = Envelope(rows);
  rows.clear();
  for (std::size_t i = 0; i < hierarchies; ++i) {
    const std::string name = "[Customers].[Region " + std::to_string(i) + "]";
    rows += "<row>" + Column("CATALOG_NAME", "Foodmart") + Column("CUBE_NAME", "Sales") +
            Column("DIMENSION_UNIQUE_NAME", "[Customers]") + Column("HIERARCHY_UNIQUE_NAME", name) +
            Column("HIERARCHY_CAPTION", "Region " + std::to_string(i)) +
            Column("DIMENSION_TYPE", "3") + Column("DEFAULT_MEMBER", name + ".[All]") +
            Column("ALL_MEMBER", name + ".[All]") + Column("STRUCTURE", "0") + "</row>";
  }
  m_hierarchies = Envelope(rows);
  m_members =
      Envelope("<row>" + Column("MEMBER_NAME", "All") + Column("MEMBER_TYPE", "2") + "</row>");
  rows.clear();
  for (int i = 0; i < 5; ++i) {
    const std::string n = std::to_string(i);
    rows += "<row>" + Column("DIMENSION_UNIQUE_NAME", "[Customers]") +
            Column("HIERARCHY_UNIQUE_NAME", "[Customers].[Region]") +
            Column("LEVEL_NAME", "Level " + n) + Column("LEVEL_CAPTION", "Level " + n) +
            Column("LEVEL_UNIQUE_NAME", "[Customers].[Region].[Level " + n + "]") +
            Column("LEVEL_NUMBER", n) + "</row>";
  }
  m_levels = Envelope(rows);
  rows.clear();
  for (int i = 0; i < 10; ++i) {
    const std::string n = std::to_string(i);
    rows += "<row>" + Column("PROPERTY_NAME", "Property " + n) +
            Column("PROPERTY_CAPTION", "The property " + n) + Column("DATA_TYPE", "130") +
            Column("CHARACTER_MAXIMUM_LENGTH", "40") + "</row>";
  }
  m_properties = Envelope(rows);
  rows.clear();
  for (std::size_t i = 0; i < measures; ++i) AppendMeasure(rows, i);
  m_measures = Envelope(rows);
}

const std::string& Provider::Answer(std::string_view request) const {
  const std::pair<std::string_view, const std::string&> answers[] = {
      {"MDSCHEMA_PROPERTIES", m_properties},   {"MDSCHEMA_LEVELS", m_levels},
      {"MDSCHEMA_MEMBERS", m_members},         {"MDSCHEMA_MEASURES", m_measures},
      {"MDSCHEMA_HIERARCHIES", m_hierarchies}, {"MDSCHEMA_CUBES", m_cubes},
      {"DBSCHEMA_CATALOGS", m_catalogs},       {"DISCOVER_DATASOURCES", m_sources},
  };
  for (const auto& [type, reply] : answers)
    if (request.find(type) != std::string_view::npos) return reply;
  return m_identity;
}

}  // namespace replies
