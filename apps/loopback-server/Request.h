#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace loopback {

/// A request as the server received it.
struct Request {
  std::string head;            ///< request line and headers, with the final empty line
  std::string body;            ///< as long as Content-Length says
  std::size_t connection = 0;  ///< the number of the connection: 0 for the first, and so on

  /// "POST"; empty if the request line is malformed.
  std::string Method() const;
  /// "/path?query"
  std::string Target() const;
  /// All headers in order, values without surrounding blanks.
  std::vector<std::pair<std::string, std::string>> Headers() const;
  /// The values of the header, joined by "|". Ignores the name's case.
  std::string Header(std::string_view name) const;
};

}  // namespace loopback
