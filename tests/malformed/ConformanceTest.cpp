// Runs W3C's XML conformance suite with its documents as replies. A document without document type
// declaration must be accepted or refused as the suite says, or be listed below with a reason. One
// with a declaration must be refused.

#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/SAX2XmlReadDriver.h"
#include "http/ReplyCharset.h"
#include "support/Effort.h"

namespace {

struct Document {
  std::string id;
  std::string type;  // valid, invalid, not-wf or error
  std::string bytes;
};

/// Documents that the suite calls not well-formed and that the product accepts, and why.
struct Exceptions {
  const char* reason;
  std::vector<std::string> ids;
};

const std::vector<Exceptions>& AllExceptions() {
  static const std::vector<Exceptions> exceptions = {
      {"blanks in front of the XML declaration are skipped: some servers send them",
       {"not-wf-sa-147", "o-p01fail1", "o-p22fail1"}},
      {"an ill-formed byte sequence becomes U+FFFD: a reply is not lost for one broken name",
       {"not-wf-sa-168", "not-wf-sa-169", "not-wf-sa-170", "ibm-1-1-not-wf-P02-ibm02n67.xml"}},
      {"XML 1.1 is read as XML 1.0, which allows the control characters U+007F to U+009F",
       {"ibm-1-1-not-wf-P02-ibm02n32.xml", "ibm-1-1-not-wf-P02-ibm02n33.xml",
        "ibm-1-1-not-wf-P02-ibm02n34.xml", "ibm-1-1-not-wf-P02-ibm02n35.xml",
        "ibm-1-1-not-wf-P02-ibm02n36.xml", "ibm-1-1-not-wf-P02-ibm02n37.xml",
        "ibm-1-1-not-wf-P02-ibm02n38.xml", "ibm-1-1-not-wf-P02-ibm02n39.xml",
        "ibm-1-1-not-wf-P02-ibm02n40.xml", "ibm-1-1-not-wf-P02-ibm02n41.xml",
        "ibm-1-1-not-wf-P02-ibm02n42.xml", "ibm-1-1-not-wf-P02-ibm02n43.xml",
        "ibm-1-1-not-wf-P02-ibm02n44.xml", "ibm-1-1-not-wf-P02-ibm02n45.xml",
        "ibm-1-1-not-wf-P02-ibm02n46.xml", "ibm-1-1-not-wf-P02-ibm02n47.xml",
        "ibm-1-1-not-wf-P02-ibm02n48.xml", "ibm-1-1-not-wf-P02-ibm02n49.xml",
        "ibm-1-1-not-wf-P02-ibm02n50.xml", "ibm-1-1-not-wf-P02-ibm02n51.xml",
        "ibm-1-1-not-wf-P02-ibm02n52.xml", "ibm-1-1-not-wf-P02-ibm02n53.xml",
        "ibm-1-1-not-wf-P02-ibm02n54.xml", "ibm-1-1-not-wf-P02-ibm02n55.xml",
        "ibm-1-1-not-wf-P02-ibm02n56.xml", "ibm-1-1-not-wf-P02-ibm02n57.xml",
        "ibm-1-1-not-wf-P02-ibm02n58.xml", "ibm-1-1-not-wf-P02-ibm02n59.xml",
        "ibm-1-1-not-wf-P02-ibm02n60.xml", "ibm-1-1-not-wf-P02-ibm02n61.xml",
        "ibm-1-1-not-wf-P02-ibm02n62.xml", "ibm-1-1-not-wf-P02-ibm02n63.xml"}},
      {"the bytes decide about the encoding, not the declaration",
       {"rmt-e2e-61", "hst-lhs-007", "hst-lhs-008"}},
      {"its name is allowed since the fifth edition of XML 1.0", {"rmt-016", "rmt-019"}},
      {"namespace errors are ignored, because servers forget to declare prefixes",
       {"rmt-ns10-013", "rmt-ns10-014", "rmt-ns10-015", "rmt-ns10-016", "rmt-ns10-023",
        "rmt-ns10-025", "rmt-ns10-026", "rmt-ns10-029", "rmt-ns10-030", "rmt-ns10-031",
        "rmt-ns10-032", "rmt-ns10-033", "rmt-ns10-036", "rmt-ns10-042", "rmt-ns11-005",
        "ht-bh-ns11-007", "ht-bh-ns11-008"}},
  };
  return exceptions;
}

std::string Attribute(const xmlNode* node, const char* name) {
  const std::unique_ptr<xmlChar, xmlFreeFunc> value(
      xmlGetProp(node, reinterpret_cast<const xmlChar*>(name)), xmlFree);
  return value ? reinterpret_cast<const char*>(value.get()) : "";
}

std::string BytesOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  EXPECT_TRUE(stream) << file;
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

/// Collects the tests below a node of the suite's catalogue, whose groups are in folders.
void Gather(const xmlNode* node, const std::filesystem::path& folder,
            std::vector<Document>& documents) {
  for (; node; node = node->next) {
    if (node->type != XML_ELEMENT_NODE) continue;
    const std::string_view name = reinterpret_cast<const char*>(node->name);
    if (name == "TEST") {
      std::filesystem::path file = folder / Attribute(node, "URI");
      // The folder of one group differs from the catalogue.
      if (!std::filesystem::exists(file))
        file = folder.parent_path().parent_path().parent_path() / "misc" / Attribute(node, "URI");
      documents.push_back({Attribute(node, "ID"), Attribute(node, "TYPE"), BytesOf(file)});
      continue;
    }
    Gather(node->children, folder / Attribute(node, "base"), documents);
  }
}

std::vector<Document> Suite() {
  std::vector<Document> documents;
  const std::filesystem::path folder(XMLA_CONFORMANCE_SUITE);
  const std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> catalogue(
      xmlReadFile((folder / "xmlconf.xml").c_str(), nullptr,
                  XML_PARSE_NOENT | XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
      &xmlFreeDoc);
  if (catalogue) Gather(catalogue->children, folder, documents);
  return documents;
}

/// True if a reply with these bytes is read without error.
bool IsAccepted(const std::string& bytes) {
  static const auto driver = SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(1);
  NarrowString text{std::string_view(bytes)};
  String charset;
  if (ConvertReplyToUTF8(text, "text/xml", HTTPClientOptions().maxReplyBytes, charset) !=
      CharsetResult::kReady)
    return false;
  String error;
  bool isAccepted = true;
  driver->Announce();
  driver->ParseBytesInMem(text, error);
  while (const RefCnt<SAX2XmlElement> element = driver->Read())
    isAccepted = isAccepted && !element->HasError();
  EXPECT_EQ(isAccepted, error.empty());
  return isAccepted;
}

/// True if libxml2 finds a document type declaration, even in an ill-formed document.
bool HasDocumentType(const std::string& bytes) {
  // Suppresses messages about errors inside the declaration.
  xmlSetStructuredErrorFunc(nullptr, [](void*, xmlErrorPtr) {});
  const std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> document(
      xmlReadMemory(bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr,
                    XML_PARSE_RECOVER | XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
      &xmlFreeDoc);
  return document && document->intSubset;
}

TEST(ConformanceSuite, IsFollowedExceptForListedDocuments) {
  if (!std::filesystem::exists(XMLA_CONFORMANCE_SUITE))
    GTEST_SKIP() << "skipped: W3C's XML conformance suite is missing; "
                    "tests/malformed/fetch-conformance-suite fetches it";
  const std::vector<Document> documents = Suite();
  ASSERT_GT(documents.size(), 2000u);
  std::set<std::string> exceptions;
  for (const Exceptions& group : AllExceptions())
    exceptions.insert(group.ids.begin(), group.ids.end());
  std::set<std::string> met;
  std::size_t withType = 0;
  std::size_t accepted = 0;
  std::size_t refused = 0;
  std::size_t free = 0;
  for (const Document& document : documents) {
    const bool isAccepted = IsAccepted(document.bytes);
    if (HasDocumentType(document.bytes)) {
      ++withType;
      EXPECT_FALSE(isAccepted) << document.id << " has a document type declaration";
      continue;
    }
    if (document.type == "error") {  // a processor may report it, or not
      ++free;
      continue;
    }
    const bool isToBeAccepted = document.type != "not-wf";
    if (isAccepted == isToBeAccepted) {
      ++(isAccepted ? accepted : refused);
      EXPECT_FALSE(exceptions.contains(document.id)) << document.id << " is no exception";
    } else {
      met.insert(document.id);
      EXPECT_TRUE(exceptions.contains(document.id))
          << document.id << " (" << document.type << ") is "
          << (isAccepted ? "accepted" : "refused") << ": " << document.bytes.substr(0, 200);
    }
  }
  EXPECT_EQ(met, exceptions);
  std::string reasons;
  for (const Exceptions& group : AllExceptions())
    reasons += "; " + std::to_string(group.ids.size()) + ": " + group.reason;
  support::PrintFigure(
      "W3C XML conformance suite",
      std::to_string(documents.size()) + " documents: " + std::to_string(withType) +
          " with a document type declaration, all refused; without one " +
          std::to_string(accepted) + " accepted and " + std::to_string(refused) +
          " refused as the suite says, " + std::to_string(met.size()) + " listed exceptions, " +
          std::to_string(free) + " where it leaves the choice (exceptions" + reasons + ")");
}

}  // namespace
