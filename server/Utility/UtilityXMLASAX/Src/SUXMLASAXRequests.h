#pragma once

#include "SUXMLASAXLogTitles.h"
#include "Utility/Generic/String.h"
#include "Utility/Generic/VXDateTime.h"
#include "Utility/Generic/VXStringVector.h"
#include "Utility/XMLASAX/XmlASoapRequest.h"

/// One Discover request, ready to be sent.
struct DiscoverRequest {
  VXDateTime started;             ///< taken before the request was built
  const LogTitle* title;          ///< of its entry in the import log ...
  VXStringVector titleArguments;  ///< ... and what the title says
  String subject;                 ///< what is asked for, in words
  NarrowString body;              ///< UTF-8
  bool isTooLong;                 ///< beyond maxRequestBytes (ImportLimits): the body is empty
};

/// Where a cube is.
struct CubePlace {
  const String& catalog;
  const String& cube;  ///< empty: all cubes of the catalog
  const String& dataSourceInfo;
};

/// The requests that the library sends, one function for each rowset. Pure: the same arguments give
/// the same body. `builder` is empty before and after.
namespace Requests {

DiscoverRequest ProviderProperty(XmlASoapRequest& builder, const LogTitle& title, const String& url,
                                 const String& property);
DiscoverRequest DataSources(XmlASoapRequest& builder, const LogTitle& title, const String& url);
DiscoverRequest Catalogs(XmlASoapRequest& builder, const String& dataSourceInfo);
DiscoverRequest Cubes(XmlASoapRequest& builder, const String& catalog,
                      const String& dataSourceInfo);
DiscoverRequest Dimensions(XmlASoapRequest& builder, const LogTitle& title, const CubePlace& place);
DiscoverRequest Hierarchies(XmlASoapRequest& builder, const CubePlace& place);
DiscoverRequest Levels(XmlASoapRequest& builder, const CubePlace& place, const String& hierarchy);
DiscoverRequest Properties(XmlASoapRequest& builder, const CubePlace& place,
                           const String& hierarchy, const String& dimension, const String& level);
DiscoverRequest Members(XmlASoapRequest& builder, const CubePlace& place, const String& hierarchy,
                        const String& member);
DiscoverRequest Measures(XmlASoapRequest& builder, const CubePlace& place);
DiscoverRequest Variables(XmlASoapRequest& builder, const CubePlace& place);

}  // namespace Requests
