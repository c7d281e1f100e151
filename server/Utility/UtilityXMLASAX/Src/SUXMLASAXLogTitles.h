#pragma once

#include <cstddef>

/// Formats of the title of a log entry. The format for a failure has the error text as an
/// additional last argument. If it is null, failures of this request are not logged.
struct LogTitle {
  const wchar_t* success;
  const wchar_t* failure;
};

// Users search old logs for these lines, so spelling, spaces and line ends must not change.
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

/// Maximum length of a title in wide characters, including the terminating null.
inline constexpr std::size_t kTitleCapacity = 4096;
