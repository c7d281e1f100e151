#include "Envelope.h"

namespace sample {
namespace {

/// The parts of a reply that differ between the kinds. Order in a reply: opening, schema, rows,
/// closing.
struct Style {
  std::string_view contentType;
  std::string_view opening;
  std::string_view emptyRoot;  // root element without rows and schema
  std::string_view root;
  std::string_view schemaOpening;
  std::string_view schemaRow;  // start of a row's complex type
  std::string_view optional;   // attributes of a column's schema element
  std::string_view closing;
  std::string_view line;  // between elements
  int faultStatus;
};

constexpr std::string_view kSchemaRoot =
    R"(<xsd:element name="root"><xsd:complexType>)"
    R"(<xsd:sequence minOccurs="0" maxOccurs="unbounded"><xsd:element name="row" type="row"/>)"
    R"(</xsd:sequence></xsd:complexType></xsd:element>)";

constexpr Style kAnalysisServices = {
    "text/xml",
    R"(<soap:Envelope xmlns:soap="http://schemas.xmlsoap.org/soap/envelope/"><soap:Body>)"
    R"(<DiscoverResponse xmlns="urn:schemas-microsoft-com:xml-analysis")"
    R"( xmlns:ddl2="http://schemas.microsoft.com/analysisservices/2003/engine/2")"
    R"( xmlns:ddl2_2="http://schemas.microsoft.com/analysisservices/2003/engine/2/2"><return>)",
    "",
    R"(<root xmlns="urn:schemas-microsoft-com:xml-analysis:rowset")"
    R"( xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance")"
    R"( xmlns:xsd="http://www.w3.org/2001/XMLSchema">)",
    R"(<xsd:schema targetNamespace="urn:schemas-microsoft-com:xml-analysis:rowset")"
    R"( xmlns:sql="urn:schemas-microsoft-com:xml-sql" elementFormDefault="qualified">)",
    R"(<xsd:simpleType name="uuid"><xsd:restriction base="xsd:string"><xsd:pattern)"
    R"( value="[0-9a-zA-Z]{8}-([0-9a-zA-Z]{4}-){3}[0-9a-zA-Z]{12}"/></xsd:restriction>)"
    R"(</xsd:simpleType><xsd:complexType name="xmlDocument"><xsd:sequence><xsd:any/>)"
    R"(</xsd:sequence></xsd:complexType><xsd:complexType name="row"><xsd:sequence>)",
    R"( minOccurs="0")",
    "</root></return></DiscoverResponse></soap:Body></soap:Envelope>",
    "",
    500,
};

constexpr Style kSapBw = {
    "text/xml",
    "<?xml version=\"1.0\"?>\n"
    "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\""
    " SOAP-ENV:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\">\n"
    "<SOAP-ENV:Body>\n"
    "<DiscoverResponse xmlns=\"urn:schemas-microsoft-com:xml-analysis\">\n"
    "<return xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\""
    " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">  \n",
    "",
    "<root xmlns=\"urn:schemas-microsoft-com:xml-analysis:rowset\">\n",
    "<xsd:schema xmlns=\"urn:schemas-microsoft-com:xml-analysis:rowset\""
    " targetNamespace=\"urn:schemas-microsoft-com:xml-analysis:rowset\""
    " xmlns:sql=\"urn:schemas-microsoft-com:xml-sql\" elementFormDefault=\"qualified\">\n",
    "\n<xsd:complexType name=\"row\">\n<xsd:sequence maxOccurs=\"unbounded\" minOccurs=\"0\">\n",
    "",
    "</root>\n</return>\n</DiscoverResponse>\n</SOAP-ENV:Body>\n</SOAP-ENV:Envelope>\n",
    "\n",
    200,
};

constexpr Style kTamarind = {
    "text/xml;charset=UTF-8",
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\""
    " SOAP-ENV:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\">\n"
    "<SOAP-ENV:Header/>\n<SOAP-ENV:Body>\n"
    "<m:DiscoverResponse xmlns:m=\"urn:schemas-microsoft-com:xml-analysis\">\n<m:return>\n",
    "<root xmlns=\"urn:schemas-microsoft-com:xml-analysis:rowset\"/>\n",
    "<root xmlns=\"urn:schemas-microsoft-com:xml-analysis:rowset\""
    " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\""
    " xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\">\n",
    "<xsd:schema targetNamespace=\"urn:schemas-microsoft-com:xml-analysis:rowset\""
    " xmlns:sql=\"urn:schemas-microsoft-com:xml-sql\" elementFormDefault=\"qualified\">\n",
    "\n<xsd:complexType name=\"row\">\n<xsd:sequence>\n",
    " minOccurs=\"0\"",
    "</root>\n</m:return>\n</m:DiscoverResponse>\n</SOAP-ENV:Body>\n</SOAP-ENV:Envelope>\n",
    "\n",
    200,
};

const Style& StyleOf(Kind kind) {
  switch (kind) {
    case Kind::kAnalysisServices:
      return kAnalysisServices;
    case Kind::kSapBw:
      return kSapBw;
    case Kind::kTamarind:
      break;
  }
  return kTamarind;
}

void AppendSchema(std::string& out, const Style& style, Kind kind, const Rowset& rowset) {
  out.append(style.schemaOpening).append(kSchemaRoot).append(style.schemaRow);
  for (const Column& column : rowset.columns) {
    if (column.only.value_or(kind) != kind) continue;
    out.append("<xsd:element name=\"").append(column.name).append("\" type=\"");
    out.append(SchemaTypeName(column.type)).append("\" sql:field=\"").append(column.name);
    out.append("\"").append(style.optional);
    if (column.repeated && !style.optional.empty()) out.append(" maxOccurs=\"unbounded\"");
    out.append("/>").append(style.line);
  }
  out.append("</xsd:sequence>").append(style.line).append("</xsd:complexType>");
  out.append(style.line).append("</xsd:schema>").append(style.line);
}

void AppendRow(std::string& out, const Style& style, const Row& row) {
  out.append("<row>").append(style.line);
  for (const Cell& cell : row.cells) {
    const std::string_view name = cell.column->name;
    if (cell.text.empty()) {
      out.append("<").append(name).append("/>");
    } else {
      out.append("<").append(name).append(">").append(EscapeXml(cell.text));
      out.append("</").append(name).append(">");
    }
    out.append(style.line);
  }
  out.append("</row>").append(style.line);
}

std::string AnalysisServicesFault(std::string_view code, std::string_view text) {
  const unsigned long number = std::stoul(std::string(code), nullptr, 16);
  return R"(<soap:Envelope xmlns:soap="http://schemas.xmlsoap.org/soap/envelope/"><soap:Body>)"
         R"(<soap:Fault xmlns="http://schemas.xmlsoap.org/soap/envelope/">)"
         "<faultcode>XMLAnalysisError." +
         std::string(code) + "</faultcode><faultstring>" + EscapeXml(text) +
         "</faultstring><detail><Error ErrorCode=\"" + std::to_string(number) +
         "\" Description=\"" + EscapeXml(text) +
         R"(" Source="Microsoft SQL Server 2005 Analysis Services" HelpFile=""/></detail>)"
         "</soap:Fault></soap:Body></soap:Envelope>";
}

std::string PlainFault(std::string_view declaration, std::string_view actor, std::string_view code,
                       std::string_view text) {
  std::string out(declaration);
  out +=
      "\n<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\""
      " SOAP-ENV:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\">\n"
      "<SOAP-ENV:Body>\n<SOAP-ENV:Fault>\n  <faultcode>SOAP-ENV:Client.";
  out.append(code).append("</faultcode>\n  <faultstring>").append(EscapeXml(text));
  out.append("</faultstring>\n  <faultactor>").append(actor);
  out.append("</faultactor>\n  <detail>\n    <XA:error xmlns:XA=\"urn:sample:").append(actor);
  out.append("\">\n      <code>").append(code).append("</code>\n      <desc>");
  out.append(EscapeXml(text));
  out +=
      "</desc>\n    </XA:error>\n  </detail>\n</SOAP-ENV:Fault>\n</SOAP-ENV:Body>\n"
      "</SOAP-ENV:Envelope>\n";
  return out;
}

}  // namespace

std::string EscapeXml(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\r':
        out += "&#13;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

HttpReply RowsetReply(Kind kind, const Rowset& rowset, const std::vector<const Row*>& rows,
                      bool withSchema) {
  const Style& style = StyleOf(kind);
  HttpReply reply{200, std::string(style.contentType), std::string(style.opening)};
  if (rows.empty() && !style.emptyRoot.empty()) {
    reply.body += style.emptyRoot;
    reply.body += style.closing.substr(style.closing.find("</m:return>"));
    return reply;
  }
  reply.body += style.root;
  if (withSchema) AppendSchema(reply.body, style, kind, rowset);
  for (const Row* row : rows) AppendRow(reply.body, style, *row);
  reply.body += style.closing;
  return reply;
}

HttpReply FaultReply(Kind kind, std::string_view code, std::string_view text) {
  const Style& style = StyleOf(kind);
  HttpReply reply{style.faultStatus, std::string(style.contentType), {}};
  switch (kind) {
    case Kind::kAnalysisServices:
      reply.body = AnalysisServicesFault(code, text);
      break;
    case Kind::kSapBw:
      reply.body = PlainFault("<?xml version=\"1.0\"?>", "BW", code, text);
      break;
    case Kind::kTamarind:
      reply.body = PlainFault("<?xml version=\"1.0\" encoding=\"UTF-8\"?>", "Kelvora", code, text);
      break;
  }
  return reply;
}

}  // namespace sample
