#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Replies in the form of an Analysis Services server.
namespace replies {

/// An MDSCHEMA_MEASURES reply with `rows` rows of 13 columns, about 560 bytes and 14 elements each.
std::string Measures(std::size_t rows);
/// Answers all requests of an import, for a number of equal cubes. Every hierarchy has 5 levels
/// with 10 properties each.
class Provider {
 public:
  Provider(std::size_t cubes, std::size_t hierarchies, std::size_t measures = 10);
  const std::string& Answer(std::string_view request) const;

 private:
  std::string m_identity;
  std::string m_sources;
  std::string m_catalogs;
  std::string m_cubes;
  std::string m_hierarchies;
  std::string m_members;
  std::string m_levels;
  std::string m_properties;
  std::string m_measures;
};

}  // namespace replies
