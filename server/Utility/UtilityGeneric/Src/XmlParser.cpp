#include "XmlParser.h"

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

#include "UnicodeConversion.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "XmlProlog.h"

namespace {

constexpr std::size_t kMaxDepth = 250;
constexpr std::size_t kMaxElementText = std::size_t{8} << 20;  // characters
// Beyond these the library's own tables and comparisons take more and more time for every byte.
constexpr std::size_t kMaxTag = std::size_t{64} << 10;  // bytes
constexpr std::size_t kMaxNames = 100000;               // different ones
constexpr std::size_t kMaxNamespaces = 1000;            // declared at one place
constexpr std::size_t kMaxKeptNames = 128;
constexpr std::size_t kMaxReasonLength = 300;
constexpr std::size_t kMaxShownName = 80;  // characters

/// Errors without a parser context, such as exhausted memory inside libxml2's buffers, would be
/// printed on standard error. The handler is the thread's own; the host's comes back at the end.
class QuietThread {
 public:
  QuietThread() : m_function(xmlStructuredError), m_context(xmlStructuredErrorContext) {
    xmlSetStructuredErrorFunc(nullptr, [](void*, xmlErrorPtr) {});
  }
  ~QuietThread() { xmlSetStructuredErrorFunc(m_context, m_function); }
  QuietThread(const QuietThread&) = delete;
  QuietThread& operator=(const QuietThread&) = delete;

 private:
  xmlStructuredErrorFunc m_function;
  void* m_context;
};

bool IsBlankText(std::string_view text) {
  return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

/// The library's reason, which may quote some lines of the document.
std::string OneLine(std::string_view reason) {
  std::string line(
      reason.substr(0, std::min(reason.find_last_not_of("\r\n ") + 1, kMaxReasonLength)));
  std::replace_if(
      line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r' || c == '\t'; }, ' ');
  return line;
}

std::string_view LastLine(std::string_view text) { return text.substr(text.rfind('\n') + 1); }

String FromUTF8(std::string_view bytes) {
  return BaseStringUtil::StdStringToString(NarrowString(bytes), BaseStringUtil::kCodePageUTF8);
}

/// An element's name for an error text: a server may have made it as long as it likes.
String ShownName(const String& name) {
  return name.size() <= kMaxShownName ? name : name.substr(0, kMaxShownName) + L"...";
}

String FromNumber(std::size_t number) { return BaseStringUtil::StringFrom(number); }

struct FreeParser {
  void operator()(xmlParserCtxtPtr context) const noexcept {
    // Nothing here builds a tree, but the parser makes a document of its own in odd cases.
    if (context->myDoc) xmlFreeDoc(context->myDoc);
    context->myDoc = nullptr;
    // With handlers, xmlFreeParserCtxt compares them with the calling thread's defaults. It makes
    // those for a thread that has none, and leaves them behind when the library is unloaded before
    // the thread ends.
    xmlFree(context->sax);
    context->sax = nullptr;
    xmlFreeParserCtxt(context);
  }
};

/// Compares a name with one in lower case, ignoring the case of ASCII letters.
bool IsNamed(const xmlChar* name, std::string_view lowerCase) {
  for (const char expected : lowerCase)
    if ((*name++ | 0x20) != expected) return false;
  return *name == 0;
}

/// One parse. Its static members are libxml2's callbacks: no exception may leave them.
class Parse {
 public:
  Parse(const NarrowString& text, SAX2ElementWriter& writer, String& error)
      : m_text(text.view()),
        m_prolog(FindXmlDocument(m_text, [&] { return writer.IsStopped(); })),
        // A null character would make the parser see the text's end.
        m_textEnd(std::min(m_text.find('\0', m_prolog.begin), m_prolog.end)),
        m_writer(writer),
        m_error(error),
        m_read(m_prolog.begin) {}

  XmlOutcome Run();

 private:
  struct KeptName {
    const xmlChar* key;  // in the parser's dictionary, which has each name once
    SAX2ElementWriter::Name name;
  };
  struct Level {
    const xmlChar* name;       // lives as long as the parser's dictionary
    std::size_t textBegin;     // where the element's own text begins in m_characters
    std::size_t segmentBegin;  // where the text since the last tag begins
    std::size_t countedEnd;    // up to here the text's characters are counted ...
    std::size_t counted;       // ... and this is how many they are
    std::size_t namespaces;    // declared by the element and those around it
    bool hasChildren;
  };

  static Parse& Self(void* self) { return *static_cast<Parse*>(self); }
  template <class Work>
  void Guarded(Work work) noexcept;
  template <class Work>
  void OnEvent(Work work) noexcept;
  static void OnStart(void* self, const xmlChar* name, const xmlChar*, const xmlChar*,
                      int namespaces, const xmlChar**, int attributes, int,
                      const xmlChar** attribute) noexcept;
  static void OnEnd(void* self, const xmlChar* name, const xmlChar*, const xmlChar*) noexcept;
  static void OnCharacters(void* self, const xmlChar* characters, int length) noexcept;
  static void OnComment(void* self, const xmlChar*) noexcept;
  static void OnInstruction(void* self, const xmlChar*, const xmlChar*) noexcept;
  static int OnRead(void* self, char* place, int room) noexcept;
  static void OnDocumentType(void* self, const xmlChar*, const xmlChar*, const xmlChar*) noexcept;
  static void OnError(void* self, xmlErrorPtr error) noexcept;

  void Start(const xmlChar* name, std::size_t namespaces);
  void AddAttributes(const xmlChar** attribute, int count);
  void Add(const xmlChar* name, std::string_view value);
  void End(const xmlChar* name);
  void AddText(std::string_view text);
  void DropBlankSegment(Level& level);
  SAX2ElementWriter::Name& NameOf(const xmlChar* name);

  xmlParserCtxtPtr Context() const noexcept { return m_parser.get(); }
  bool MakeContext();
  std::size_t Read(char* place, std::size_t room) noexcept;
  std::size_t Position() const noexcept;
  void CheckTables();
  bool IsAboutEnd(int code) const noexcept;
  void FailAtEnd();
  void FailHere(const String& reason);
  void Fail(const String& reason, std::size_t line, std::size_t column);
  void FailAtCharacter(std::size_t position);
  bool IsOver() const noexcept { return m_failed || m_stopped || m_outOfMemory; }

  const std::string_view m_text;
  const XmlProlog m_prolog;
  const std::size_t m_textEnd;  // of what the parser gets
  SAX2ElementWriter& m_writer;
  String& m_error;

  std::unique_ptr<xmlParserCtxt, FreeParser> m_parser;
  std::vector<KeptName> m_names;
  std::size_t m_lastName = 0;
  std::string m_characters;  // the own text of all open elements, the innermost at the end
  std::vector<Level> m_levels;
  std::size_t m_read;          // up to here the text has been given to the parser
  std::size_t m_eventEnd = 0;  // where the parser was at the last callback
  bool m_anyElement = false;
  bool m_failed = false;
  bool m_stopped = false;
  bool m_outOfMemory = false;
};

template <class Work>
void Parse::Guarded(Work work) noexcept {
  if (IsOver()) return;
  try {
    work();
  } catch (...) {
    m_outOfMemory = true;  // nothing else is thrown here
  }
}

/// For what ends a part of the text, so that the next part is measured from there.
template <class Work>
void Parse::OnEvent(Work work) noexcept {
  m_eventEnd = Position();
  Guarded(work);
}

void Parse::OnStart(void* self, const xmlChar* name, const xmlChar*, const xmlChar*, int namespaces,
                    const xmlChar**, int attributes, int, const xmlChar** attribute) noexcept {
  Parse& parse = Self(self);
  parse.OnEvent([=, &parse] {
    parse.Start(name, static_cast<std::size_t>(namespaces));
    if (IsNamed(name, "error")) parse.AddAttributes(attribute, attributes);
  });
}

void Parse::OnEnd(void* self, const xmlChar* name, const xmlChar*, const xmlChar*) noexcept {
  Parse& parse = Self(self);
  parse.OnEvent([=, &parse] { parse.End(name); });
}

void Parse::OnCharacters(void* self, const xmlChar* characters, int length) noexcept {
  Parse& parse = Self(self);
  parse.OnEvent([=, &parse] {
    parse.AddText({reinterpret_cast<const char*>(characters), static_cast<std::size_t>(length)});
  });
}

void Parse::OnComment(void* self, const xmlChar*) noexcept {
  Self(self).OnEvent([] {});
}

void Parse::OnInstruction(void* self, const xmlChar*, const xmlChar*) noexcept {
  Self(self).OnEvent([] {});
}

void Parse::OnDocumentType(void* self, const xmlChar*, const xmlChar*, const xmlChar*) noexcept {
  Parse& parse = Self(self);
  parse.OnEvent([&parse] {
    parse.FailHere(L"a document type declaration is not accepted: SOAP forbids it");
  });
}

void Parse::OnError(void* self, xmlErrorPtr error) noexcept {
  // Warnings and errors against the rules of namespaces, such as an undeclared prefix, are let be.
  if (error->level != XML_ERR_FATAL) return;
  Parse& parse = Self(self);
  if (parse.IsOver()) return;  // the first error counts
  // Without memory for its input, the parser takes what it has for the whole text. When it gives
  // up, it releases the buffer of its input; if no error came before, the reason was memory.
  const bool isStarved =
      parse.m_parser && (!parse.Context()->input || !parse.Context()->input->buf ||
                         parse.Context()->input->buf->error != 0);
  if (error->code == XML_ERR_NO_MEMORY || isStarved) {
    parse.m_outOfMemory = true;
    return;
  }
  parse.Guarded([&parse, error] {
    if (parse.IsAboutEnd(error->code)) return;  // FailAtEnd knows better
    parse.Fail(FromUTF8(OneLine(error->message ? error->message : "not well-formed")),
               static_cast<std::size_t>(std::max(error->line, 1)),
               static_cast<std::size_t>(std::max(error->int2, 1)));
  });
}

/// True for an error that only says that the text ends here.
bool Parse::IsAboutEnd(int code) const noexcept {
  const xmlParserInput* const input = Context()->input;
  if (m_read < m_textEnd || !input || input->cur < input->end) return false;
  return m_textEnd < m_prolog.end || code == XML_ERR_DOCUMENT_EMPTY ||
         code == XML_ERR_TAG_NOT_FINISHED;
}

void Parse::Start(const xmlChar* name, std::size_t namespaces) {
  if (m_levels.size() >= kMaxDepth)
    return FailHere(L"elements are nested deeper than " + FromNumber(kMaxDepth));
  if (!m_levels.empty()) {
    DropBlankSegment(m_levels.back());
    m_levels.back().hasChildren = true;
    namespaces += m_levels.back().namespaces;
  }
  if (namespaces > kMaxNamespaces)
    return FailHere(L"more than " + FromNumber(kMaxNamespaces) + L" namespaces are declared");
  m_anyElement = true;
  const std::size_t begin = m_characters.size();
  m_levels.push_back({name, begin, begin, begin, 0, namespaces, false});
}

void Parse::End(const xmlChar* name) {
  if (m_levels.empty()) return;
  Level& level = m_levels.back();
  if (level.hasChildren) DropBlankSegment(level);
  const std::size_t begin = level.textBegin;
  Add(name, std::string_view(m_characters).substr(begin));
  m_characters.resize(begin);
  m_levels.pop_back();
  if (!m_levels.empty()) m_levels.back().segmentBegin = m_characters.size();
}

void Parse::Add(const xmlChar* name, std::string_view value) {
  if (!m_writer.Add(NameOf(name), value)) m_stopped = true;
}

/// The value of an attribute, in which libxml2 leaves only the ampersand escaped.
std::string Unescaped(std::string_view rest) {
  constexpr std::string_view kAmpersand = "&#38;";
  std::string value;
  for (std::size_t at; (at = rest.find(kAmpersand)) != std::string_view::npos;) {
    value.append(rest.substr(0, at)).append("&");
    rest.remove_prefix(at + kAmpersand.size());
  }
  return value.append(rest);
}

/// Delivers attributes like children, the error code first: who reads a description may want to
/// know whether it belongs to an error. libxml2 gives five pointers for each: local name, prefix,
/// URI, and the begin and the end of the value.
void Parse::AddAttributes(const xmlChar** attribute, int count) {
  constexpr std::string_view kFirst = "errorcode";
  for (const bool isFirst : {true, false}) {
    const xmlChar** at = attribute;
    for (int i = 0; i < count && !IsOver(); ++i, at += 5) {
      if (IsNamed(at[0], kFirst) != isFirst) continue;
      Add(at[0], Unescaped({reinterpret_cast<const char*>(at[3]),
                            static_cast<std::size_t>(at[4] - at[3])}));
    }
  }
}

void Parse::AddText(std::string_view text) {
  if (m_levels.empty()) return;
  m_characters.append(text);
  Level& level = m_levels.back();
  // No text has more characters than bytes: counting can wait until there are that many bytes.
  if (m_characters.size() - level.textBegin <= kMaxElementText) return;
  level.counted +=
      UnicodeConversion::WideLength(std::string_view(m_characters).substr(level.countedEnd));
  level.countedEnd = m_characters.size();
  if (level.counted > kMaxElementText)
    FailHere(L"the text of the element " + ShownName(NameOf(level.name).text) +
             L" is longer than " + FromNumber(kMaxElementText) + L" characters");
}

void Parse::DropBlankSegment(Level& level) {
  if (!IsBlankText(std::string_view(m_characters).substr(level.segmentBegin))) return;
  m_characters.resize(level.segmentBegin);
  if (level.countedEnd > level.segmentBegin) {
    level.counted -= level.countedEnd - level.segmentBegin;  // blanks are one byte each
    level.countedEnd = level.segmentBegin;
  }
}

/// A rowset repeats its columns in one order: the name behind the one found last is most often the
/// right one.
SAX2ElementWriter::Name& Parse::NameOf(const xmlChar* name) {
  for (std::size_t i = 0; i < m_names.size(); ++i) {
    m_lastName = m_lastName + 1 < m_names.size() ? m_lastName + 1 : 0;
    if (m_names[m_lastName].key == name) return m_names[m_lastName].name;
  }
  if (m_names.size() >= kMaxKeptNames) m_names.clear();
  m_lastName = m_names.size();
  m_names.push_back({name, {FromUTF8(reinterpret_cast<const char*>(name))}});
  return m_names.back().name;
}

void Parse::FailHere(const String& reason) {
  Fail(reason, static_cast<std::size_t>(std::max(xmlSAX2GetLineNumber(Context()), 1)),
       static_cast<std::size_t>(std::max(xmlSAX2GetColumnNumber(Context()), 1)));
}

/// `line` and `column` count from the document's first character; the error's from the text's.
void Parse::Fail(const String& reason, std::size_t line, std::size_t column) {
  if (m_failed) return;
  const std::string_view skipped = m_text.substr(0, m_prolog.begin);
  if (line == 1) column += UnicodeConversion::WideLength(LastLine(skipped));
  line += static_cast<std::size_t>(std::count(skipped.begin(), skipped.end(), '\n'));
  m_error = reason + L" (line " + FromNumber(line) + L", column " + FromNumber(column) + L")";
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
  *Context()->sax = handler;
  Context()->userData = this;
  xmlParserInputBuffer* const buffer =
      xmlParserInputBufferCreateIO(&OnRead, nullptr, this, XML_CHAR_ENCODING_UTF8);
  if (!buffer) return false;
  xmlParserInput* const input = xmlNewIOInputStream(Context(), buffer, XML_CHAR_ENCODING_UTF8);
  if (!input) {
    xmlFreeParserInputBuffer(buffer);
    return false;
  }
  return inputPush(Context(), input) >= 0 &&
         xmlCtxtUseOptions(Context(), XML_PARSE_NONET | XML_PARSE_IGNORE_ENC) == 0;
}

/// Gives libxml2 the next piece of the text. 0 is the end of the text, which also ends a parse that
/// is to stop: libxml2 must not be stopped while it reads.
int Parse::OnRead(void* self, char* place, int room) noexcept {
  Parse& parse = Self(self);
  if (parse.m_writer.IsStopped()) parse.m_stopped = true;
  parse.Guarded([&parse] { parse.CheckTables(); });
  if (parse.IsOver()) return 0;
  return static_cast<int>(parse.Read(place, static_cast<std::size_t>(room)));
}

std::size_t Parse::Read(char* place, std::size_t room) noexcept {
  const std::string_view piece = m_text.substr(m_read, std::min(room, m_textEnd - m_read));
  std::copy(piece.begin(), piece.end(), place);
  const auto at = [&](std::size_t position) {
    return place + std::clamp(position, m_read, m_read + piece.size()) - m_read;
  };
  std::replace_if(
      at(m_prolog.blankBegin), at(m_prolog.blankEnd),
      [](char byte) { return byte != '\n' && byte != '\r'; }, ' ');  // line numbers stay right
  m_read += piece.size();
  return piece.size();
}

/// Where the parser stands: bytes from the document's begin.
std::size_t Parse::Position() const noexcept {
  const xmlParserInput& input = *Context()->input;
  return input.consumed + static_cast<std::size_t>(input.cur - input.base);
}

/// Refuses what would make the library slow, in time.
void Parse::CheckTables() {
  const bool isInTag =
      Context()->instate == XML_PARSER_CONTENT || Context()->instate == XML_PARSER_ATTRIBUTE_VALUE;
  if (!isInTag && Context()->input) m_eventEnd = Position();  // blanks in the prolog are no event
  if (isInTag && m_read - m_prolog.begin > m_eventEnd + kMaxTag)
    FailHere(L"a tag is longer than " + FromNumber(kMaxTag) + L" bytes");
  else if (xmlDictSize(Context()->dict) > static_cast<int>(kMaxNames))
    FailHere(L"there are more than " + FromNumber(kMaxNames) + L" different names");
}

/// Tells what is missing when the document ends too early.
void Parse::FailAtEnd() {
  if (m_textEnd < m_prolog.end)
    FailAtCharacter(m_textEnd);
  else if (!m_levels.empty())
    FailHere(L"the document ends inside the element " +
             ShownName(NameOf(m_levels.back().name).text));
  else if (m_anyElement)
    FailHere(L"something unfinished or out of place stands behind the document's end");
  else
    FailHere(L"the document ends before its first element");
}

XmlOutcome Parse::Run() {
  static std::once_flag initialized;
  std::call_once(initialized, xmlInitParser);
  const QuietThread quiet;
  if (m_writer.IsStopped()) return XmlOutcome::kStopped;
  if (m_prolog.begin >= m_prolog.end) {
    Fail(L"the document is empty", 1, 1);
    return XmlOutcome::kFailed;
  }
  if (!MakeContext()) throw std::bad_alloc();
  xmlParseDocument(Context());
  // Without memory for its input the parser takes what it has for the whole text.
  if (!IsOver() && m_read < m_textEnd) m_outOfMemory = true;
  if (!IsOver() && (!Context()->wellFormed || m_textEnd < m_prolog.end)) FailAtEnd();
  if (m_stopped) return XmlOutcome::kStopped;
  if (m_outOfMemory) throw std::bad_alloc();
  return m_failed ? XmlOutcome::kFailed : XmlOutcome::kWellFormed;
}

}  // namespace

XmlOutcome ParseXmlText(const NarrowString& text, SAX2ElementWriter& writer, String& error) {
  return Parse(text, writer, error).Run();
}
