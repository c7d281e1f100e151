#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/ScriptedServer.h"

namespace tool {

/// Columns and values of one row.
using Row = std::vector<std::pair<std::string, std::string>>;

/// A provider whose rowsets are lists of rows given by the test. A rowset without an entry is
/// empty. It identifies itself as Analysis Services 9.x by default.
class ScriptedProvider {
 public:
  struct Script {
    std::string name = "Test Server";
    std::string version = "9.0.1";
    /// Rows by request type. "TYPE catalog" answers requests for that catalog.
    std::map<std::string, std::vector<Row>> rows;
    /// Called first. A status other than 200 is sent without rows.
    std::function<int()> status;
    /// Called next, with the request's type and body. An answer that is not empty is sent.
    std::function<std::string(const std::string& type, const std::string& body)> answer;
  };

  /// Port 0 is a free one.
  explicit ScriptedProvider(Script script, int port = 0);

  std::string Url() const { return m_server.Url(); }
  std::vector<support::Request> Requests() const { return m_server.Requests(); }
  /// The types of the requests so far.
  std::vector<std::string> RequestTypes() const;

 private:
  support::Reply Answer(const support::Request& request) const;

  const Script m_script;
  support::ScriptedServer m_server;
};

/// Two data sources: "Alpha" has the catalogs "One" (cubes "Sales", "Stock") and "Two" (no cube),
/// and "Beta" has the same catalogs.
ScriptedProvider::Script TwoSources();
/// One source "Solo" with one catalog "Lone" and one cube "Unit". The cube has one hierarchy of two
/// levels, one member property, and two measures.
ScriptedProvider::Script OneCube();

}  // namespace tool
