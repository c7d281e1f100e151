#include "SampleClient.h"

#include <curl/curl.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <memory>

namespace sample_test {
namespace {

std::string Escape(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == '&') {
      out += "&amp;";
    } else if (c == '<') {
      out += "&lt;";
    } else if (c == '>') {
      out += "&gt;";
    } else {
      out += c;
    }
  }
  return out;
}

std::size_t Append(char* data, std::size_t size, std::size_t count, void* to) {
  static_cast<std::string*>(to)->append(data, size * count);
  return size * count;
}

using Easy = std::unique_ptr<CURL, decltype(&curl_easy_cleanup)>;

Reply Perform(CURL* curl) {
  Reply reply;
  curl_easy_setopt(curl, CURLOPT_PROXY, "");
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Append);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply.body);
  curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, Append);
  curl_easy_setopt(curl, CURLOPT_HEADERDATA, &reply.headers);
  reply.error = curl_easy_perform(curl);
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &reply.status);
  return reply;
}

std::string Name(const xmlNode* node) { return reinterpret_cast<const char*>(node->name); }

std::string Content(xmlNode* node) {
  const std::unique_ptr<xmlChar, xmlFreeFunc> text(xmlNodeGetContent(node), xmlFree);
  return reinterpret_cast<const char*>(text.get());
}

void ReadRow(xmlNode* row, Document& document) {
  RowTexts texts;
  std::vector<std::string> order;
  for (xmlNode* cell = row->children; cell; cell = cell->next) {
    if (cell->type != XML_ELEMENT_NODE) continue;
    const std::string name = Name(cell);
    const auto [at, is_new] = texts.try_emplace(name, Content(cell));
    if (is_new) {
      order.push_back(name);
    } else {
      at->second += "|" + Content(cell);
    }
  }
  document.rows.push_back(std::move(texts));
  document.columnOrder.push_back(std::move(order));
}

void Walk(xmlNode* node, Document& document) {
  for (; node; node = node->next) {
    if (node->type != XML_ELEMENT_NODE) continue;
    const std::string name = Name(node);
    if (name == "row") {
      ReadRow(node, document);
      continue;
    }
    if (name == "faultcode") document.faultCode = Content(node);
    if (name == "faultstring") document.faultText = Content(node);
    if (name == "element") {
      if (const xmlAttr* field =
              xmlHasNsProp(node, BAD_CAST "field", BAD_CAST "urn:schemas-microsoft-com:xml-sql")) {
        document.schemaColumns.emplace_back(Content(field->children));
      }
    }
    Walk(node->children, document);
  }
}

}  // namespace

std::string Envelope(const std::string& type, const Pairs& restrictions, const Pairs& properties) {
  const auto list = [](const char* name, const Pairs& pairs) {
    std::string out;
    for (const auto& [key, value] : pairs)
      out += "<" + key + ">" + Escape(value) + "</" + key + ">";
    return out.empty() ? out : "<" + std::string(name) + ">" + out + "</" + name + ">";
  };
  return "<?xml version=\"1.0\"?>\r\n<SOAP-ENV:Envelope "
         "xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\"><SOAP-ENV:Body>"
         "<Discover xmlns=\"urn:schemas-microsoft-com:xml-analysis\"><RequestType>" +
         type + "</RequestType>\n<Restrictions>" + list("RestrictionList", restrictions) +
         "</Restrictions><Properties>" + list("PropertyList", properties) +
         "</Properties></Discover>\r\n </SOAP-ENV:Body>\r\n </SOAP-ENV:Envelope>\r\n";
}

Reply Post(const std::string& url, const std::string& body, const Call& call) {
  const Easy curl(curl_easy_init(), curl_easy_cleanup);
  curl_slist* lines = curl_slist_append(nullptr, "Content-Type: text/xml");
  if (!call.acceptEncoding.empty())
    lines = curl_slist_append(lines, ("Accept-Encoding: " + call.acceptEncoding).c_str());
  const std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headers(lines,
                                                                            curl_slist_free_all);
  curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, body.data());
  curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT_MS, call.timeoutMs);
  if (!call.userAndPassword.empty())
    curl_easy_setopt(curl.get(), CURLOPT_USERPWD, call.userAndPassword.c_str());
  if (call.unpack) curl_easy_setopt(curl.get(), CURLOPT_ACCEPT_ENCODING, "gzip");
  return Perform(curl.get());
}

Reply Get(const std::string& url) {
  const Easy curl(curl_easy_init(), curl_easy_cleanup);
  curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
  return Perform(curl.get());
}

Document Parse(const std::string& body) {
  Document document;
  xmlResetLastError();
  const std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> parsed(
      xmlReadMemory(body.data(), static_cast<int>(body.size()), nullptr, nullptr,
                    XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
      xmlFreeDoc);
  // An undeclared prefix is an error, although libxml2 returns a document.
  const xmlError* error = xmlGetLastError();
  if (error && error->message) document.reason = error->message;
  document.wellFormed = parsed && !error;
  if (!parsed) return document;
  xmlNode* root = xmlDocGetRootElement(parsed.get());
  if (root->ns && root->ns->prefix)
    document.root = std::string(reinterpret_cast<const char*>(root->ns->prefix)) + ":";
  document.root += Name(root);
  Walk(root, document);
  return document;
}

std::vector<RowTexts> Rows(const std::string& url, const std::string& type,
                           const Pairs& restrictions, const Pairs& properties) {
  const Reply reply = Discover(url, type, restrictions, properties);
  EXPECT_EQ(reply.error, 0);
  EXPECT_EQ(reply.status, 200) << reply.body;
  Document document = Parse(reply.body);
  EXPECT_TRUE(document.wellFormed) << document.reason;
  EXPECT_EQ(document.faultText, "");
  return document.rows;
}

std::vector<std::string> ColumnOf(const std::vector<RowTexts>& rows, const std::string& column) {
  std::vector<std::string> texts;
  for (const RowTexts& row : rows) {
    const auto found = row.find(column);
    texts.push_back(found == row.end() ? "(absent)" : found->second);
  }
  return texts;
}

}  // namespace sample_test
