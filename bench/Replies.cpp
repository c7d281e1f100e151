#include "Replies.h"

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

Cube::Cube(std::size_t hierarchies) {
  std::string rows;
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
  for (std::size_t i = 0; i < 10; ++i) AppendMeasure(rows, i);
  m_measures = Envelope(rows);
}

const std::string& Cube::Answer(std::string_view request) const {
  const auto asks = [&](std::string_view type) {
    return request.find(type) != std::string_view::npos;
  };
  if (asks("<RequestType>MDSCHEMA_PROPERTIES<")) return m_properties;
  if (asks("<RequestType>MDSCHEMA_LEVELS<")) return m_levels;
  if (asks("<RequestType>MDSCHEMA_MEMBERS<")) return m_members;
  if (asks("<RequestType>MDSCHEMA_MEASURES<")) return m_measures;
  return m_hierarchies;
}

}  // namespace replies
