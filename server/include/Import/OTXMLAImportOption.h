#pragma once

#include "Utility/Generic/VXStringVector.h"

/// What the host may set before an import.
class OTXMLAImportOption {
 public:
  OTXMLAImportOption() = default;
  OTXMLAImportOption(const OTXMLAImportOption&) = default;
  OTXMLAImportOption& operator=(const OTXMLAImportOption&) = default;
  ~OTXMLAImportOption() = default;

  bool m_bFlatMeasureListFlag = false;             ///< measures as one flat list
  bool m_bSkipDimensionUDA = false;                ///< leave user-defined attributes out
  VXStringVector m_forceSingleViewHierarchyNames;  ///< hierarchies to import as single-view ones
};
