#include "DiscoverService.h"

#include <algorithm>
#include <stdexcept>

#include "DiscoverRequest.h"

namespace sample {
namespace {

enum class FaultCause {
  kBadRequest,
  kNoRowset,
  kNoSource,
  kNoCatalog,
  kNoCube,
  kPlanned,
  kInternal
};

struct FaultText {
  FaultCause cause;
  Kind kind;
  std::string_view code;
  std::string_view before;  // the text is before + name + after
  std::string_view after;
};

using enum FaultCause;

constexpr FaultText kFaults[] = {
    {kBadRequest, kAs, "0xc10e0001", "XML parsing failed: ", ""},
    {kNoRowset, kAs, "0xc10c0009", "The '", "' request type was not recognized by the server."},
    {kNoSource, kAs, "0xc10c000b", "The data source '", "' is not known to the server."},
    {kNoCatalog, kAs, "0xc10c000a", "Either the user does not have permission to access the '",
     "' database, or the database does not exist."},
    {kNoCube, kAs, "0xc10a0006", "The '",
     "' cube either does not exist or has not been processed."},
    {kPlanned, kAs, "0xc1010010", "", ""},
    {kInternal, kAs, "0xc1000007", "Internal error: An unexpected exception occurred.", ""},
    {kBadRequest, kBw, "BW.001", "Request could not be read: ", ""},
    {kNoRowset, kBw, "BW.010", "Schema rowset ", " is not supported"},
    {kNoSource, kBw, "BW.020", "Data source ", " does not exist"},
    {kNoCatalog, kBw, "BW.231", "InfoProvider ", " does not exist or is not active"},
    {kNoCube, kBw, "BW.232", "Query ", " does not exist or is not released for OLE DB for OLAP"},
    {kPlanned, kBw, "BW.500", "", ""},
    {kInternal, kBw, "BW.999", "Termination in the OLAP processor (short dump written)", ""},
    {kBadRequest, kKelvora, "KV1001", "Malformed request. ", ""},
    {kNoRowset, kKelvora, "KV1010", "Unsupported request type: ", ""},
    {kNoSource, kKelvora, "KV1020", "Cannot connect to data source: ", ""},
    {kNoCatalog, kKelvora, "KV1030", "Application ", " is not started or does not exist"},
    {kNoCube, kKelvora, "KV1031", "Database ", " does not exist"},
    {kPlanned, kKelvora, "KV1500", "", ""},
    {kInternal, kKelvora, "KV1999", "Unknown error in the provider services", ""},
};

HttpReply Fault(Kind kind, FaultCause cause, std::string_view name) {
  for (const FaultText& fault : kFaults) {
    if (fault.cause != cause || fault.kind != kind) continue;
    std::string text(fault.before);
    text.append(name).append(fault.after);
    return FaultReply(kind, fault.code, text);
  }
  throw std::logic_error("no fault text for this kind of server");
}

/// Thrown to answer with a fault.
struct Refusal {
  FaultCause cause;
  std::string name;
};

/// The restrictions of a column. Empty values are ignored.
std::vector<std::string> Restriction(const DiscoverRequest& request, const std::string& column) {
  const auto found = request.restrictions.find(column);
  std::vector<std::string> values;
  if (found == request.restrictions.end()) return values;
  std::ranges::copy_if(found->second, std::back_inserter(values),
                       [](const std::string& value) { return !value.empty(); });
  return values;
}

const std::string& Property(const DiscoverRequest& request, const std::string& name) {
  static const std::string kNone;
  const auto found = request.properties.find(name);
  return found == request.properties.end() ? kNone : found->second;
}

const std::vector<Row>& RowsOf(const DataSource& source, std::string_view rowset) {
  static const std::vector<Row> kNone;
  const auto found = source.rows.find(rowset);
  return found == source.rows.end() ? kNone : found->second;
}

bool Has(const Row& row, std::string_view column, const std::string& value) {
  const std::string* text = row.Find(column);
  return text && *text == value;
}

/// Finds the data source by DataSourceInfo or DataSourceName. Without a name, returns the first
/// one.
const DataSource& SourceFor(const Metadata& metadata, const DiscoverRequest& request) {
  const std::string& name = Property(request, "DataSourceInfo");
  for (const DataSource& source : metadata.sources) {
    if (name.empty() || Has(source.row, "DataSourceInfo", name) ||
        Has(source.row, "DataSourceName", name)) {
      return source;
    }
  }
  throw Refusal{kNoSource, name};
}

void RequireCatalog(const DataSource& source, const std::string& catalog) {
  for (const Row& row : RowsOf(source, "DBSCHEMA_CATALOGS"))
    if (Has(row, "CATALOG_NAME", catalog)) return;
  throw Refusal{kNoCatalog, catalog};
}

void RequireCube(const DataSource& source, const std::vector<std::string>& catalogs,
                 const std::string& cube) {
  for (const Row& row : RowsOf(source, "MDSCHEMA_CUBES")) {
    const bool inside = catalogs.empty() || std::ranges::any_of(catalogs, [&](const auto& name) {
                          return Has(row, "CATALOG_NAME", name);
                        });
    if (inside && Has(row, "CUBE_NAME", cube)) return;
  }
  throw Refusal{kNoCube, cube};
}

using Restrictions = std::map<std::string, std::vector<std::string>>;

bool Matches(const Row& row, const Restrictions& restrictions) {
  return std::ranges::all_of(restrictions, [&](const auto& restriction) {
    const std::string* text = row.Find(restriction.first);
    return text && std::ranges::find(restriction.second, *text) != restriction.second.end();
  });
}

void ThrowPlannedFault(const DataSource& source, const std::string& rowset,
                       const Restrictions& restrictions) {
  for (const PlannedFault& fault : source.faults) {
    if (fault.rowset != rowset) continue;
    const bool named = std::ranges::all_of(fault.values, [&](const auto& wanted) {
      const auto found = restrictions.find(wanted.first);
      return found != restrictions.end() &&
             std::ranges::find(found->second, wanted.second) != found->second.end();
    });
    if (named) throw Refusal{kPlanned, fault.text};
  }
}

std::vector<const Row*> Select(const std::vector<Row>& rows, const Restrictions& restrictions) {
  std::vector<const Row*> selected;
  for (const Row& row : rows)
    if (Matches(row, restrictions)) selected.push_back(&row);
  return selected;
}

std::vector<const Row*> SelectRows(Kind kind, const Metadata& metadata, const Rowset& rowset,
                                   const DiscoverRequest& request) {
  Restrictions restrictions;
  for (const auto& [name, ignored] : request.restrictions) {
    std::vector<std::string> values = Restriction(request, name);
    if (values.empty()) continue;
    // Restrictions that are not columns of the rowset are ignored.
    if (FindColumn(rowset, name, kind)) restrictions.emplace(name, std::move(values));
  }
  if (rowset.name == "DISCOVER_PROPERTIES") return Select(metadata.properties, restrictions);
  if (rowset.name == "DISCOVER_DATASOURCES") {
    std::vector<const Row*> rows;
    for (const DataSource& source : metadata.sources)
      if (Matches(source.row, restrictions)) rows.push_back(&source.row);
    return rows;
  }
  const DataSource& source = SourceFor(metadata, request);
  const std::string& current = Property(request, "Catalog");
  if (!current.empty()) {
    RequireCatalog(source, current);
    if (rowset.name != "DBSCHEMA_CATALOGS") {
      restrictions.try_emplace("CATALOG_NAME", std::vector{current});
    }
  }
  if (rowset.name != "DBSCHEMA_CATALOGS") {
    for (const std::string& catalog : restrictions["CATALOG_NAME"]) RequireCatalog(source, catalog);
    const auto cubes = restrictions.find("CUBE_NAME");
    if (cubes != restrictions.end()) {
      for (const std::string& cube : cubes->second)
        RequireCube(source, restrictions["CATALOG_NAME"], cube);
    }
    if (restrictions["CATALOG_NAME"].empty()) restrictions.erase("CATALOG_NAME");
  }
  ThrowPlannedFault(source, request.type, restrictions);
  return Select(RowsOf(source, rowset.name), restrictions);
}

}  // namespace

HttpReply Answer(Kind kind, std::string_view body) { return Answer(kind, body, MetadataOf(kind)); }

HttpReply Answer(Kind kind, std::string_view body, const Metadata& metadata) {
  DiscoverRequest request;
  try {
    request = ParseDiscover(body);
  } catch (const std::runtime_error& error) {
    return Fault(kind, kBadRequest, error.what());
  }
  const Rowset* rowset = FindRowset(request.type, kind);
  if (!rowset) return Fault(kind, kNoRowset, request.type);
  try {
    const bool schema = Property(request, "Content") != "Data";
    return RowsetReply(kind, *rowset, SelectRows(kind, metadata, *rowset, request), schema);
  } catch (const Refusal& refusal) {
    return Fault(kind, refusal.cause, refusal.name);
  }
}

HttpReply InternalFault(Kind kind) { return Fault(kind, kInternal, ""); }

std::string RequestTypeOf(std::string_view body) {
  try {
    return ParseDiscover(body).type;
  } catch (const std::runtime_error&) {
    return "";
  }
}

}  // namespace sample
