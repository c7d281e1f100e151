#pragma once

#include <map>
#include <string>

#include "support/ScriptedServer.h"

/// The replies for one cube: rows of each rowset as XML, keyed by the restriction that selects
/// them. A missing rowset is empty. A text that begins with "fault:" becomes a SOAP fault.
struct CubeScript {
  std::string dimensions;
  std::string hierarchies;
  std::string measures;
  std::string variables;
  std::map<std::string, std::string> levels;      // by hierarchy unique name
  std::map<std::string, std::string> members;     // by hierarchy unique name
  std::map<std::string, std::string> properties;  // by level unique name

  support::Reply operator()(const support::Request& request) const {
    const std::string type = support::RequestType(request.body);
    const auto value = [&](const std::string& name) {
      const std::size_t at = request.body.find("<" + name + ">");
      if (at == std::string::npos) return std::string();
      const std::size_t begin = at + name.size() + 2;
      return request.body.substr(begin, request.body.find("</", begin) - begin);
    };
    const auto pick = [&](const std::map<std::string, std::string>& rows, const char* name) {
      const auto found = rows.find(value(name));
      return found == rows.end() ? std::string() : found->second;
    };
    std::string rows;
    if (type == "MDSCHEMA_DIMENSIONS") rows = dimensions;
    if (type == "MDSCHEMA_HIERARCHIES") rows = hierarchies;
    if (type == "MDSCHEMA_MEASURES") rows = measures;
    if (type == "SAP_VARIABLES") rows = variables;
    if (type == "MDSCHEMA_LEVELS") rows = pick(levels, "HIERARCHY_UNIQUE_NAME");
    if (type == "MDSCHEMA_MEMBERS") rows = pick(members, "HIERARCHY_UNIQUE_NAME");
    if (type == "MDSCHEMA_PROPERTIES") rows = pick(properties, "LEVEL_UNIQUE_NAME");
    if (rows.starts_with("fault:")) return {support::FaultReply("c", rows.substr(6))};
    return {support::RowsetReply(rows)};
  }
};

/// A row of columns, given as pairs of name and escaped value.
inline std::string Row(std::initializer_list<std::pair<const char*, std::string>> columns) {
  std::string row = "<row>";
  for (const auto& [name, value] : columns)
    row += "<" + std::string(name) + ">" + value + "</" + name + ">";
  return row + "</row>";
}
