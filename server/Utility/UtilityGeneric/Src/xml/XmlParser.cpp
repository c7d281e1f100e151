#include "xml/XmlParser.h"

#include <libxml/SAX2.h>
#include <libxml/dict.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlerror.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Utility/Generic/BaseStringUtil.h"
#include "errors/MessageCatalogue.h"
#include "text/ASCIIText.h"
#include "text/UnicodeConversion.h"
#include "xml/XmlProlog.h"

namespace {

using BaseStringUtil::FromUTF8;
using BaseStringUtil::StringFrom;

// The limits are fixed. ImportSettings.h lists them for hosts. libxml2's own limits are off.
constexpr std::size_t kMaxDepth = 250;
constexpr std::size_t kMaxElementCharacters = std::size_t{8} << 20;
constexpr std::size_t kMaxCharacterBytes = 4;
// libxml2 collects these before it passes them on.
constexpr std::size_t kMaxCommentBytes = 10'000'000;
constexpr std::size_t kMaxInstructionBytes = 10'000'000;
// Above these limits, libxml2's tables and comparisons need more time per byte.
constexpr std::size_t kMaxTagBytes = std::size_t{64} << 10;
constexpr std::size_t kMaxNames = 100000;     // different names
constexpr std::size_t kMaxNamespaces = 1000;  // in scope
constexpr std::size_t kMaxBlockBytes = 4096;  // passed to libxml2 at once
// More than the text that was passed to libxml2 around a tag, a comment and so on: what it had read
// since the last callback or block, and what it has not used yet.
constexpr std::size_t kMaxGapBytes = 4 * kMaxBlockBytes;
constexpr std::size_t kMaxCachedNames = 128;
constexpr std::size_t kMaxReasonBytes = 300;
constexpr std::size_t kMaxShownNameCharacters = 80;

/// Suppresses libxml2's output to standard error for errors without a parser context, such as
/// exhausted memory. The handler is thread-local. The destructor restores the host's handler.
class SilentErrors {
 public:
  SilentErrors() : m_function(xmlStructuredError), m_context(xmlStructuredErrorContext) {
    xmlSetStructuredErrorFunc(nullptr, [](void*, xmlErrorPtr) {});
  }
  ~SilentErrors() { xmlSetStructuredErrorFunc(m_context, m_function); }
  SilentErrors(const SilentErrors&) = delete;
  SilentErrors& operator=(const SilentErrors&) = delete;

 private:
  xmlStructuredErrorFunc m_function;
  void* m_context;
};

bool IsSpaceOnly(std::string_view text) { return ASCIIText::Trimmed(text).empty(); }

/// libxml2's error message as one line. It may quote lines of the document.
String ReasonText(const xmlError& error) {
  std::string reason = error.message ? error.message : "not well-formed";
  // The line of a start tag, which libxml2 does not count from the first character of the text.
  const std::string line = " line " + std::to_string(error.int1);
  if (const std::size_t at = reason.find(line); at != std::string::npos)
    reason.erase(at, line.size());
  const std::size_t end = reason.find_last_not_of("\r\n ") + 1;
  reason.resize(std::min(end, kMaxReasonBytes));
  return MessageCatalogue::OneLine(FromUTF8(reason));
}

std::string_view LastLine(std::string_view text) { return text.substr(text.rfind('\n') + 1); }

/// An element's name for an error text.
String TruncatedName(const String& name) {
  return name.size() <= kMaxShownNameCharacters ? name
                                                : name.substr(0, kMaxShownNameCharacters) + L"...";
}

/// The only access to fields of libxml2's parser context. libxml2 2.9 has no functions for them.
namespace ContextFields {

/// Frees the document that the parser creates in rare cases, although no handler builds a tree.
void FreeDocument(xmlParserCtxt& context) noexcept {
  if (context.myDoc) xmlFreeDoc(context.myDoc);
  context.myDoc = nullptr;
}

void SetHandlers(xmlParserCtxt& context, const xmlSAXHandler& handlers, void* data) noexcept {
  *context.sax = handlers;
  context.userData = data;
}

void FreeHandlers(xmlParserCtxt& context) noexcept {
  xmlFree(context.sax);
  context.sax = nullptr;
}

/// True if the parser could not read its input, because memory is exhausted. It then continues as
/// if the input had ended, or gives up and releases the input.
bool HasInputError(const xmlParserCtxt& context) noexcept {
  return !context.input || !context.input->buf || context.input->buf->error != 0;
}

/// What the parser is reading. In the content of an element, only a tag is passed on in one piece.
xmlParserInputState State(const xmlParserCtxt& context) noexcept { return context.instate; }

/// Allocates the table for the attributes of a tag. libxml2 2.9 uses freed memory if it must grow
/// the table and an allocation fails.
bool ReserveAttributes(xmlParserCtxt& context, std::size_t count) noexcept {
  constexpr std::size_t kEntries = 5;  // for each attribute
  context.atts = static_cast<const xmlChar**>(xmlMalloc(count * kEntries * sizeof *context.atts));
  context.attallocs = static_cast<int*>(xmlMalloc(count * sizeof *context.attallocs));
  if (!context.atts || !context.attallocs) return false;
  context.maxatts = static_cast<int>(count * kEntries);
  return true;
}

/// Number of bytes that the parser has used; 0 after it has given up. The same as xmlByteConsumed
/// for input in UTF-8, whose call for each event took 2 % of the time of a large reply.
std::size_t BytesUsed(const xmlParserCtxt& context) noexcept {
  const xmlParserInput* const input = context.input;
  return input ? input->consumed + static_cast<std::size_t>(input->cur - input->base) : 0;
}

/// Number of different names in the document so far.
std::size_t NameCount(const xmlParserCtxt& context) noexcept {
  constexpr int kOwnNames = 3;  // xml, its namespace, and xmlns
  return static_cast<std::size_t>(std::max(xmlDictSize(context.dict) - kOwnNames, 0));
}

}  // namespace ContextFields

struct FreeParser {
  void operator()(xmlParserCtxtPtr context) const noexcept {
    ContextFields::FreeDocument(*context);
    // If the context has handlers, xmlFreeParserCtxt compares them with the defaults of the calling
    // thread. It creates these for a thread that has none, and they leak if the library is unloaded
    // before the thread ends.
    ContextFields::FreeHandlers(*context);
    xmlFreeParserCtxt(context);
  }
};

/// Length in bytes; 0 for null.
std::size_t LengthOf(const xmlChar* text) noexcept {
  return text ? std::string_view(reinterpret_cast<const char*>(text)).size() : 0;
}

/// True if the name equals `lowerCase`, ignoring the case of ASCII letters.
bool IsNamed(const xmlChar* name, std::string_view lowerCase) {
  for (const char expected : lowerCase)
    if ((*name++ | 0x20) != expected) return false;
  return *name == 0;
}

/// One parse. Its static functions are libxml2's callbacks, which must not throw.
class Parse {
 public:
  Parse(const NarrowString& text, SAX2ElementWriter& writer, String& error)
      : m_text(text.view()),
        m_prolog(FindXmlDocument(m_text, [&] { return writer.IsStopped(); })),
        // The parser would treat a null character as the end of the text.
        m_textEnd(std::min(m_text.find('\0', m_prolog.begin), m_prolog.end)),
        m_writer(writer),
        m_error(error),
        m_read(m_prolog.begin) {}

  XmlOutcome Run();

 private:
  struct CachedName {
    const xmlChar* key;  // address in the parser's dictionary, which is unique for each name
    SAX2ElementWriter::Name name;
  };
  struct Level {
    const xmlChar* name;       // in the parser's dictionary
    std::size_t textBegin;     // start of the element's own text in m_characters
    std::size_t segmentBegin;  // start of the text after the last tag
    std::size_t countedEnd;    // end of the text whose characters are counted
    std::size_t counted;       // number of these characters
    std::size_t namespaces;    // in scope
    bool hasChildren;
  };

  static Parse& Self(void* self) { return *static_cast<Parse*>(self); }
  template <class Work>
  void CatchExceptions(Work work) noexcept;
  template <class Work>
  void OnEvent(Work work) noexcept;
  static void OnStart(void* self, const xmlChar* name, const xmlChar*, const xmlChar*,
                      int namespaces, const xmlChar**, int attributes, int,
                      const xmlChar** attribute) noexcept;
  static void OnEnd(void* self, const xmlChar* name, const xmlChar*, const xmlChar*) noexcept;
  static void OnCharacters(void* self, const xmlChar* characters, int length) noexcept;
  static void OnComment(void* self, const xmlChar* text) noexcept;
  static void OnInstruction(void* self, const xmlChar* target, const xmlChar* text) noexcept;
  static int OnRead(void* self, char* place, int room) noexcept;
  static void OnDocumentType(void* self, const xmlChar*, const xmlChar*, const xmlChar*) noexcept;
  static void OnError(void* self, xmlErrorPtr error) noexcept;

  void Start(const xmlChar* name, std::size_t namespaces);
  void AddAttributes(const xmlChar** attribute, int count);
  void Add(const xmlChar* name, std::size_t depth, std::string_view value);
  void End(const xmlChar* name);
  void AddText(std::string_view text);
  void DropSpaceSegment(Level& level);
  SAX2ElementWriter::Name& NameOf(const xmlChar* name);

  xmlParserCtxtPtr Context() const noexcept { return m_parser.get(); }
  bool MakeContext();
  std::size_t MaxAttributes() const noexcept;
  std::size_t Read(char* place, std::size_t room) noexcept;
  std::size_t Position() const noexcept;
  void CheckTag();
  void CheckUnfinished();
  void FailAtDocumentType();
  void CheckNames();
  bool IsPrematureEnd(int code) const noexcept;
  void FailAtEnd();
  void FailAtEndTag();
  void FailTooLong(const wchar_t* what, std::size_t limit);
  void FailTextTooLong();
  void FailHere(const String& reason);
  void Fail(const String& reason, std::size_t line, std::size_t column);
  void FailAtCharacter(std::size_t position);
  bool IsOver() const noexcept { return m_failed || m_stopped || m_outOfMemory; }

  const std::string_view m_text;
  const XmlProlog m_prolog;
  const std::size_t m_textEnd;  // end of the text for the parser
  SAX2ElementWriter& m_writer;
  String& m_error;

  std::unique_ptr<xmlParserCtxt, FreeParser> m_parser;
  std::vector<CachedName> m_names;
  std::size_t m_lastNameIndex = 0;
  std::string m_characters;  // own text of all open elements, innermost last
  std::vector<Level> m_levels;
  std::size_t m_read;          // end of the text that the parser has read
  std::size_t m_eventEnd = 0;  // parser position at the last callback
  bool m_hasElement = false;
  bool m_endsEarly = false;
  bool m_failed = false;
  bool m_stopped = false;
  bool m_outOfMemory = false;
};

template <class Work>
void Parse::CatchExceptions(Work work) noexcept {
  if (IsOver()) return;
  try {
    work();
  } catch (...) {
    m_outOfMemory = true;  // only std::bad_alloc is thrown here
  }
}

/// Handles a callback, and remembers its position. What follows is measured from there.
template <class Work>
void Parse::OnEvent(Work work) noexcept {
  CatchExceptions(work);
  m_eventEnd = Position();
}

void Parse::OnStart(void* self, const xmlChar* name, const xmlChar*, const xmlChar*, int namespaces,
                    const xmlChar**, int attributes, int, const xmlChar** attribute) noexcept {
  Parse& parse = Self(self);
  parse.OnEvent([=, &parse] {
    parse.CheckTag();
    parse.CheckNames();
    if (parse.IsOver()) return;
    parse.Start(name, static_cast<std::size_t>(namespaces));
    if (IsNamed(name, "error")) parse.AddAttributes(attribute, attributes);
  });
}

void Parse::OnEnd(void* self, const xmlChar* name, const xmlChar*, const xmlChar*) noexcept {
  Parse& parse = Self(self);
  parse.OnEvent([=, &parse] {
    parse.CheckTag();
    if (!parse.IsOver()) parse.End(name);
  });
}

void Parse::OnCharacters(void* self, const xmlChar* characters, int length) noexcept {
  Parse& parse = Self(self);
  parse.OnEvent([=, &parse] {
    parse.AddText({reinterpret_cast<const char*>(characters), static_cast<std::size_t>(length)});
  });
}

void Parse::OnComment(void* self, const xmlChar* text) noexcept {
  Parse& parse = Self(self);
  parse.OnEvent([=, &parse] {
    if (LengthOf(text) > kMaxCommentBytes) parse.FailTooLong(L"a comment", kMaxCommentBytes);
  });
}

void Parse::OnInstruction(void* self, const xmlChar* target, const xmlChar* text) noexcept {
  Parse& parse = Self(self);
  parse.OnEvent([=, &parse] {
    if (LengthOf(target) + LengthOf(text) > kMaxInstructionBytes)
      parse.FailTooLong(L"a processing instruction", kMaxInstructionBytes);
    parse.CheckNames();
  });
}

void Parse::OnDocumentType(void* self, const xmlChar*, const xmlChar*, const xmlChar*) noexcept {
  Parse& parse = Self(self);
  parse.OnEvent([&parse] { parse.FailAtDocumentType(); });
}

void Parse::OnError(void* self, xmlErrorPtr error) noexcept {
  // Ignores warnings and namespace errors, such as an undeclared prefix.
  if (error->level != XML_ERR_FATAL) return;
  Parse& parse = Self(self);
  if (parse.IsOver()) return;  // the first error counts
  const bool hasInputError = parse.m_parser && ContextFields::HasInputError(*parse.Context());
  if (error->code == XML_ERR_NO_MEMORY || hasInputError) {
    parse.m_outOfMemory = true;
    return;
  }
  parse.CatchExceptions([&parse, error] {
    if (parse.m_endsEarly || parse.IsPrematureEnd(error->code)) {
      parse.m_endsEarly = true;  // FailAtEnd has a better text
      return;
    }
    if (error->code == XML_ERR_TAG_NAME_MISMATCH) return parse.FailAtEndTag();
    if (error->code == XML_ERR_NAME_TOO_LONG)  // other long names are in tags
      return parse.FailTooLong(L"a processing instruction", kMaxInstructionBytes);
    parse.Fail(ReasonText(*error), static_cast<std::size_t>(std::max(error->line, 1)),
               static_cast<std::size_t>(std::max(error->int2, 1)));
  });
}

/// True for an error at the end of the text, or at an incomplete word or mark at its end.
bool Parse::IsPrematureEnd(int code) const noexcept {
  static constexpr std::string_view kMarks[] = {"version", "encoding", "standalone", "yes",
                                                "no",      "!--",      "![CDATA[",   "!DOCTYPE",
                                                "/>",      "?>",       "-->",        "]]>"};
  // Only this error is found after the text that causes it.
  if (m_read < m_textEnd || code == XML_ERR_TAG_NAME_MISMATCH) return false;
  const std::size_t position = std::min(m_prolog.begin + Position(), m_textEnd);
  std::string_view rest = m_text.substr(position, m_textEnd - position);
  if (rest.starts_with('<')) rest.remove_prefix(1);
  return std::any_of(std::begin(kMarks), std::end(kMarks), [rest](std::string_view mark) {
    return rest.size() < mark.size() && mark.starts_with(rest);
  });
}

void Parse::Start(const xmlChar* name, std::size_t namespaces) {
  if (m_levels.size() >= kMaxDepth)
    return FailHere(L"elements are nested deeper than " + StringFrom(kMaxDepth));
  if (!m_levels.empty()) {
    DropSpaceSegment(m_levels.back());
    m_levels.back().hasChildren = true;
    namespaces += m_levels.back().namespaces;
  }
  if (namespaces > kMaxNamespaces)
    return FailHere(L"more than " + StringFrom(kMaxNamespaces) + L" namespaces are declared");
  m_hasElement = true;
  const std::size_t begin = m_characters.size();
  m_levels.push_back({name, begin, begin, begin, 0, namespaces, false});
}

void Parse::End(const xmlChar* name) {
  if (m_levels.empty()) return;
  Level& level = m_levels.back();
  if (level.hasChildren) DropSpaceSegment(level);
  const std::size_t begin = level.textBegin;
  Add(name, m_levels.size() - 1, std::string_view(m_characters).substr(begin));
  m_characters.resize(begin);
  m_levels.pop_back();
  if (!m_levels.empty()) m_levels.back().segmentBegin = m_characters.size();
}

void Parse::Add(const xmlChar* name, std::size_t depth, std::string_view value) {
  if (!m_writer.Add(NameOf(name), depth, value)) m_stopped = true;
}

/// The value of an attribute. libxml2 leaves only the ampersand escaped.
std::string Unescaped(std::string_view rest) {
  constexpr std::string_view kAmpersand = "&#38;";
  std::string value;
  for (std::size_t at; (at = rest.find(kAmpersand)) != std::string_view::npos;) {
    value.append(rest.substr(0, at)).append("&");
    rest.remove_prefix(at + kAmpersand.size());
  }
  return value.append(rest);
}

/// Delivers the code, description and source of an error like children. Other attributes could look
/// like columns of a row or like a fault. libxml2 passes five pointers for each attribute: local
/// name, prefix, URI, begin and end of the value.
void Parse::AddAttributes(const xmlChar** attribute, int count) {
  for (; count > 0 && !IsOver(); --count, attribute += 5) {
    const auto isNamed = [&](const char* name) { return IsNamed(attribute[0], name); };
    if (!isNamed("errorcode") && !isNamed("description") && !isNamed("source")) continue;
    Add(attribute[0], m_levels.size(),
        Unescaped({reinterpret_cast<const char*>(attribute[3]),
                   static_cast<std::size_t>(attribute[4] - attribute[3])}));
  }
}

void Parse::AddText(std::string_view text) {
  if (m_levels.empty()) return;
  m_characters.append(text);
  Level& level = m_levels.back();
  // A text has at least as many bytes as characters, so shorter texts need no counting.
  if (m_characters.size() - level.textBegin <= kMaxElementCharacters) return;
  level.counted +=
      UnicodeConversion::WideLength(std::string_view(m_characters).substr(level.countedEnd));
  level.countedEnd = m_characters.size();
  if (level.counted > kMaxElementCharacters) FailTextTooLong();
}

void Parse::DropSpaceSegment(Level& level) {
  if (!IsSpaceOnly(std::string_view(m_characters).substr(level.segmentBegin))) return;
  m_characters.resize(level.segmentBegin);
  if (level.countedEnd > level.segmentBegin) {
    level.counted -=
        level.countedEnd - level.segmentBegin;  // white space is one byte per character
    level.countedEnd = level.segmentBegin;
  }
}

/// Rows repeat their columns in the same order, so the search begins after the name found last.
SAX2ElementWriter::Name& Parse::NameOf(const xmlChar* name) {
  for (std::size_t i = 0; i < m_names.size(); ++i) {
    m_lastNameIndex = m_lastNameIndex + 1 < m_names.size() ? m_lastNameIndex + 1 : 0;
    if (m_names[m_lastNameIndex].key == name) return m_names[m_lastNameIndex].name;
  }
  if (m_names.size() >= kMaxCachedNames) m_names.clear();
  m_lastNameIndex = m_names.size();
  m_names.push_back({name, {FromUTF8(reinterpret_cast<const char*>(name))}});
  return m_names.back().name;
}

void Parse::FailTooLong(const wchar_t* what, std::size_t limit) {
  FailHere(what + (L" is longer than " + StringFrom(limit)) + L" bytes");
}

void Parse::FailTextTooLong() {
  FailHere(L"the text of the element " + TruncatedName(NameOf(m_levels.back().name).text) +
           L" is longer than " + StringFrom(kMaxElementCharacters) + L" characters");
}

void Parse::FailHere(const String& reason) {
  Fail(reason, static_cast<std::size_t>(std::max(xmlSAX2GetLineNumber(Context()), 1)),
       static_cast<std::size_t>(std::max(xmlSAX2GetColumnNumber(Context()), 1)));
}

/// `line` and `column` count from the first character of the document. The error text counts from
/// the first character of the whole text.
void Parse::Fail(const String& reason, std::size_t line, std::size_t column) {
  if (m_failed) return;
  const std::string_view skipped = m_text.substr(0, m_prolog.begin);
  if (line == 1) column += UnicodeConversion::WideLength(LastLine(skipped));
  line += static_cast<std::size_t>(std::count(skipped.begin(), skipped.end(), '\n'));
  m_error = reason + L" (line " + StringFrom(line) + L", column " + StringFrom(column) + L")";
  m_failed = true;
}

void Parse::FailAtCharacter(std::size_t position) {
  static constexpr wchar_t kDigits[] = L"0123456789ABCDEF";
  String code;
  for (int shift = 12; shift >= 0; shift -= 4)
    code += kDigits[static_cast<unsigned char>(m_text[position]) >> shift & 0xF];
  const std::string_view before = m_text.substr(m_prolog.begin, position - m_prolog.begin);
  Fail(L"the character U+" + code + L" is not allowed in XML",
       static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n')) + 1,
       UnicodeConversion::WideLength(LastLine(before)) + 1);
}

/// Attributes of the longest tag that the parser can read before it is refused.
std::size_t Parse::MaxAttributes() const noexcept {
  constexpr std::size_t kShortest = std::string_view(" a=''").size();
  constexpr std::size_t kMaxUnfinishedTagBytes = kMaxTagBytes + kMaxGapBytes + kMaxBlockBytes;
  return std::min(m_prolog.end - m_prolog.begin, kMaxUnfinishedTagBytes) / kShortest + 1;
}

bool Parse::MakeContext() {
  xmlSAXHandler handler{};
  handler.initialized = XML_SAX2_MAGIC;
  handler.startElementNs = &OnStart;
  handler.endElementNs = &OnEnd;
  handler.characters = &OnCharacters;
  handler.ignorableWhitespace = &OnCharacters;
  handler.cdataBlock = &OnCharacters;
  handler.comment = &OnComment;
  handler.processingInstruction = &OnInstruction;
  handler.internalSubset = &OnDocumentType;
  handler.serror = &OnError;
  // Not by xmlCreateIOParserCtxt, which loses the input buffer if an allocation fails.
  m_parser.reset(xmlNewParserCtxt());
  if (!m_parser) return false;
  ContextFields::SetHandlers(*Context(), handler, this);
  xmlParserInputBuffer* const buffer =
      xmlParserInputBufferCreateIO(&OnRead, nullptr, this, XML_CHAR_ENCODING_UTF8);
  if (!buffer) return false;
  xmlParserInput* const input = xmlNewIOInputStream(Context(), buffer, XML_CHAR_ENCODING_UTF8);
  if (!input) {
    xmlFreeParserInputBuffer(buffer);
    return false;
  }
  // XML_PARSE_HUGE turns off the limits of libxml2, which would report them in its own words.
  return inputPush(Context(), input) >= 0 &&
         ContextFields::ReserveAttributes(*Context(), MaxAttributes()) &&
         xmlCtxtUseOptions(Context(), XML_PARSE_NONET | XML_PARSE_IGNORE_ENC | XML_PARSE_HUGE) == 0;
}

/// Passes the next block of the text to libxml2. Returns 0 at the end of the text, and also to end
/// a parse that must stop, because libxml2 cannot be stopped while it reads.
int Parse::OnRead(void* self, char* place, int room) noexcept {
  Parse& parse = Self(self);
  if (parse.m_writer.IsStopped()) parse.m_stopped = true;
  parse.CatchExceptions([&parse] { parse.CheckUnfinished(); });
  if (parse.IsOver()) return 0;
  return static_cast<int>(
      parse.Read(place, std::min(static_cast<std::size_t>(room), kMaxBlockBytes)));
}

std::size_t Parse::Read(char* place, std::size_t room) noexcept {
  const std::string_view block = m_text.substr(m_read, std::min(room, m_textEnd - m_read));
  std::copy(block.begin(), block.end(), place);
  const auto at = [&](std::size_t position) {
    return place + std::clamp(position, m_read, m_read + block.size()) - m_read;
  };
  std::replace_if(
      at(m_prolog.ignoredBegin), at(m_prolog.ignoredEnd),
      [](char byte) { return byte != '\n' && byte != '\r'; }, ' ');  // keeps line numbers correct
  m_read += block.size();
  return block.size();
}

/// The parser's position in bytes from the start of the document.
std::size_t Parse::Position() const noexcept { return ContextFields::BytesUsed(*Context()); }

/// Refuses a complete tag that is too long.
void Parse::CheckTag() {
  constexpr std::size_t kClose = std::string_view("/>").size();  // may not be read yet
  if (Position() + kClose <= m_eventEnd + kMaxTagBytes) return;
  // Blanks in front of the tag do not count.
  const std::size_t last = m_prolog.begin + Position() - 1;
  const std::size_t begin = m_text.rfind('<', last);
  const std::size_t end = m_text.find('>', last) + 1;
  if (end - begin > kMaxTagBytes) FailTooLong(L"a tag", kMaxTagBytes);
}

/// Fails before libxml2's buffers become large and its tables slow.
void Parse::CheckUnfinished() {
  const std::size_t bytes = m_read - m_prolog.begin - m_eventEnd;
  const auto isLonger = [bytes](std::size_t limit) { return bytes > limit + kMaxGapBytes; };
  switch (ContextFields::State(*Context())) {
    case XML_PARSER_CONTENT:
    case XML_PARSER_ATTRIBUTE_VALUE:
      if (isLonger(kMaxTagBytes)) FailTooLong(L"a tag", kMaxTagBytes);
      break;
    case XML_PARSER_CDATA_SECTION:
      if (isLonger(kMaxElementCharacters * kMaxCharacterBytes)) FailTextTooLong();
      break;
    case XML_PARSER_COMMENT:
      if (isLonger(kMaxCommentBytes)) FailTooLong(L"a comment", kMaxCommentBytes);
      break;
    case XML_PARSER_PI:
      if (isLonger(kMaxInstructionBytes))
        FailTooLong(L"a processing instruction", kMaxInstructionBytes);
      break;
    default:
      // Outside the root. White space has no limit. Nothing else can be used up without an event,
      // except the beginning of a document type.
      const std::size_t position = std::max(Position(), m_eventEnd);
      const std::string_view used =
          m_text.substr(m_prolog.begin + m_eventEnd, position - m_eventEnd);
      if (used.find("<!DOCTYPE") != std::string_view::npos) FailAtDocumentType();
      m_eventEnd = position;
  }
}

void Parse::FailAtDocumentType() {
  FailHere(L"a document type declaration is not accepted: SOAP forbids it");
}

void Parse::CheckNames() {
  if (ContextFields::NameCount(*Context()) > kMaxNames)
    FailHere(L"there are more than " + StringFrom(kMaxNames) + L" different names");
}

/// Reports what is missing if the document ends too early.
void Parse::FailAtEnd() {
  if (m_textEnd < m_prolog.end)
    FailAtCharacter(m_textEnd);
  else if (!m_levels.empty())
    FailHere(L"the document ends inside the element " +
             TruncatedName(NameOf(m_levels.back().name).text));
  else if (m_hasElement)
    FailHere(L"incomplete or unexpected text follows the end of the document");
  else
    FailHere(L"the document ends before its first element");
}

/// Reports an end tag that does not match. libxml2's text has no prefixes.
void Parse::FailAtEndTag() {
  const std::size_t end = m_prolog.begin + Position();
  const std::size_t name = m_text.rfind("</", end) + 2;
  const std::size_t length = m_text.find_first_of(" \t\r\n>", name) - name;
  FailHere(L"the end tag </" + TruncatedName(FromUTF8(m_text.substr(name, length))) +
           L"> does not match the element " + TruncatedName(NameOf(m_levels.back().name).text));
}

XmlOutcome Parse::Run() {
  static std::once_flag initialized;
  std::call_once(initialized, xmlInitParser);
  const SilentErrors quiet;
  if (m_writer.IsStopped()) return XmlOutcome::kStopped;
  if (m_prolog.begin >= m_prolog.end) {
    Fail(L"the document is empty", 1, 1);
    return XmlOutcome::kFailed;
  }
  if (!MakeContext()) throw std::bad_alloc();
  const bool isWellFormed = xmlParseDocument(Context()) == 0;
  // If libxml2 cannot allocate its input buffer, it treats the input so far as the whole text.
  if (!IsOver() && m_read < m_textEnd) m_outOfMemory = true;
  if (!IsOver() && (!isWellFormed || m_textEnd < m_prolog.end)) FailAtEnd();
  if (m_stopped) return XmlOutcome::kStopped;
  if (m_outOfMemory) throw std::bad_alloc();
  return m_failed ? XmlOutcome::kFailed : XmlOutcome::kWellFormed;
}

}  // namespace

XmlOutcome ParseXmlText(const NarrowString& text, SAX2ElementWriter& writer, String& error) {
  return Parse(text, writer, error).Run();
}

String XmlLibraryVersion() {
  constexpr std::uint32_t kHundred = 100;
  const std::uint32_t number = BaseStringUtil::UIntFrom(BaseStringUtil::FromUTF8(xmlParserVersion));
  String text(L"libxml2/");
  text += BaseStringUtil::StringFrom(number / kHundred / kHundred);
  text += L'.';
  text += BaseStringUtil::StringFrom(number / kHundred % kHundred);
  text += L'.';
  text += BaseStringUtil::StringFrom(number % kHundred);
  return text;
}
