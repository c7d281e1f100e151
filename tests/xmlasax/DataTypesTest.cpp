// Tests the mapping of server types to record types.

#include <gtest/gtest.h>

#include <map>

#include "Utility/XMLASAX/XMLADataTypes.h"
#include "support/Text.h"

namespace {

// The OLE DB type indicators that the import supports.
const std::map<int, VXDataType> kKnown = {
    {2, VXDoubleData},        {3, VXDoubleData},  {4, VXDoubleData},
    {5, VXDoubleData},        {6, VXDoubleData},  {7, VXDateData},
    {8, VXLongVarCharData},   {11, VXBitData},    {12, VXLongVarCharData},
    {14, VXDecimalData},      {17, VXInt1Data},   {18, VXNumericData},
    {19, VXNumericData},      {20, VXDoubleData}, {21, VXNumericData},
    {129, VXLongVarCharData}, {130, VXCharData},  {131, VXNumericData},
    {133, VXDateData},        {135, VXDateData},  {16384, VXLongVarBinaryData},
};

TEST(XmlADataType, EverySixteenBitCodeIsMappedByTheTable) {
  for (int code = -32768; code <= 32767; ++code) {
    const auto found = kKnown.find(code);
    const VXDataType expected = found == kKnown.end() ? VXUnknown : found->second;
    ASSERT_EQ(XmlA2VXDataType(support::Wide(std::to_string(code))), expected) << code;
  }
}

TEST(XmlADataType, TextIsParsedAsANumber) {
  EXPECT_EQ(XmlA2VXDataType(L" 130 "), VXCharData);
  EXPECT_EQ(XmlA2VXDataType(L"130x"), VXCharData);
  EXPECT_EQ(XmlA2VXDataType(L""), VXUnknown);
  EXPECT_EQ(XmlA2VXDataType(L"CHAR"), VXUnknown);
  EXPECT_EQ(XmlA2VXDataType(L"65666"), VXUnknown);  // 130 + 65536: held to the range, not wrapped
}

TEST(SapBwDataType, OnlyFltpInAnyCaseIsFloat) {
  for (const wchar_t* name : {L"FLTP", L"fltp", L"FlTp"})
    EXPECT_EQ(SAPBW2VXDataType(name), VXFloatData);
  for (const wchar_t* name : {L"", L"CHAR", L"FLTPX", L"XFLTP", L"FLT", L"5", L" FLTP"})
    EXPECT_EQ(SAPBW2VXDataType(name), VXUnknown) << support::Narrow(name);
}

TEST(TamarindDataType, ThreeIsTextAndOthersAreDouble) {
  EXPECT_EQ(Tamarind2VXDataType(L"3"), VXVarCharData);
  for (const wchar_t* code : {L"", L"0", L"03", L"3 ", L"33", L"130", L"text"})
    EXPECT_EQ(Tamarind2VXDataType(code), VXDoubleData) << support::Narrow(code);
}

TEST(DataTypeNumbers, HaveTheHostsValues) {
  EXPECT_EQ(VXBitData, 0);
  EXPECT_EQ(VXCharData, 1);
  EXPECT_EQ(VXVarCharData, 2);
  EXPECT_EQ(VXLongVarCharData, 3);
  EXPECT_EQ(VXBinaryData, 4);
  EXPECT_EQ(VXVarBinaryData, 5);
  EXPECT_EQ(VXLongVarBinaryData, 6);
  EXPECT_EQ(VXInt1Data, 7);
  EXPECT_EQ(VXUInt1Data, 8);
  EXPECT_EQ(VXInt2Data, 9);
  EXPECT_EQ(VXUInt2Data, 10);
  EXPECT_EQ(VXInt4Data, 11);
  EXPECT_EQ(VXUInt4Data, 12);
  EXPECT_EQ(VXFloatData, 13);
  EXPECT_EQ(VXDoubleData, 14);
  EXPECT_EQ(VXMoneyData, 15);
  EXPECT_EQ(VXNumericData, 16);
  EXPECT_EQ(VXDecimalData, 17);
  EXPECT_EQ(VXDateData, 18);
  EXPECT_EQ(VXTimeData, 19);
  EXPECT_EQ(VXDateTimeData, 20);
  EXPECT_EQ(VXTimeStampData, 21);
  EXPECT_EQ(VXIntervalData, 22);
  EXPECT_EQ(VXObjectData, 23);
  EXPECT_EQ(VXBoolean, 24);
  EXPECT_EQ(VXUnknown, 25);
  EXPECT_EQ(VXMaxType, 26);
}

}  // namespace
