#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Metadata.h"
#include "Rowsets.h"

/// Builds reply texts in the style of each kind of server: prefixes, declaration, inline schema,
/// line breaks and form of a fault.
namespace sample {

struct HttpReply {
  int status = 200;
  std::string contentType;
  std::string body;
};

std::string EscapeXml(std::string_view text);

HttpReply RowsetReply(Kind kind, const Rowset& rowset, const std::vector<const Row*>& rows,
                      bool withSchema);
HttpReply FaultReply(Kind kind, std::string_view code, std::string_view text);

}  // namespace sample
