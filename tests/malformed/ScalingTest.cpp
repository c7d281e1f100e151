// CPU time is linear in everything that a server sends, and a host that cancels gets control back
// at once, whatever the library is doing. The server is in-process; reliability-tests measure what
// the network adds.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/SUStrUtil.h"
#include "inprocess/Operations.h"
#include "inprocess/SampleReplies.h"
#include "inprocess/Server.h"
#include "support/Effort.h"
#include "support/Growth.h"

namespace {
namespace scaling {

using support::Work;

constexpr std::size_t kKi = 1024;
constexpr std::size_t kMi = 1024 * kKi;

/// Repeats a piece, which is not empty, until the text has at least this many characters. Doubles
/// the text, because tests are not optimised: one piece at a time took longer than what is
/// measured.
template <class Text>
Text Repeated(const Text& piece, std::size_t characters) {
  Text text = piece;
  while (text.size() < characters) text += Text(text);
  return text.substr(0, (characters + piece.size() - 1) / piece.size() * piece.size());
}

std::string Repeated(const char* piece, std::size_t bytes) {
  return Repeated(std::string(piece), bytes);
}

std::string Times(const std::string& piece, std::size_t count) {
  return Repeated(piece, piece.size() * count);
}

/// One quantity that a server controls.
struct Path {
  const char* name;
  std::size_t least;
  std::size_t most;
  std::function<Work(std::size_t)> make;
  /// The work is an operation that a host can stop. Other work is a part of such operations, on
  /// texts of at most 8 Mi characters.
  bool isOperation = true;
};

// Text services.

/// A use of a text that repeats one piece.
Path OfText(const char* name, const wchar_t* piece, void (*use)(const String& text)) {
  return {name, 16 * kKi, 8 * kMi,
          [=](std::size_t size) -> Work {
            const String text = Repeated(String(piece), size);
            return [=] { use(text); };
          },
          false};
}

Path OfBytes(const char* name, const char* piece) {
  return {name, 16 * kKi, 8 * kMi,
          [=](std::size_t size) -> Work {
            const NarrowString bytes{std::string_view(Repeated(piece, size))};
            return [=] { BaseStringUtil::StdStringToString(bytes, BaseStringUtil::kCodePageUTF8); };
          },
          false};
}

void EncodeUTF8(const String& text) {
  BaseStringUtil::StringToStdString(text, BaseStringUtil::kCodePageUTF8);
}

void Escape(const String& text) { BaseStringUtil::EscapeXMLChars(text); }

void AppendOneByOne(const String& text) {
  String copy;
  for (const wchar_t character : text) copy += character;
}

void AppendPieces(const String& text) {
  NarrowString copy;
  for (std::size_t at = 0; at < text.size(); at += 7) copy += NarrowString("pieces.");
}

void RenderMessage(const String& text) {
  SUStrUtil::LoadMsgStringOnly(62013, {text, text, text, text});
  SUStrUtil::LoadMsgStringOnly(12345, {text});
}

void RenderBareText(const String& text) {
  const ErrorMessage error(text);
  String all;
  error.RetrieveErrorMessages(all);
}

void RenderManyMessages(const String& text) {
  ErrorMessage error(46066);
  for (std::size_t i = 0; i < text.size() / 64; ++i) error.Append(ErrorMessage(46066));
  String all;
  error.RetrieveErrorMessages(all);
}

std::vector<Path> TextPaths() {
  return {
      OfText("compare ignoring case", L"aB\x416",
             [](const String& text) {
               String other = text;
               other += L"x";
               BaseStringUtil::CaseInsensitiveCompare(text, other);
               other = text.substr(0, text.size() - 1) + L"X";
               BaseStringUtil::IsCaseInsensitiveMatch(text, other);
             }),
      OfText(
          "find ignoring case", L"kelvorKELVOR",
          [](const String& text) { BaseStringUtil::CaseInsensitiveFindPattern(text, L"Kelvora"); }),
      OfText(
          "find", L"Measures",
          [](const String& text) { BaseStringUtil::ForwardPatternMatch(text, L"Measures.", 0); }),
      OfText("remove brackets", L"[",
             [](const String& text) {
               String copy = text;
               BaseStringUtil::ReplacePatternInString(copy, L"[", L"");
             }),
      OfText("replace by more", L"]a",
             [](const String& text) {
               String copy = text;
               BaseStringUtil::ReplacePatternInString(copy, L"]", L"]]]]");
             }),
      OfText("escape", L"<&\r\x1", &Escape),
      OfText("escape nothing", L"x", &Escape),
      OfText("a number behind blanks", L" ",
             [](const String& text) { BaseStringUtil::IntFrom(text); }),
      OfText("a number of many digits", L"0",
             [](const String& text) { BaseStringUtil::UIntFrom(text); }),
      OfText("encode", L"x", &EncodeUTF8),
      OfText("encode surrogates", L"\xD800\x4E00", &EncodeUTF8),
      OfText("append characters", L"x", &AppendOneByOne),
      OfText("append texts", L"x", &AppendPieces),
      OfText("render a message", L"x\n", &RenderMessage),
      OfText("render a bare text", L"x\n", &RenderBareText),
      OfText("render many messages", L"x", &RenderManyMessages),
      OfBytes("decode", "x"),
      OfBytes("decode characters of three bytes", "\xE4\xB8\x80"),
      OfBytes("decode ill-formed bytes", "\xFF"),
      OfBytes("decode cut characters", "\xF0\x90\x80"),
  };
}

// How the client classifies and converts a body.

Path OfBody(const char* name, long status, const std::string& begin, const std::string& piece,
            const std::string& contentType = "text/xml") {
  return {name, 8 * kKi, 32 * kMi, [=](std::size_t size) -> Work {
            const auto client =
                std::make_shared<HTTPClientWrapper>(inprocess::kUrl, L"", L"", 0, nullptr);
            const auto answer = std::make_shared<inprocess::Answer>(
                inprocess::Answer{begin + Repeated(piece, size), status, contentType});
            return [=] {
              inprocess::SetServer([=](std::string_view) { return *answer; });
              NarrowString reply;
              String error;
              client->ReadBytes(NarrowString("q"), reply, error);
            };
          }};
}

Path OfContentType(const char* name, const char* piece) {
  return {name, 4 * kKi, 4 * kMi, [=](std::size_t size) -> Work {
            return OfBody(name, 200, "<r/>", " ", "text/xml; " + Repeated(piece, size)).make(1);
          }};
}

std::vector<Path> BodyPaths() {
  return {
      OfBody("a body of blanks", 200, "", " \n"),
      OfBody("a body of null characters", 200, "", std::string(1, '\0')),
      OfBody("a body of byte-order marks", 200, "", "\xEF\xBB\xBF"),
      OfBody("plain text", 200, "", "text "),
      OfBody("an endless first name", 200, "<", "name:"),
      OfBody("comments in front", 200, "", "<!-- a -->"),
      OfBody("comments that begin again", 200, "", "<!--"),
      OfBody("instructions that begin again", 200, "", "<?"),
      OfBody("a page of titles", 200, "<html>", "<title"),
      OfBody("a page with a long title", 200, "<html><title>", "long "),
      OfBody("a page's doctype", 200, "<!doctype", " "),
      OfBody("tags without end, searched for a fault", 500, "<Envelope>", "<"),
      OfBody("names without end, searched for a fault", 500, "<Envelope>", "<name:"),
      OfBody("colons, searched for a fault", 500, "<Envelope><", ":"),
      OfBody("tags, searched for a fault", 500, "<Envelope>", "<a></a>"),
      OfBody("one long tag, searched for a fault", 500, "<Envelope><a ", "attribute='1' "),
      OfBody("one long text, searched for a fault", 500, "<Envelope>", "text "),
      OfBody("comments that begin again, searched", 500, "<Envelope>", "<!--"),
      OfBody("comments, searched for a fault", 500, "<Envelope>", "<!---->"),
      OfBody("CDATA sections that begin again, searched", 500, "<Envelope>", "<![CDATA["),
      OfBody("instructions that begin again, searched", 500, "<Envelope>", "<?a"),
      OfBody("a fault at the end of many", 500, "<Envelope>", "<Fault1/>"),
      OfBody("ISO-8859-1", 200, "<r>", "\xE9", "text/xml; charset=iso-8859-1"),
      OfBody("unassigned bytes", 200, "<r>", "\xFF", "text/xml; charset=windows-1253"),
      OfBody("composed characters", 200, "<r>", "\xF5\xEC", "text/xml; charset=windows-1258"),
      OfBody("ill-formed Big5", 200, "<r>", "\xFF", "text/xml; charset=big5"),
      OfBody("cut GB18030", 200, "<r>", "\x81", "text/xml; charset=gb18030"),
      OfBody("cut Shift_JIS", 200, "<r>", "\x81\xFF", "text/xml; charset=shift_jis"),
      OfBody("EUC-KR", 200, "<r>", "\xB8\xC5", "text/xml; charset=euc-kr"),
      OfBody("UTF-16", 200, "\xFF\xFE", std::string("<\0", 2)),
      OfBody("UTF-16 of lone surrogates", 200, "\xFF\xFE", std::string("\0\xD8", 2)),
      OfBody("a declaration without end", 200, "<?xml", " encoding"),
      OfContentType("a content type of charsets", "charset "),
      OfContentType("a content type of blanks", "charset\t  "),
      OfContentType("a content type of one charset", "charset=x"),
  };
}

// The reader and the rowset readers.

Path OfReply(const char* name, const char* requestType, std::size_t least, std::size_t most,
             const std::function<std::string(std::size_t)>& makeReply,
             ServerInfo::TargetType target = ServerInfo::kTessera) {
  return {name, least, most, [=](std::size_t size) -> Work {
            const auto reply = std::make_shared<std::string>(makeReply(size));
            const auto agent =
                std::make_shared<XmlADiscoverAgentHeap>(inprocess::MakeAgent(target));
            return [=] {
              inprocess::SetServer([=](std::string_view request) {
                const std::string_view type = inprocess::RequestTypeOf(request);
                return inprocess::Answer{type == requestType ? *reply : "<root/>"};
              });
              support::Outputs outputs;
              try {
                inprocess::ExchangeFor(requestType).Run(**agent, outputs);
              } catch (const ErrorMessage&) {
                // A limit, or cancelled.
              }
            };
          }};
}

Path OfDocument(const char* name, const char* begin, const char* piece, const char* end,
                std::size_t most = 16 * kMi) {
  return OfReply(name, "MDSCHEMA_MEASURES", 8 * kKi, most, [=](std::size_t size) {
    return "<root>" + (begin + Repeated(piece, size)) + end + "</root>";
  });
}

Path OfNumbered(const char* name, std::size_t least, std::size_t most, const char* begin,
                const std::function<std::string(std::string)>& piece, const char* end) {
  return OfReply(name, "MDSCHEMA_MEASURES", least, most, [=](std::size_t count) {
    std::string text = std::string("<root>") + begin;
    for (std::size_t i = 0; i < count; ++i) text += piece(std::to_string(i));
    return text + end + "</root>";
  });
}

std::vector<Path> ReaderPaths() {
  const auto row = [](const std::string& column) {
    return "<row><" + column + ">1</" + column + "></row>";
  };
  return {
      OfDocument("a long text", "<row><MEASURE_NAME>", "x", "</MEASURE_NAME></row>", 8 * kMi),
      OfDocument("a long text of references", "<row><MEASURE_NAME>", "&lt;",
                 "</MEASURE_NAME></row>"),
      OfDocument("a long text in pieces", "<row><MEASURE_NAME>", "x<a/>", "</MEASURE_NAME></row>"),
      OfDocument("a long text in comments", "<row><MEASURE_NAME>", "x<!---->",
                 "</MEASURE_NAME></row>"),
      OfDocument("blanks in pieces", "<row>", " <a/>", "</row>"),
      OfDocument("a long CDATA section", "<row><MEASURE_NAME><![CDATA[", "x",
                 "]]></MEASURE_NAME></row>"),
      OfDocument("CDATA sections", "<row><MEASURE_NAME>", "<![CDATA[x]]>", "</MEASURE_NAME></row>"),
      OfDocument("a long comment", "<!--", "x", "-->"),
      OfDocument("a long instruction", "<?p ", "?", "?>"),
      OfDocument("a long target of an instruction", "<?", "p", "?>"),
      OfDocument("a long name of an entity", "&", "n", ";"),
      OfDocument("comments", "", "<!---->", ""),
      OfDocument("instructions", "", "<?p x?>", ""),
      OfDocument("elements", "", "<a/>", ""),
      OfDocument("text between elements", "", "<a/>text", ""),
      OfDocument("lines", "", "\n", ""),
      OfDocument("ill-formed bytes", "<row><MEASURE_NAME>", "\xFF", "</MEASURE_NAME></row>"),
      OfDocument("characters of four bytes", "<row><MEASURE_NAME>", "\xF0\x9F\x98\x80",
                 "</MEASURE_NAME></row>"),
      OfDocument("a long tag", "<row ", "a", "=''/>"),
      OfDocument("a long value of an attribute", "<row a='", "x", "'/>"),
      OfDocument("attributes", "", "<row a='1' b='2' c='3' d='4' e='5' f='6'/>", ""),
      OfDocument("an error at the end", "", "<a>x</a>\n", "<b></c>"),
      OfDocument("an error at the end of one line", "", "<a>x</a>", "<b></c>"),
      OfDocument("elements that do not end", "<row>", "<a><b><c><d></d></c></b></a>", ""),
      OfDocument("columns of one row", "<row>", "<MEASURE_NAME>x</MEASURE_NAME>", "</row>"),
      OfDocument("faults", "", "<faultstring>x</faultstring>", ""),
      OfNumbered(
          "different names", 2 * kKi, 128 * kKi, "",
          [=](const std::string& i) { return row("A" + i); }, ""),
      OfNumbered(
          "different long names", 16, kKi, "",
          [](const std::string& i) { return "<a" + i + std::string(60000, 'n') + "/>"; }, ""),
      OfNumbered(
          "different columns of one row", 2 * kKi, 128 * kKi, "<row>",
          [](const std::string& i) { return "<A" + i + "/>"; }, "</row>"),
      OfNumbered(
          "different attributes", 2 * kKi, 128 * kKi, "",
          [](const std::string& i) { return "<row a" + i + "=''/>"; }, ""),
      OfNumbered(
          "attributes of one element", kKi, 16 * kKi, "<row",
          [](const std::string& i) { return " a" + i + "=''"; }, "/>"),
      OfNumbered(
          "prefixes", 2 * kKi, 128 * kKi, "",
          [](const std::string& i) { return "<p" + i + ":row/>"; }, ""),
      OfNumbered(
          "namespaces of one element", 64, 4 * kKi, "<row",
          [](const std::string& i) { return " xmlns:p" + i + "='u'"; }, "/>"),
      OfNumbered(
          "namespaces", 2 * kKi, 128 * kKi, "",
          [](const std::string& i) { return "<p:a xmlns:p='u" + i + "'/>"; }, ""),
      OfReply("null characters behind", "MDSCHEMA_MEASURES", 8 * kKi, 32 * kMi,
              [](std::size_t size) { return "<root/>" + std::string(size, '\0'); }),
      OfReply("blanks in front", "MDSCHEMA_MEASURES", 8 * kKi, 32 * kMi,
              [](std::size_t size) { return std::string(size, '\n') + "<root/>"; }),
      OfReply("blanks behind a declaration", "MDSCHEMA_MEASURES", 8 * kKi, 128 * kMi,
              [](std::size_t size) {
                return "<?xml version='1.0'?>" + std::string(size, ' ') + "<root/>";
              }),
      OfReply("blanks behind the root", "MDSCHEMA_MEASURES", 8 * kKi, 128 * kMi,
              [](std::size_t size) { return "<root/>" + std::string(size, '\n') + "<!---->"; }),
      OfReply("blanks in a declaration", "MDSCHEMA_MEASURES", 8 * kKi, 32 * kMi,
              [](std::size_t size) {
                return "<?xml version='1.0'" + std::string(size, ' ') + "?><root/>";
              }),
      OfReply("a declaration without end", "MDSCHEMA_MEASURES", 8 * kKi, 128 * kMi,
              [](std::size_t size) { return "<?xml " + std::string(size, '?'); }),
      OfReply("beginnings of a declaration", "MDSCHEMA_MEASURES", 8 * kKi, 128 * kMi,
              [](std::size_t size) { return std::string(size, '<'); }),
      OfReply("a null character at the end", "MDSCHEMA_MEASURES", 8 * kKi, 16 * kMi,
              [](std::size_t size) {
                return "<root>" + Repeated("<a/>\n", size) + std::string("\0</root>", 8);
              }),
      OfReply("a fault's text", "MDSCHEMA_MEASURES", 8 * kKi, 8 * kMi,
              [](std::size_t size) {
                return "<Envelope><Fault><faultcode>c</faultcode><faultstring>" +
                       std::string(size, 'x') + "</faultstring></Fault></Envelope>";
              }),
      OfReply("a fault in pieces", "MDSCHEMA_MEASURES", 8 * kKi, 16 * kMi,
              [](std::size_t size) {
                return "<Envelope><Fault><faultcode>c</faultcode>" +
                       Repeated("<faultstring>xxxxxxxxxxxxxxxxxxx</faultstring>", size) +
                       "</Fault></Envelope>";
              }),
  };
}

/// A reply of the sample provider with its one row repeated.
std::string ManyRows(ServerInfo::TargetType target, const char* requestType, std::size_t rows) {
  const std::string& body = inprocess::ShortReply(target, requestType).body;
  const std::size_t begin = body.find("<row>");
  const std::size_t end = body.find("</row>") + 6;
  if (begin == std::string::npos) return body;
  return body.substr(0, begin) + Times(body.substr(begin, end - begin), rows) + body.substr(end);
}

std::vector<Path> RowsetPaths() {
  std::vector<Path> paths;
  for (const inprocess::SampleKind& kind : inprocess::kSampleKinds)
    for (const inprocess::Exchange& exchange : inprocess::Exchanges()) {
      const char* const type = exchange.requestType;
      const bool isThere =
          std::any_of(inprocess::SampleReplies().begin(), inprocess::SampleReplies().end(),
                      [&](const inprocess::Reply& reply) {
                        return reply.target == kind.target && reply.requestType == type;
                      });
      if (!isThere) continue;
      const ServerInfo::TargetType target = kind.target;
      paths.push_back(OfReply(
          type, type, 256, 16 * kKi, [=](std::size_t rows) { return ManyRows(target, type, rows); },
          target));
    }
  return paths;
}

// Whole imports.

std::string Root(const std::string& rows) { return "<root>" + rows + "</root>"; }

std::string Column(const char* name, const std::string& value) {
  return std::string("<") + name + ">" + value + "</" + name + ">";
}

std::string Hierarchy(const std::string& name, const std::string& more = {}) {
  return "<row>" + Column("HIERARCHY_UNIQUE_NAME", name) + Column("DIMENSION_UNIQUE_NAME", name) +
         Column("STRUCTURE", "0") + Column("DIMENSION_TYPE", "3") + more + "</row>";
}

std::string Numbered(std::size_t count, const std::function<std::string(std::string)>& piece) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += piece(std::to_string(i));
  return all;
}

/// Rows by request type.
using Rowsets = std::map<std::string, std::string, std::less<>>;

Path OfImport(const char* name, std::size_t operation, ServerInfo::TargetType target,
              std::size_t least, std::size_t most,
              const std::function<Rowsets(std::size_t)>& makeRowsets) {
  return {name, least, most, [=](std::size_t size) -> Work {
            const auto rowsets = std::make_shared<Rowsets>(makeRowsets(size));
            for (auto& [type, rows] : *rowsets)
              if (!rows.starts_with("<Envelope>")) rows = Root(rows);
            const std::shared_ptr<OTXMLAImportAPI> import = inprocess::MakeImport(target);
            return [=] {
              inprocess::SetServer([=](std::string_view request) {
                const auto found = rowsets->find(inprocess::RequestTypeOf(request));
                return inprocess::Answer{found == rowsets->end() ? "<root/>" : found->second};
              });
              support::Outputs outputs;
              support::ImportOperations()[operation].run(*import, outputs);
            };
          }};
}

constexpr std::size_t kTree = 1;
constexpr std::size_t kHierarchies = 2;
constexpr std::size_t kMeasures = 3;
constexpr ServerInfo::TargetType kAnalysis = ServerInfo::kAnalysisServices2005;
constexpr ServerInfo::TargetType kSap = ServerInfo::kSAP_BW35;
constexpr ServerInfo::TargetType kTamarind = ServerInfo::kTamarind7;

std::vector<Path> ImportPaths() {
  const auto hierarchies = [](std::size_t count) {
    return Numbered(count, [](const std::string& i) { return Hierarchy("[h" + i + "]"); });
  };
  const auto names = [](std::size_t count, const char* column) {
    return Numbered(count, [=](const std::string& i) {
      return "<row>" + Column(column, "name " + i) + "</row>";
    });
  };
  const std::string fault = "<Envelope><Fault><faultcode>c</faultcode><faultstring>" +
                            std::string(2000, 'x') + "</faultstring></Fault></Envelope>";
  return {
      OfImport("hierarchies", kHierarchies, kAnalysis, 64, 4 * kKi,
               [=](std::size_t count) {
                 return Rowsets{{"MDSCHEMA_HIERARCHIES", hierarchies(count)}};
               }),
      OfImport("hierarchies and dimensions", kHierarchies, kTamarind, 64, 4 * kKi,
               [=](std::size_t count) {
                 // The hierarchies' own dimensions come last.
                 return Rowsets{
                     {"MDSCHEMA_HIERARCHIES", hierarchies(count)},
                     {"MDSCHEMA_DIMENSIONS", Numbered(8 * count, [=](const std::string& i) {
                        return "<row>" +
                               Column("DIMENSION_UNIQUE_NAME",
                                      "[h" + std::to_string(8 * count - 1 - std::stoul(i)) + "]") +
                               Column("DIMENSION_TYPE", "1") + "</row>";
                      })}};
               }),
      OfImport("default hierarchies", kHierarchies, kSap, 64, 4 * kKi,
               [=](std::size_t count) {
                 return Rowsets{
                     {"MDSCHEMA_HIERARCHIES", hierarchies(count)},
                     {"MDSCHEMA_DIMENSIONS", Numbered(8 * count, [](const std::string& i) {
                        return "<row>" + Column("DEFAULT_HIERARCHY", "[h" + i + "]") + "</row>";
                      })}};
               }),
      OfImport("skipped hierarchies", kHierarchies, kAnalysis, kKi, 64 * kKi,
               [=](std::size_t count) {
                 return Rowsets{{"MDSCHEMA_HIERARCHIES", Numbered(count, [](const std::string& i) {
                                   return Hierarchy("[h" + i + "]", Column("IS_VIRTUAL", "true"));
                                 })}};
               }),
      OfImport("a million skipped hierarchies", kHierarchies, kAnalysis, 64 * kKi, 1'000'000,
               [=](std::size_t count) {
                 return Rowsets{{"MDSCHEMA_HIERARCHIES", Times("<row><IS_VIRTUAL>true</IS_VIRTUAL>"
                                                               "<STRUCTURE>0</STRUCTURE></row>",
                                                               count)}};
               }),
      OfImport("skipped hierarchies with long names", kHierarchies, kAnalysis, 64, 2 * kKi,
               [=](std::size_t count) {
                 return Rowsets{{"MDSCHEMA_HIERARCHIES", Numbered(count, [](const std::string&) {
                                   return Hierarchy(std::string(10000, 'n'),
                                                    Column("IS_VIRTUAL", "true"));
                                 })}};
               }),
      OfImport("failed look-ups of default members", kHierarchies, kAnalysis, 64, 4 * kKi,
               [=](std::size_t count) {
                 return Rowsets{{"MDSCHEMA_HIERARCHIES", hierarchies(count)},
                                {"MDSCHEMA_MEMBERS", fault}};
               }),
      OfImport("a hierarchy with a long name", kHierarchies, kAnalysis, 8 * kKi, 4 * kMi,
               [=](std::size_t size) {
                 return Rowsets{{"MDSCHEMA_HIERARCHIES", Hierarchy(Repeated("[ .*?']", size))}};
               }),
      OfImport("levels", kHierarchies, kAnalysis, 256, 32 * kKi,
               [=](std::size_t count) {
                 return Rowsets{{"MDSCHEMA_HIERARCHIES", Hierarchy("[h]")},
                                {"MDSCHEMA_LEVELS", Numbered(count, [=](const std::string& i) {
                                   return "<row>" + Column("LEVEL_UNIQUE_NAME", "[l" + i + "]") +
                                          Column("LEVEL_NUMBER",
                                                 std::to_string(count - 1 - std::stoul(i))) +
                                          "</row>";
                                 })}};
               }),
      OfImport("levels with long names", kHierarchies, kAnalysis, 32, kKi,
               [=](std::size_t count) {
                 return Rowsets{{"MDSCHEMA_HIERARCHIES", Hierarchy("[h]")},
                                {"MDSCHEMA_LEVELS", Numbered(count, [](const std::string& i) {
                                   return "<row>" +
                                          Column("LEVEL_UNIQUE_NAME", i + std::string(10000, '.')) +
                                          Column("LEVEL_NAME", i + std::string(10000, '[')) +
                                          Column("LEVEL_NUMBER", i) + "</row>";
                                 })}};
               }),
      OfImport("properties of a level", kHierarchies, kTamarind, kKi, 64 * kKi,
               [=](std::size_t count) {
                 return Rowsets{{"MDSCHEMA_HIERARCHIES", Hierarchy("[h]")},
                                {"MDSCHEMA_LEVELS", "<row>" + Column("LEVEL_UNIQUE_NAME", "[l]") +
                                                        Column("LEVEL_NUMBER", "0") + "</row>"},
                                {"MDSCHEMA_PROPERTIES", Numbered(count, [](const std::string& i) {
                                   return "<row>" + Column("PROPERTY_NAME", "[p" + i + "]") +
                                          Column("KELVORA_ATTRIBUTE_GENERATION", i) + "</row>";
                                 })}};
               }),
      OfImport("measures", kMeasures, kAnalysis, kKi, 64 * kKi,
               [=](std::size_t count) {
                 return Rowsets{{"MDSCHEMA_MEASURES", names(count, "MEASURE_NAME")}};
               }),
      OfImport("data sources", kTree, kAnalysis, 64, 8 * kKi,
               [=](std::size_t count) {
                 return Rowsets{{"DISCOVER_DATASOURCES", names(count, "DataSourceName")}};
               }),
      OfImport("catalogs", kTree, kAnalysis, 64, 8 * kKi,
               [=](std::size_t count) {
                 return Rowsets{{"DISCOVER_DATASOURCES", names(1, "DataSourceName")},
                                {"DBSCHEMA_CATALOGS", names(count, "CATALOG_NAME")}};
               }),
      OfImport("cubes", kTree, kAnalysis, kKi, 64 * kKi,
               [=](std::size_t count) {
                 return Rowsets{{"DISCOVER_DATASOURCES", names(1, "DataSourceName")},
                                {"DBSCHEMA_CATALOGS", names(1, "CATALOG_NAME")},
                                {"MDSCHEMA_CUBES", names(count, "CUBE_NAME")}};
               }),
      OfImport("the provider's name", kTree, kAnalysis, 8 * kKi, 8 * kMi,
               [=](std::size_t size) {
                 return Rowsets{{"DISCOVER_PROPERTIES",
                                 "<row>" + Column("PropertyName", "ProviderName") +
                                     Column("Value", Repeated("SABKelvor", size)) + "</row>"}};
               }),
      OfImport("properties of the provider", kTree, kAnalysis, 2 * kKi, 64 * kKi,
               [=](std::size_t count) {
                 return Rowsets{{"DISCOVER_PROPERTIES",
                                 Times("<row>" + Column("PropertyName", "ProviderName") +
                                           Column("Value", "x") + "</row>",
                                       count)}};
               }),
  };
}

struct Group {
  const char* name;
  std::vector<Path> (*paths)();
};
constexpr Group kGroups[] = {
    {"text", &TextPaths},      {"bodies", &BodyPaths},    {"documents", &ReaderPaths},
    {"rowsets", &RowsetPaths}, {"imports", &ImportPaths},
};

class Scaling : public testing::TestWithParam<Group> {};

TEST_P(Scaling, DoubleTheInputTakesAtMostTwoAndAHalfTimesTheTime) {
  double worst = 0;
  std::size_t count = 0;
  for (const Path& path : GetParam().paths()) {
    const support::Growth growth = support::MeasureGrowth(path.least, path.most, path.make);
    EXPECT_EQ(growth.violation, "") << path.name;
    worst = std::max(worst, growth.lastingRatio);
    ++count;
  }
  char text[100];
  std::snprintf(text, sizeof text, "%zu paths, at most %.2f times", count, worst);
  support::PrintFigure("CPU time for double input, " + std::string(GetParam().name), text);
}

TEST_P(Scaling, StopsWithin100Milliseconds) {
  constexpr double kAllowed = 0.1;
  const std::size_t parts = support::IsLong() ? 1 : 4;
  const int moments = support::IsLong() ? 10 : 1;
  double longest = 0;
  std::size_t count = 0;
  for (const Path& path : GetParam().paths()) {
    if (!path.isOperation) continue;
    const std::size_t size = path.most / parts;
    const double seconds = support::LongestStop(path.make(size), moments, kAllowed);
    EXPECT_LE(seconds, kAllowed) << path.name;
    longest = std::max(longest, seconds);
    ++count;
  }
  if (count == 0) GTEST_SKIP() << "no operations";
  char text[100];
  std::snprintf(text, sizeof text, "%zu paths, %d moments each, within %.0f ms", count, moments,
                longest * 1000);
  support::PrintFigure("cancelled during " + std::string(GetParam().name), text);
}

INSTANTIATE_TEST_SUITE_P(Paths, Scaling, testing::ValuesIn(kGroups),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace scaling
}  // namespace
