#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Replies as an Analysis Services server sends them.
namespace replies {

/// MDSCHEMA_MEASURES: that many rows of 13 columns, about 560 bytes and 14 elements each.
std::string Measures(std::size_t rows);
/// A whole small cube for an import: the reply to any request of it. Every hierarchy has 5 levels
/// with 10 properties each.
class Cube {
 public:
  explicit Cube(std::size_t hierarchies);
  const std::string& Answer(std::string_view request) const;

 private:
  std::string m_hierarchies;
  std::string m_members;
  std::string m_levels;
  std::string m_properties;
  std::string m_measures;
};

}  // namespace replies
