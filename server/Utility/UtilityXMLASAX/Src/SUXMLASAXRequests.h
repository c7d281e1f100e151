#pragma once

#include "SUXMLASAXLogTitles.h"
#include "Utility/Generic/String.h"
#include "Utility/Generic/VXDateTime.h"
#include "Utility/Generic/VXStringVector.h"
#include "Utility/XMLASAX/XmlASoapRequest.h"

/// A Discover request that is ready to be sent.
struct DiscoverRequest {
  VXDateTime started;             ///< time before the request was built
  const LogTitle* title;          ///< formats of the log entry's title
  VXStringVector titleArguments;  ///< arguments of the title
  String subject;                 ///< description, see HTTPClientWrapper
  NarrowString body;              ///< UTF-8
  bool isTooLong;                 ///< exceeds ImportLimits::maxRequestBytes; the body is empty
};

/// Identifies a cube.
struct CubePlace {
  const String& catalog;
  const String& cube;  ///< empty: all cubes of the catalog
  const String& dataSourceInfo;
};

/// The requests of the library, one function for each rowset. The body depends only on the
/// arguments. `builder` is empty afterwards.
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
