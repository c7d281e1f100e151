// Names that are suggested for a misspelt one.

#include <gtest/gtest.h>

#include "call/Suggestion.h"
#include "support/Effort.h"

namespace {

std::string Nearest(const std::string& word, const std::vector<std::string>& names) {
  Suggestion suggestion(word);
  for (const std::string& name : names) suggestion.Consider(name);
  return suggestion.Best();
}

TEST(Suggestion, IsTheNearestName) {
  const struct {
    const char* word;
    std::vector<std::string> names;
    const char* nearest;
  } kCases[] = {
      {"--usr", {"--url", "--user"}, "--user"},
      {"Sale1", {"Sale2", "Sale3"}, "Sale2"},  // the first of two
      {"--formt", {"--log", "--format"}, "--format"},
      {"imprt", {"tree", "import"}, "import"},
      {"Slaes", {"Stock", "Sales"}, "Sales"},              // two swapped
      {"sales", {"Saleso", "Sales", "SALES"}, "Sales"},    // only the case
      {"SALEZ", {"salary", "sales"}, "sales"},             // case and one other
      {"Sal", {"Stock", "Sales", "Salesforce"}, "Sales"},  // the beginning
      {"Budget2023", {"Budget 2024", "Budget"}, "Budget 2024"},
      {"Budget 2O24", {"Budget 2023", "Budget 2024"}, "Budget 2024"},
      {"--verb", {"--cert", "--verbose"}, "--verbose"},
      {"nix", {"fish", "Stock"}, ""},
      {"x", {"y", "xy"}, ""},
      {"", {"a", ""}, ""},
      {"--username", {"--url", "--user"}, "--user"},                        // longer
      {"Q001", {"Stock", "ZVSALES/ZVSALES_Q001"}, "ZVSALES/ZVSALES_Q001"},  // the end
      {"001", {"ZVSALES_Q001"}, ""},
      {"Größe", {"GRÖSSE", "Größen"}, "Größen"},
  };
  for (const auto& test : kCases)
    EXPECT_EQ(Nearest(test.word, test.names), test.nearest) << test.word;
}

TEST(Suggestion, LongNamesAreIgnored) {
  const std::string longest(Suggestion::kMaxBytes, 'a');
  EXPECT_EQ(Nearest(longest.substr(1), {longest}), longest);
  EXPECT_EQ(Nearest(longest, {longest + "a"}), "");
  EXPECT_EQ(Nearest(longest + "a", {longest}), "");
}

TEST(Suggestion, IsPutIntoParentheses) {
  EXPECT_EQ(DidYouMean("tre", {"sources", "tree"}), " (did you mean tree?)");
  EXPECT_EQ(DidYouMean("forest", {"sources", "tree"}), "");
}

}  // namespace
