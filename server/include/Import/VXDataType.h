#pragma once

/// \file
/// The data types of columns in the import records.

/// The host's column data types. The host stores the values, so they must not change.
enum VXDataType {
  VXBitData = 0,
  VXCharData = 1,
  VXVarCharData = 2,
  VXLongVarCharData = 3,
  VXBinaryData = 4,
  VXVarBinaryData = 5,
  VXLongVarBinaryData = 6,
  VXInt1Data = 7,
  VXUInt1Data = 8,
  VXInt2Data = 9,
  VXUInt2Data = 10,
  VXInt4Data = 11,
  VXUInt4Data = 12,
  VXFloatData = 13,
  VXDoubleData = 14,
  VXMoneyData = 15,
  VXNumericData = 16,
  VXDecimalData = 17,
  VXDateData = 18,
  VXTimeData = 19,
  VXDateTimeData = 20,
  VXTimeStampData = 21,
  VXIntervalData = 22,
  VXObjectData = 23,
  VXBoolean = 24,
  VXUnknown = 25,
  VXMaxType = 26,
};
