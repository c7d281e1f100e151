// The text format: headings, groups and words for results that the sample provider does not have.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "results/Form.h"
#include "results/TextColumn.h"
#include "results/TextLegend.h"

namespace {

class Sink : public TextSink {
 public:
  void Write(std::string_view text) override { m_text += text; }
  const std::string& Text() const { return m_text; }

 private:
  std::string m_text;
};

/// The text that `write` writes.
template <class Write>
std::string Written(Write write) {
  Sink sink;
  ResultText text(sink, false);
  write(*MakeTextForm(text));
  text.Flush();
  return sink.Text();
}

TEST(TextForm, ShowsLengthAndPrecisionOnlyIfTheServerSentThem) {
  const struct {
    VXDataType type;
    int precision;
    short scale;
    const char* text;
  } cases[] = {
      {VXVarCharData, 128, 0, "VarChar"},
      {VXVarCharData, 20, 0, "VarChar(20)"},
      {VXVarCharData, 0, 0, "VarChar(no limit)"},
      {VXDoubleData, 0, 0, "Double(0)"},
      {VXDoubleData, 15, 2, "Double(15, 2)"},
      {VXDoubleData, 10, -1, "Double(10, ?)"},
      {VXDoubleData, 128, 2, "Double(?, 2)"},
      {VXDoubleData, 128, -1, "Double"},
      {VXDoubleData, -1, 0, "Double(?)"},
      {VXDoubleData, -1, 3, "Double(?, 3)"},
      {VXDoubleData, 65535, -1, "Double(?)"},
      {VXVarCharData, 65535, 0, "VarChar(65535)"},
      {VXDoubleData, 5, -2, "Double(5, -2)"},
      {VXUnknown, 17, 2, "Unknown(17, 2)"},
      {VXBoolean, 128, 0, "Boolean"},
  };
  for (const auto& each : cases) {
    OTXMLAUnit unit;
    unit.m_type = each.type;
    unit.m_precision = each.precision;
    unit.m_scale = each.scale;
    EXPECT_EQ(TextColumn(unit), each.text);
  }
}

OTXMLAHierarchy Hierarchy(const wchar_t* dimension, const wchar_t* name,
                          OTXMLAHierarchy::DimensionType type) {
  OTXMLAHierarchy hierarchy;
  hierarchy.m_dimensionUniqueName = dimension;
  hierarchy.m_hierarchyName = name;
  hierarchy.m_externalName = String(dimension) + L"." + name;
  hierarchy.m_dimensionType = type;
  hierarchy.m_hierarchyType = OTXMLAHierarchy::kHierarchyNetwork;
  return hierarchy;
}

TEST(TextForm, GroupsHierarchiesByDimension) {
  CubeResult cube;
  cube.cube = L"Q";
  cube.catalog = L"C";
  cube.hierarchies = {
      Hierarchy(L"B", L"1", OTXMLAHierarchy::kDimensionTypeTime),
      Hierarchy(L"A", L"2", OTXMLAHierarchy::kDimensionTypeOther),
      Hierarchy(L"B", L"3", OTXMLAHierarchy::kDimensionTypeTime),
      Hierarchy(L"A", L"4", OTXMLAHierarchy::kDimensionTypeOther),
      Hierarchy(L"A", L"5", OTXMLAHierarchy::kDimensionUtiliy),
      Hierarchy(L"", L"", static_cast<OTXMLAHierarchy::DimensionType>(99)),
  };
  cube.hierarchies[5].m_memberType = static_cast<OTXMLAHierarchy::MemberType>(7);
  EXPECT_EQ(Written([&](Form& form) { form.Write(cube); }),
            "cube Q\n"
            "  catalog C\n"
            "  6 hierarchies\n"
            "  dimension B (time)\n"
            "    hierarchy 1: network, default: unknown\n"
            "    hierarchy 3: network, default: unknown\n"
            "  dimension A\n"
            "    hierarchy 2: network, default: unknown\n"
            "    hierarchy 4: network, default: unknown\n"
            "  dimension A (utility)\n"
            "    hierarchy 5: network, default: unknown\n"
            "  dimension (no name) of kind code 99\n"
            "    hierarchy (no name): network, default: code 7\n");
}

TEST(TextForm, SaysWhatIsMissing) {
  CubeResult measures;
  measures.cube = L"Partly";
  measures.dataSource = L"S";
  measures.catalog = L"C";
  measures.measures.resize(1);
  measures.messages.errors = {"one"};
  CubeResult nothing = measures;
  nothing.cube = L"Failed";
  nothing.measures.clear();
  nothing.messages.errors = {"one", "two"};
  CubeResult empty = nothing;
  empty.cube = L"Empty";
  empty.messages.errors.clear();
  ImportResult import;
  import.target = "tessera";
  import.cubeCount = 5;
  const std::string text = Written([&](Form& form) {
    form.BeginImport(import);
    for (const CubeResult& cube : {measures, nothing, empty}) form.AddCube(cube);
    form.EndImport(import);
  });
  EXPECT_EQ(text,
            "provider  (no name)\n"
            "kind      tessera (any other XMLA server)\n"
            "cubes     5\n"
            "\n"
            "cube Partly (incomplete: 1 error)\n"
            "  data source S, catalog C\n"
            "  1 measure\n"
            "  measures\n"
            "    (no name): code 0, VarChar\n"
            "\n"
            "cube Failed (not read: 2 errors)\n"
            "  data source S, catalog C\n"
            "\n"
            "cube Empty\n"
            "  data source S, catalog C\n"
            "  no hierarchies and no measures\n"
            "\n"
            "incomplete: 2 of 5 cubes are missing\n");
}

TEST(TextForm, LegendExplainsEveryWordInTwoColumns) {
  std::set<std::string> words;
  std::size_t widest = 0;
  for (const LegendEntry& each : TextLegend()) {
    EXPECT_TRUE(words.emplace(each.word).second) << each.word;
    EXPECT_NE(each.meaning, "") << each.word;
    widest = std::max(widest, each.word.size());
  }
  for (const LegendEntry& each : TextLegend())
    EXPECT_LE(2 + widest + 2 + each.meaning.size(), 80u) << each.word;
  const auto explains = [&](const std::string& word) {
    EXPECT_TRUE(word.empty() || word.find("code ") != word.npos || words.count(word) > 0) << word;
  };
  for (int value = 0; value <= 300; ++value) {
    explains(Word(static_cast<OTXMLAUnit::AggrType>(value)));
    explains(Word(static_cast<OTXMLAHierarchy::MemberType>(value)));
    explains(Word(static_cast<OTXMLAHierarchy::HierarchyType>(value)));
    explains(Word(static_cast<OTXMLAHierarchy::DimensionType>(value)));
    explains(Word(static_cast<XmlACubeVariable::VariableType>(value)));
    explains(Word(static_cast<XmlACubeVariable::VariableSelType>(value)));
    explains(Word(static_cast<XmlACubeVariable::VariableEntryType>(value)));
  }
}

}  // namespace
