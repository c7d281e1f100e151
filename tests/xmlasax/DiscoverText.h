#pragma once

#include <string>
#include <utility>
#include <vector>

// The text of Discover requests as it must go over the wire, written out here once more, byte for
// byte, so that no slip in the builder goes unseen.

inline std::string Discover(const std::string& type, const std::string& restrictionsAndProperties) {
  return "<?xml version=\"1.0\"?>\r\n"
         "                <SOAP-ENV:Envelope\r\n"
         "                xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\"\r\n"
         "                SOAP-ENV:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\">\r\n"
         "                <SOAP-ENV:Body>\r\n"
         "                <Discover xmlns=\"urn:schemas-microsoft-com:xml-analysis\"\r\n"
         "                SOAP-ENV:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\">\r\n"
         "<RequestType>" +
         type + "</RequestType>\n" + restrictionsAndProperties +
         "</Discover>\r\n </SOAP-ENV:Body>\r\n </SOAP-ENV:Envelope>\r\n";
}

/// With restrictions in order (element name, value; all already escaped), and the properties that
/// go with the data source: none for an empty one, the catalog when there is a catalog restriction.
inline std::string Discover(const std::string& type, const std::string& dataSource,
                            const std::vector<std::pair<std::string, std::string>>& restrictions) {
  std::string list;
  std::string catalog;
  for (const auto& [name, value] : restrictions) {
    const std::string element = "<" + name + ">" + value + "</" + name + ">";
    list += element;
    if (name == "CATALOG_NAME") catalog = "<Catalog>" + value + "</Catalog>";
  }
  if (!list.empty()) list = "<RestrictionList>" + list + "</RestrictionList>";
  const std::string properties = dataSource.empty()
                                     ? ""
                                     : "<PropertyList><DataSourceInfo>" + dataSource +
                                           "</DataSourceInfo>" + catalog + "</PropertyList>";
  return Discover(
      type, "<Restrictions>" + list + "</Restrictions><Properties>" + properties + "</Properties>");
}
