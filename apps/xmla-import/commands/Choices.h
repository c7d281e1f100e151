#pragma once

#include <optional>
#include <string>
#include <vector>

#include "call/ExitStatus.h"
#include "commands/Results.h"
#include "connection/Session.h"

// What a provider has to choose from, and whether a choice is among it.

/// The names of the provider's data sources; nothing when they could not be read.
std::optional<std::vector<String>> DataSourceNames(OTXMLAImportAPI& import, Messages& messages);
/// The tree of one data source, or of all of them, as far as it could be read. False when it is not
/// whole.
bool DataSourceTree(OTXMLAImportAPI& import, const std::optional<String>& dataSource,
                    std::vector<OTDataSource>& tree, Messages& messages);

std::vector<String> CatalogNames(const OTDataSource& dataSource);
std::vector<String> CubeNames(const OTCatalog& catalog);

/// What is chosen from: `kind` for the messages ("data source"), the option that chooses, and where
/// the choice lies (" of the catalog \"C\"", or nothing).
struct ChoiceOf {
  const char* kind;
  const char* option;
  std::string where;
};

/// Completes one choice: an open one becomes the only name there is, which may be empty. A choice
/// that is not among the names, or that stays open, is an error that lists them; its status is
/// returned, else kDone.
ExitStatus Choose(const ChoiceOf& what, const std::vector<String>& names,
                  std::optional<String>& choice, Messages& messages);
