#include "inprocess/Oracle.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <memory>
#include <string>
#include <unordered_map>

#include "Utility/Generic/BaseStringUtil.h"
#include "inprocess/PlainText.h"

namespace inprocess {
namespace {

using BaseStringUtil::IsCaseInsensitiveMatch;

constexpr std::size_t kMaxDepth = 250;
constexpr std::string_view kMark = "\xEF\xBB\xBF";
constexpr std::string_view kBlanks = " \t\r\n";

std::string_view AsText(const xmlChar* text) { return reinterpret_cast<const char*>(text); }

bool IsAscii(std::string_view text) {
  return std::none_of(text.begin(), text.end(), [](char c) { return (c & 0x80) != 0; });
}

void SkipBlanksAndMarks(std::string_view& text) {
  while (!text.empty()) {
    if (text.starts_with(kMark))
      text.remove_prefix(kMark.size());
    else if (kBlanks.find(text.front()) != std::string_view::npos)
      text.remove_prefix(1);
    else
      return;
  }
}

/// Removes an XML declaration from the front. Returns false if there is none.
bool SkipDeclaration(std::string_view& text) {
  if (!text.starts_with("<?xml") || text.size() < 6 ||
      kBlanks.find(text[5]) == std::string_view::npos)
    return false;
  const std::size_t end = text.find("?>", 6);
  if (end == std::string_view::npos) return false;
  text.remove_prefix(end + 2);
  return true;
}

/// State of the walk over a tree.
struct TreeCounts {
  struct NameKind {
    bool isCounted = false;
    bool isFaultCode = false;
    bool isFaultText = false;
    bool isFault = false;
    bool isException = false;
    bool isError = false;
  };

  String::View countedName;
  std::size_t counted = 0;
  std::size_t depth = 0;
  bool hasSoap11Texts = false;
  bool isOtherFailure = false;  // a fault that is not SOAP 1.1, or an XMLA exception
  std::wstring faultCode;
  std::wstring faultText;
  std::wstring* elements = nullptr;

  std::unordered_map<const xmlChar*, NameKind> kinds;

  void Visit(const xmlNode* node, std::size_t level);
  const NameKind& KindOf(const xmlNode* element);
};

/// The element's own text without whitespace-only runs beside child elements.
std::wstring OwnText(const xmlNode* element) {
  bool hasChildren = false;
  for (const xmlNode* node = element->children; node; node = node->next)
    hasChildren = hasChildren || node->type == XML_ELEMENT_NODE;
  std::string text;
  std::string run;
  const auto closeRun = [&] {
    if (!hasChildren || run.find_first_not_of(kBlanks) != std::string::npos) text += run;
    run.clear();
  };
  for (const xmlNode* node = element->children; node; node = node->next) {
    if (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE)
      run += AsText(node->content);
    else if (node->type == XML_ELEMENT_NODE)
      closeRun();
  }
  closeRun();
  return PlainDecode(text);
}

/// True for characters that may continue a name but not start it (XML 1.0, productions 4 and 4a),
/// and for the colon.
bool IsInsideNamesOnly(wchar_t c) {
  return (c >= L'0' && c <= L'9') || c == L'-' || c == L'.' || c == L':' || c == L'\x00B7' ||
         (c >= L'\x0300' && c <= L'\x036F') || c == L'\x203F' || c == L'\x2040';
}

/// libxml2 leaves an undeclared prefix in the name. Removes it, but only if the parts are valid
/// names.
template <class Node>
std::wstring LocalName(const Node* node) {
  const std::wstring name = PlainDecode(AsText(node->name));
  const std::size_t colon = name.find(L':');
  if (node->ns || colon == std::wstring::npos || colon == 0) return name;
  const std::wstring local = name.substr(colon + 1);
  return local.empty() || IsInsideNamesOnly(local.front()) ? name : local;
}

void TreeCounts::Visit(const xmlNode* node, std::size_t level) {
  for (; node; node = node->next) {
    if (node->type != XML_ELEMENT_NODE) continue;
    depth = std::max(depth, level);
    const NameKind kind = KindOf(node);
    // The product delivers these attributes of an Error element as children at its front.
    for (const xmlAttr* one = kind.isError ? node->properties : nullptr; one; one = one->next) {
      const std::wstring name = LocalName(one);
      if (!IsCaseInsensitiveMatch(name, L"ErrorCode") &&
          !IsCaseInsensitiveMatch(name, L"Description") && !IsCaseInsensitiveMatch(name, L"Source"))
        continue;
      const std::unique_ptr<xmlChar, decltype(xmlFree)> value(
          xmlNodeListGetString(node->doc, one->children, 1), xmlFree);
      if (elements) {
        *elements += name + L"|" + PlainDecode(value ? AsText(value.get()) : std::string()) + L"|";
      }
    }
    Visit(node->children, level + 1);
    hasSoap11Texts = hasSoap11Texts || kind.isFaultCode || kind.isFaultText;
    isOtherFailure = isOtherFailure || kind.isException || (kind.isFault && !hasSoap11Texts);
    counted += kind.isCounted ? 1 : 0;
    if (kind.isFaultCode) faultCode = OwnText(node);
    if (kind.isFaultText) faultText += OwnText(node);
    if (elements) *elements += LocalName(node) + L"|" + OwnText(node) + L"|";
  }
}

/// libxml2 interns the names of a document, so equal names have the same address.
const TreeCounts::NameKind& TreeCounts::KindOf(const xmlNode* element) {
  const auto [found, isNew] = kinds.try_emplace(element->name);
  if (isNew) {
    const std::wstring text = LocalName(element);
    found->second = {
        IsCaseInsensitiveMatch(text, countedName),    IsCaseInsensitiveMatch(text, L"faultcode"),
        IsCaseInsensitiveMatch(text, L"faultstring"), IsCaseInsensitiveMatch(text, L"Fault"),
        IsCaseInsensitiveMatch(text, L"Exception"),   IsCaseInsensitiveMatch(text, L"Error")};
  }
  return found->second;
}

/// The XML declaration as the exchange leaves it.
std::string WithOneDeclaration(std::string_view reply, bool isBare) {
  const std::string start = "<?xml version=\"1.0\"";
  const std::size_t found = isBare ? std::string_view::npos : reply.find("<?xml version");
  if (found == std::string_view::npos) return start + "?>" + std::string(reply);
  const std::size_t end = reply.find("?>", found);
  return end == std::string_view::npos ? start : start + std::string(reply.substr(end));
}

/// The document without what the reader skips: byte-order marks and whitespace in front, null
/// characters and whitespace at the end, and a second declaration with everything before it.
std::string WithoutExtras(std::string_view text) {
  while (!text.empty() && (text.back() == '\0' || kBlanks.find(text.back()) != text.npos))
    text.remove_suffix(1);
  SkipBlanksAndMarks(text);
  const std::string_view whole = text;
  // The reader refuses null characters anywhere; libxml2 would end the text there.
  if (text.find('\0') != text.npos) return {};
  if (!SkipDeclaration(text)) return std::string(text);
  const std::string_view declaration = whole.substr(0, whole.size() - text.size());
  SkipBlanksAndMarks(text);
  if (SkipDeclaration(text)) SkipBlanksAndMarks(text);
  return std::string(declaration) + std::string(text);
}

}  // namespace

Verdict JudgeDocument(std::string_view given, String::View countedName, std::wstring* elements) {
  const std::string text =
      WithoutExtras(IsAscii(given) ? std::string(given) : PlainEncode(PlainDecode(given)));
  Verdict verdict;
  const std::unique_ptr<xmlParserCtxt, decltype(&xmlFreeParserCtxt)> context(xmlNewParserCtxt(),
                                                                             &xmlFreeParserCtxt);
  const std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> document(
      xmlCtxtReadMemory(
          context.get(), text.data(), static_cast<int>(text.size()), nullptr, nullptr,
          XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_IGNORE_ENC),
      &xmlFreeDoc);
  if (!document) return verdict;
  TreeCounts census;
  census.countedName = countedName;
  census.elements = elements;
  census.Visit(document->children, 1);
  verdict.counted = census.counted;
  const bool isFault =
      !(census.faultCode.empty() && census.faultText.empty() && !census.isOtherFailure) &&
      !BaseStringUtil::IsCaseInsensitiveMatch(census.faultText, L"null");
  verdict.kind = document->intSubset || census.depth > kMaxDepth ? Verdict::kRefused
                 : isFault                                       ? Verdict::kFault
                                                                 : Verdict::kRows;
  return verdict;
}

Verdict JudgeReply(std::string_view reply, bool isBare, String::View countedName) {
  return JudgeDocument(WithOneDeclaration(reply, isBare), countedName);
}

}  // namespace inprocess
