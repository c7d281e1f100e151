#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace sample {

/// A parsed Discover request. Values are decoded.
struct DiscoverRequest {
  std::string type;
  std::map<std::string, std::vector<std::string>> restrictions;  ///< several values per name
  std::map<std::string, std::string> properties;
};

/// Parses a SOAP envelope with a Discover call. Throws std::runtime_error with a text for the
/// client if the body is anything else.
DiscoverRequest ParseDiscover(std::string_view body);

}  // namespace sample
