#pragma once

#include <optional>
#include <string>
#include <vector>

#include "call/ExitStatus.h"
#include "commands/Results.h"
#include "connection/Session.h"

// Lists the data sources, catalogs and cubes of a provider, and checks a choice against such a
// list.

/// The names of the provider's data sources; nullopt if they could not be read.
std::optional<std::vector<String>> DataSourceNames(OTXMLAImportAPI& import, Messages& messages);
/// Reads the tree of one data source, or of all. On error, `tree` contains what was read, and the
/// result is false.
bool DataSourceTree(OTXMLAImportAPI& import, const std::optional<String>& dataSource,
                    std::vector<OTDataSource>& tree, Messages& messages);

/// Asks whether the provider lacks the data source. If so, replaces the errors of a failed request,
/// which was the consequence, by one that lists the existing names. Providers answer an unknown
/// name with a fault or an empty result.
bool IsUnknownDataSource(OTXMLAImportAPI& import, const String& name, Messages& messages);

std::vector<String> CatalogNames(const OTDataSource& dataSource);
std::vector<String> CubeNames(const OTCatalog& catalog);
std::vector<String> CubeNames(const OTDataSource& dataSource);

/// The names of the catalogs that have the cube.
std::vector<String> CatalogsWith(const OTDataSource& dataSource, const String& cube);

/// Describes a choice for the messages: what is chosen ("data source"), the option, what it belongs
/// to ("the catalog \"C\""; empty: the provider), and the verb between both.
struct ChoiceOf {
  const char* kind;
  const char* option;
  std::string owner;
  const char* verb = "has";
};

/// Completes an absent choice if there is exactly one name, which may be empty. If the choice is
/// unknown, or absent with several names, adds an error that lists the names and returns its
/// status. Otherwise returns kDone.
ExitStatus Choose(const ChoiceOf& what, const std::vector<String>& names,
                  std::optional<String>& choice, Messages& messages);
