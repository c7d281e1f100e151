#pragma once

#include <cstddef>

/// The formats of a request's line in the import log. The failure's takes the error text as one
/// more argument; null: failures of that request are not logged.
struct LogTitle {
  const wchar_t* success;
  const wchar_t* failure;
};

// People search old logs for these lines, so spelling, blanks and line ends stay as they are.
inline constexpr LogTitle kProviderNameTitle = {
    L"Get Provider Name: \"%s\"\n",
    L"Get Provider Name: \"%s\", errorMessage: \"%s\" \n",
};
inline constexpr LogTitle kProviderNameOfDataSourcesTitle = {
    L"Get data sources from URL: \"%s\"\n",
    nullptr,
};
inline constexpr LogTitle kProviderVersionTitle = {
    L"Get Provider Version: \"%s\"\n",
    L"Get Provider Version: \"%s\", errorMessage: \"%s\"\n",
};
inline constexpr LogTitle kDataSourcesTitle = {
    L"Get data sources from URL: \"%s\"\n",
    L"Get data sources from URL: \"%s\", errorMessage: \"%s\"\n",
};
inline constexpr LogTitle kCatalogsTitle = {
    L"Get Catalogs from data source: \"%s\"\n",
    L"Get Catalogs from data source: \"%s\", errorMessage: \"%s\"\n",
};
inline constexpr LogTitle kCubesTitle = {
    L"Get Cubes from catalog \"%s\" and data source \"%s\"\n",
    L"Get Cubes from catalog \"%s\" and data source \"%s\", errorMessage: \"%s\"\n",
};
inline constexpr LogTitle kDimensionsTitle = {
    L"Get Dimension from cube \"%s\", catalog \"%s\" and data source \"%s\"\n",
    L"Get Dimension from cube \"%s\", catalog \"%s\" and data source \"%s\", "
    L"errorMessage: \"%s\"\n",
};
inline constexpr LogTitle kDefaultHierarchiesTitle = {
    L"Get Dimension for default hierarchy from cube \"%s\", catalog \"%s\" and data source "
    L"\"%s\"\n",
    L"Get Dimension for default hierarchy from cube \"%s\", catalog \"%s\" and data source \"%s\", "
    L"errorMessage: \"%s\"\n",
};
inline constexpr LogTitle kHierarchiesTitle = {
    L"Get Hierarchies from cube \"%s\", catalog \"%s\" and data source \"%s\"\n",
    L"Get Hierarchies from cube \"%s\", catalog \"%s\" and data source \"%s\", "
    L"errorMessage: \"%s\"\n",
};
inline constexpr LogTitle kLevelsTitle = {
    L"Get Levels from hierarchy \"%s\", cube \"%s\", catalog \"%s\" and data source \"%s\"\n",
    L"Get Levels from hierarchy \"%s\", cube \"%s\", catalog \"%s\" and data source \"%s\", "
    L"errorMessage: \"%s\"\n",
};
inline constexpr LogTitle kPropertiesTitle = {
    L"Get Properties on Levels \"%s\", hierarchy \"%s\", cube \"%s\", catalog \"%s\" and data "
    L"source \"%s\"\n",
    L"Get Properties on Levels \"%s\",  hierarchy \"%s\", cube \"%s\", catalog \"%s\" and data "
    L"source \"%s\", errorMessage: \"%s\"\n",
};
inline constexpr LogTitle kMembersTitle = {
    L"Get Members from hierarchy \"%s\", cube \"%s\", catalog \"%s\" and data source \"%s\"\n",
    L"Get Members from hierarchy \"%s\",  cube \"%s\", catalog \"%s\" and data source \"%s\", "
    L"errorMessage: \"%s\"\n",
};
inline constexpr LogTitle kMeasuresTitle = {
    L"Get Measures from cube \"%s\", catalog \"%s\" and data source \"%s\"\n",
    L"Get Measures from cube \"%s\", catalog \"%s\" and data source \"%s\", "
    L"errorMessage: \"%s\"\n",
};
inline constexpr LogTitle kVariablesTitle = {
    L"Get Varaibles from cube \"%s\", catalog \"%s\" and data source \"%s\"\n",
    L"Get Varaibles from cube \"%s\", catalog \"%s\" and data source \"%s\", "
    L"errorMessage: \"%s\"\n",
};

/// A title is formatted into this many wide characters, the final null included.
inline constexpr std::size_t kTitleCapacity = 4096;
