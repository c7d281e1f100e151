#pragma once

#include "Utility/Generic/MemAlloc.h"
#include "Utility/Generic/String.h"
#include "Utility/Generic/VXStringVector.h"

/// Builds the text of an XMLA Discover request. Order of calls: SetRequestType, SetDataSourceInfo,
/// restrictions, GetContent. GetContent empties the builder for the next request. Values are
/// escaped; the request type is not. Use from one thread at a time.
class XmlASoapRequest : public MemAllocNewdel {
 public:
  XmlASoapRequest();

  /// The schema rowset, for example MDSCHEMA_CUBES; not escaped.
  void SetRequestType(const String& type);
  /// The DataSourceInfo property. If it is empty, the request has no properties.
  void SetDataSourceInfo(const String& info);
  // Restrictions with any number of values, which may be empty.
  void PushCatalogRestriction(const String& name);
  void PushCubeRestriction(const String& name);
  void PushDimensionRestriction(const String& name);
  void PushHierarchyRestriction(const String& name);
  void PushPropertyRestriction(const String& name);
  // Restrictions with one value: each call replaces it, and an empty value means none.
  void PushLevelRestriction(const String& name);
  void PushMemberRestriction(const String& name);

  /// Empties the builder, including the request type and the DataSourceInfo.
  void ClearRestrictions();
  bool HasRestriction() const;
  /// A description of the request: its type and the names in its restrictions.
  String Subject() const;
  /// Returns the text of the request and empties the builder.
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
