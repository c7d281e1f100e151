#pragma once

#include "Utility/Generic/MemAlloc.h"
#include "Utility/Generic/String.h"
#include "Utility/Generic/VXStringVector.h"

/// Builds the text of one XMLA Discover request. Order of use: the request type, the data-source
/// information, any restrictions, then GetContent, which empties the builder for the next request.
/// Values are escaped when they are given; the request type is not. Used by one thread at a time.
class XmlASoapRequest : public MemAllocNewdel {
 public:
  XmlASoapRequest();

  /// The schema rowset, for example MDSCHEMA_CUBES; written as it is.
  void SetRequestType(const String& type);
  /// The DataSourceInfo property. Without it no property is written at all.
  void SetDataSourceInfo(const String& info);
  // Restrictions that may be given several times, empty values included.
  void PushCatalogRestriction(const String& name);
  void PushCubeRestriction(const String& name);
  void PushDimensionRestriction(const String& name);
  void PushHierarchyRestriction(const String& name);
  void PushPropertyRestriction(const String& name);
  // Restrictions with one value: the last one given counts, an empty one means none.
  void PushLevelRestriction(const String& name);
  void PushMemberRestriction(const String& name);

  /// Empties everything, the request type and the data-source information included.
  void ClearRestrictions();
  bool HasRestriction() const;
  /// What the request asks for, in words: its type and the names that restrict it.
  String Subject() const;
  /// The text of the request; afterwards the builder is empty.
  String GetContent();

 private:
  String m_Subject;
  String m_RequestType;
  String m_DataSourceInfo;
  String m_LevelUniqueName;
  String m_MemberUniqueName;
  VXStringVector m_CatalogRestriction;
  VXStringVector m_CubeRestriction;
  VXStringVector m_DimensionRestriction;
  VXStringVector m_HierarchyRestriction;
  VXStringVector m_PropertiesRestriction;
};
