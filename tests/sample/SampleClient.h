#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "SampleProvider.h"

namespace sample_test {

struct Reply {
  int error = 0;  // of the transfer: a CURLcode
  long status = 0;
  std::string headers;
  std::string body;
};

struct Call {
  std::string userAndPassword;
  std::string acceptEncoding;  // the body stays compressed
  bool unpack = false;         // accepts and decodes all encodings of libcurl
  long timeoutMs = 5000;
};

using Pairs = std::vector<std::pair<std::string, std::string>>;

// The text of a Discover call. Escapes the values.
std::string Envelope(const std::string& type, const Pairs& restrictions = {},
                     const Pairs& properties = {});

Reply Post(const std::string& url, const std::string& body, const Call& call = {});
Reply Get(const std::string& url);
inline Reply Discover(const std::string& url, const std::string& type,
                      const Pairs& restrictions = {}, const Pairs& properties = {},
                      const Call& call = {}) {
  return Post(url, Envelope(type, restrictions, properties), call);
}

// The columns of a row. The texts of a repeated column are joined with "|".
using RowTexts = std::map<std::string, std::string>;

// A reply parsed with libxml2. `wellFormed` is false, with the reason, if the document is
// ill-formed or uses undeclared prefixes.
struct Document {
  bool wellFormed = false;
  std::string reason;
  std::string root;  // with its prefix
  std::vector<std::string> schemaColumns;
  std::vector<RowTexts> rows;
  std::vector<std::vector<std::string>> columnOrder;  // of each row
  std::string faultCode;
  std::string faultText;
};
Document Parse(const std::string& body);

// The rows of a Discover call. On failure, fails the test and returns no rows.
std::vector<RowTexts> Rows(const std::string& url, const std::string& type,
                           const Pairs& restrictions = {}, const Pairs& properties = {});

// One column of the rows; "(absent)" for rows without it.
std::vector<std::string> ColumnOf(const std::vector<RowTexts>& rows, const std::string& column);

inline constexpr sample::Kind kKinds[] = {sample::Kind::kAnalysisServices, sample::Kind::kSapBw,
                                          sample::Kind::kTamarind};

}  // namespace sample_test
