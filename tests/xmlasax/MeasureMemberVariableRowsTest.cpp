// Tests the row objects of measures, members and variables.

#include <gtest/gtest.h>

#include "Utility/XMLASAX/XmlACubeVariableUtility.h"
#include "Utility/XMLASAX/XmlAMeasure.h"
#include "Utility/XMLASAX/XmlAMember.h"
#include "support/Text.h"

namespace {

TEST(MeasureRow, IsInitiallyEmpty) {
  const XmlAMeasure measure(false);
  EXPECT_EQ(measure.GetName(), String());
  EXPECT_EQ(measure.GetCaption(), String());
  EXPECT_EQ(measure.GetAggrType(), 0);
  EXPECT_EQ(measure.GetType(), String());
  EXPECT_EQ(measure.GetPrecision(), String());
  EXPECT_EQ(measure.GetScale(), String());
}

TEST(MeasureRow, NameColumnDependsOnTheProviderKind) {
  for (const bool useUniqueName : {false, true}) {
    XmlAMeasure measure(useUniqueName);
    measure.AppendValueName(L"MEASURE_NAME", L"Sales");
    measure.AppendValueName(L"MEASURE_UNIQUE_NAME", L"[Measures].[Sales Amount]");
    EXPECT_EQ(measure.GetName(), String(useUniqueName ? L"Sales Amount" : L"Sales"));
  }
}

struct NameCase {
  const wchar_t* uniqueName;
  const wchar_t* name;
};

class MeasureUniqueName : public testing::TestWithParam<NameCase> {};

TEST_P(MeasureUniqueName, IsStripped) {
  XmlAMeasure measure(true);
  measure.AppendValueName(L"MEASURE_UNIQUE_NAME", GetParam().uniqueName);
  EXPECT_EQ(measure.GetName(), String(GetParam().name));
}

INSTANTIATE_TEST_SUITE_P(Cases, MeasureUniqueName,
                         testing::Values(NameCase{L"[Measures].[Sales]", L"Sales"},
                                         NameCase{L"[MEASURES].[X]", L"X"},
                                         NameCase{L"[measures].[0D_NW_NETV]", L"0D_NW_NETV"},
                                         NameCase{L"Sales", L"Sales"}, NameCase{L"", L""},
                                         NameCase{L"[Measures", L"[Measures"},
                                         NameCase{L"[Measures]", L"]"},      // length 10
                                         NameCase{L"[Measures].", L"."},     // 11
                                         NameCase{L"[Measures].[", L"["},    // 12
                                         NameCase{L"[Measures].[]", L""},    // 13
                                         NameCase{L"[Measures].[X]", L"X"},  // 14
                                         // removes the pattern anywhere
                                         NameCase{L"abc[Measures].[Sales]", L"].[Sales"},
                                         NameCase{L"Total of all [Measures]", L" [Measures"}));

struct MeasureColumn {
  const wchar_t* column;
  const wchar_t* value;
  String (XmlAMeasure::*get)() const;
};

TEST(MeasureRow, TakesColumnsInAnyCaseAndTheirLastValues) {
  const MeasureColumn columns[] = {
      {L"MEASURE_NAME", L"n", &XmlAMeasure::GetName},
      {L"MEASURE_CAPTION", L"c", &XmlAMeasure::GetCaption},
      {L"DATA_TYPE", L"130", &XmlAMeasure::GetType},
      {L"CHARACTER_MAXIMUM_LENGTH", L"40", &XmlAMeasure::GetPrecision},
      {L"NUMERIC_PRECISION", L"15", &XmlAMeasure::GetPrecision},
      {L"NUMERIC_SCALE", L"2", &XmlAMeasure::GetScale},
  };
  for (const auto& column : columns) {
    XmlAMeasure measure(false);
    String mixed;
    for (const wchar_t c : String(column.column))
      mixed.push_back(mixed.size() % 2 && c >= L'A' && c <= L'Z' ? c - L'A' + L'a' : c);
    measure.AppendValueName(column.column, L"earlier");
    measure.AppendValueName(mixed, column.value);
    EXPECT_EQ((measure.*column.get)(), String(column.value));
  }
}

TEST(MeasureRow, LaterOfLengthAndPrecisionCounts) {
  XmlAMeasure measure(false);
  measure.AppendValueName(L"CHARACTER_MAXIMUM_LENGTH", L"255");
  measure.AppendValueName(L"NUMERIC_PRECISION", L"10");
  EXPECT_EQ(measure.GetPrecision(), String(L"10"));
  measure.AppendValueName(L"CHARACTER_MAXIMUM_LENGTH", L"255");
  EXPECT_EQ(measure.GetPrecision(), String(L"255"));
}

TEST(MeasureRow, ExpressionColumnEvenEmptyMakesItCalculated) {
  XmlAMeasure measure(false);
  measure.AppendValueName(L"DATA_TYPE", L"130");
  EXPECT_EQ(measure.GetType(), String(L"130"));
  measure.AppendValueName(L"Expression", L"");
  EXPECT_EQ(measure.GetType(), String(L"5"));
  measure.AppendValueName(L"DATA_TYPE", L"7");
  EXPECT_EQ(measure.GetType(), String(L"5"));
}

TEST(MeasureRow, KeepsTheAggregatorUnchanged) {
  for (const auto& [text, code] :
       {std::pair{L"1", 1}, {L"127", 127}, {L"-1", -1}, {L"none", 0}, {L"99999", 32767}}) {
    XmlAMeasure measure(false);
    measure.AppendValueName(L"MEASURE_AGGREGATOR", text);
    EXPECT_EQ(measure.GetAggrType(), code);
  }
}

TEST(MeasureRow, IgnoresUnknownColumns) {
  XmlAMeasure measure(false);
  measure.AppendValueName(L"MEASURE_NAME_SQL_COLUMN_NAME", L"x");
  measure.AppendValueName(L"", L"x");
  EXPECT_EQ(measure.GetName(), String());
}

TEST(MemberRow, NameComesFromTheCaller) {
  const RefCnt<XmlAMember> member(new XmlAMember);
  EXPECT_EQ(member->GetMemberType(), 0);
  member->SetUniqueName(L"[Time].[All]");
  member->AppendValueName(L"MEMBER_UNIQUE_NAME", L"[Time].[2024]");
  EXPECT_EQ(member->GetUniqueName(), String(L"[Time].[All]"));
  member->SetUniqueName(L"[Time].[2025]");
  EXPECT_EQ(member->GetUniqueName(), String(L"[Time].[2025]"));
}

TEST(MemberRow, KeepsTheLastMemberType) {
  const RefCnt<XmlAMember> member(new XmlAMember);
  member->AppendValueName(L"member_Type", L"2");
  EXPECT_EQ(member->GetMemberType(), 2);
  member->AppendValueName(L"MEMBER_TYPE", L"-5");
  EXPECT_EQ(member->GetMemberType(), -5);
}

TEST(VariableRow, IsInitiallyAnOptionalSingleMember) {
  const XmlACubeVariable variable;
  EXPECT_EQ(variable.m_type, XmlACubeVariable::SAP_VAR_TYPE_MEMBER);
  EXPECT_EQ(variable.m_selectionType, XmlACubeVariable::SAP_VAR_SEL_TYPE_VALUE);
  EXPECT_EQ(variable.m_entryType, XmlACubeVariable::SAP_VAR_INPUT_TYPE_OPTIONAL);
}

XmlACubeVariable FullVariable() {
  XmlACubeVariable variable;
  const std::pair<const wchar_t*, const wchar_t*> columns[] = {
      {L"variable_name", L"[!V000002]"}, {L"VARIABLE_CAPTION", L"日历日-区间"},
      {L"Variable_Type", L"3"},          {L"VARIABLE_SELECTION_TYPE", L"4"},
      {L"VARIABLE_ENTRY_TYPE", L"2"},    {L"REFERENCE_DIMENSION", L"[0DOC_DATE]"},
      {L"REFERENCE_HIERARCHY", L"[H]"},  {L"DEFAULT_LOW", L"low"},
      {L"DEFAULT_HIGH", L"high"},        {L"DESCRIPTION", L"ignored"},
      {L"DEFAULT_LOW_CAP", L"ignored"},
  };
  for (const auto& [column, value] : columns)
    XmlACubeVariableUtility::AppendValueName(variable, column, value);
  return variable;
}

TEST(VariableRow, TakesItsColumns) {
  const XmlACubeVariable variable = FullVariable();
  EXPECT_EQ(variable.m_Name, String(L"[!V000002]"));
  EXPECT_EQ(variable.m_Caption, String(L"日历日-区间"));
  EXPECT_EQ(variable.m_type, XmlACubeVariable::SAP_VAR_TYPE_HIERARCHY);
  EXPECT_EQ(variable.m_selectionType, XmlACubeVariable::SAP_VAR_SEL_TYPE_MULTI_SINGLE_VALUES);
  EXPECT_EQ(variable.m_entryType, XmlACubeVariable::SAP_VAR_INPUT_TYPE_MANDATORY_NOT_INITIAL);
  EXPECT_EQ(variable.m_referenceDimension, String(L"[0DOC_DATE]"));
  EXPECT_EQ(variable.m_referenceHierarchy, String(L"[H]"));
  EXPECT_EQ(variable.m_defaultLow, String(L"low"));
  EXPECT_EQ(variable.m_defaultHigh, String(L"high"));
  EXPECT_EQ(variable.m_overrideDefaultLow, String());
  EXPECT_EQ(variable.m_overrideDefaultHigh, String());
}

TEST(VariableRow, KeepsUnknownCodes) {
  XmlACubeVariable variable;
  XmlACubeVariableUtility::AppendValueName(variable, L"VARIABLE_TYPE", L"-7");
  XmlACubeVariableUtility::AppendValueName(variable, L"VARIABLE_SELECTION_TYPE", L"99");
  XmlACubeVariableUtility::AppendValueName(variable, L"VARIABLE_ENTRY_TYPE", L"no number");
  EXPECT_EQ(static_cast<int>(variable.m_type), -7);
  EXPECT_EQ(static_cast<int>(variable.m_selectionType), 99);
  EXPECT_EQ(static_cast<int>(variable.m_entryType), 0);
}

TEST(VariableRow, ClampsCodesToSixteenBits) {
  const std::pair<const wchar_t*, int> codes[] = {
      {L"32767", 32767},   {L"32768", 32767},   {L"65537", 32767},
      {L"-32768", -32768}, {L"-32769", -32768}, {L"-65537", -32768},
  };
  for (const auto& [text, code] : codes) {
    XmlACubeVariable variable;
    for (const wchar_t* const column :
         {L"VARIABLE_TYPE", L"VARIABLE_SELECTION_TYPE", L"VARIABLE_ENTRY_TYPE"})
      XmlACubeVariableUtility::AppendValueName(variable, column, text);
    EXPECT_EQ(static_cast<int>(variable.m_type), code);
    EXPECT_EQ(static_cast<int>(variable.m_selectionType), code);
    EXPECT_EQ(static_cast<int>(variable.m_entryType), code);
  }
}

TEST(VariableRow, CopiesAreEqual) {
  const RefCnt<XmlACubeVariable> original(new XmlACubeVariable(FullVariable()));
  const RefCnt<XmlACubeVariable> again = original;
  const XmlACubeVariable copy(*original);
  EXPECT_EQ(copy.GetRefCount(), 2u);
  EXPECT_TRUE(copy == *original);
  XmlACubeVariable assigned;
  assigned.CopyFrom(*original);
  EXPECT_TRUE(assigned == *original);
}

TEST(VariableRow, ComparisonCoversAllElevenFields) {
  using V = XmlACubeVariable;
  const std::function<void(V&)> changes[] = {
      [](V& v) { v.m_Name = L"x"; },
      [](V& v) { v.m_Caption = L"x"; },
      [](V& v) { v.m_type = V::SAP_VAR_TYPE_NUMERIC; },
      [](V& v) { v.m_selectionType = V::SAP_VAR_SEL_TYPE_COMPLEX; },
      [](V& v) { v.m_entryType = V::SAP_VAR_INPUT_TYPE_MANDATORY; },
      [](V& v) { v.m_referenceDimension = L"x"; },
      [](V& v) { v.m_referenceHierarchy = L"x"; },
      [](V& v) { v.m_defaultLow = L"x"; },
      [](V& v) { v.m_defaultHigh = L"x"; },
      [](V& v) { v.m_overrideDefaultLow = L"x"; },
      [](V& v) { v.m_overrideDefaultHigh = L"x"; },
  };
  for (const auto& change : changes) {
    V changed = FullVariable();
    change(changed);
    EXPECT_FALSE(changed == FullVariable());
    V assigned;
    assigned = changed;
    EXPECT_TRUE(assigned == changed);
  }
}

}  // namespace
