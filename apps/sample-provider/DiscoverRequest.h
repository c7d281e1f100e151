#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace sample {

// What a Discover call asks for. Names are as the client wrote them, values are decoded.
struct DiscoverRequest {
  std::string type;
  std::map<std::string, std::vector<std::string>> restrictions;  // a name may come repeatedly
  std::map<std::string, std::string> properties;
};

// Reads a SOAP envelope with a Discover call. Throws std::runtime_error, with a text for the
// client, when the body is anything else.
DiscoverRequest ParseDiscover(std::string_view body);

}  // namespace sample
