#pragma once

/// \file
/// The record of the host's options for an import.

#include "Utility/Generic/VXStringVector.h"

/// Options of the host for an import. They are only stored: no XMLA operation reads them.
class OTXMLAImportOption {
 public:
  OTXMLAImportOption() = default;
  OTXMLAImportOption(const OTXMLAImportOption&) = default;
  OTXMLAImportOption& operator=(const OTXMLAImportOption&) = default;
  ~OTXMLAImportOption() = default;

  bool m_bFlatMeasureListFlag = false;  ///< import measures as a flat list
  bool m_bSkipDimensionUDA = false;     ///< skip user-defined attributes
  VXStringVector
      m_forceSingleViewHierarchyNames;  ///< hierarchies to import as single-view hierarchies
};
