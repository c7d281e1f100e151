#pragma once

#include <string>
#include <utility>
#include <vector>

// The expected bytes of Discover requests. Independent of the product's code, so that its mistakes
// are noticed.

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

/// Restrictions in order (element name, escaped value), and the properties that follow from them:
/// none for an empty data source, the catalog if there is a catalog restriction.
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
