// Tests the charsets of replies: which are accepted, and the limit on the length of the converted
// text.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "Utility/Generic/HTTPClientWrapper.h"
#include "support/Text.h"
#include "support/WireServer.h"

namespace {

using support::Narrow;
using support::Wide;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

/// A client and a server that sends the given bytes.
class EchoingClient {
 public:
  explicit EchoingClient(std::uint64_t maxReplyBytes = HTTPClientOptions().maxReplyBytes)
      : m_server([](loopback::Connection& connection, const loopback::Request& request) {
          connection.Send(request.body);
        }) {
    HTTPClientOptions options;
    options.maxReplyBytes = maxReplyBytes;
    m_client = std::make_unique<HTTPClientWrapper>(Wide("http://" + m_server.Authority() + "/"),
                                                   L"", L"", 10, &options);
  }

  /// The reply as the client returns it, or the error text.
  std::string Receive(const std::string& body, const std::string& contentType = "text/xml") {
    const std::string answer = Answer(body, "200 OK", "Content-Type: " + contentType + "\r\n");
    NarrowString reply;
    String error;
    return m_client->ReadBytes(NarrowString(answer.data(), answer.size()), reply, error)
               ? std::string(reply.view())
               : Narrow(error);
  }

 private:
  WireServer m_server;
  std::unique_ptr<HTTPClientWrapper> m_client;
};

struct Charset {
  const char* names;
  const char* bytes;
  const char* text;
};

// Bytes and texts come from Python's codecs, which share no code with iconv.
const Charset kAccepted[] = {
    {"utf-8 UTF8 us-ascii ASCII ANSI_X3.4-1968 csASCII", "\xC3\xA9", "\xC3\xA9"},
    {"iso-8859-1 ISO8859-1 ISO_8859-1 latin1 l1 iso-ir-100 IBM819 csISOLatin1", "\xE9", "\xC3\xA9"},
    {"iso-8859-2 iso8859-2 latin2", "\xA3", "\xC5\x81"},
    {"iso-8859-3 iso8859-3 latin3", "\xA1", "\xC4\xA6"},
    {"iso-8859-4 iso8859-4 latin4", "\xA2", "\xC4\xB8"},
    {"iso-8859-5 iso8859-5 cyrillic", "\xB6", "\xD0\x96"},
    {"iso-8859-6 iso8859-6 arabic", "\xD4", "\xD8\xB4"},
    {"iso-8859-7 iso8859-7 greek", "\xD9", "\xCE\xA9"},
    {"iso-8859-8 iso-8859-8-i hebrew", "\xF9", "\xD7\xA9"},
    {"iso-8859-9 iso8859-9 latin5", "\xF0", "\xC4\x9F"},
    {"iso-8859-10 iso8859-10 latin6", "\xB9", "\xC4\x91"},
    {"iso-8859-11 iso8859-11 tis-620", "\xA1", "\xE0\xB8\x81"},
    {"iso-8859-13 iso8859-13 latin7", "\xF8", "\xC5\xB3"},
    {"iso-8859-14 iso8859-14 latin8", "\xF0", "\xC5\xB5"},
    {"iso-8859-15 iso8859-15 latin-9", "\xA4", "\xE2\x82\xAC"},
    {"iso-8859-16 iso8859-16 latin10", "\xBA", "\xC8\x99"},
    {"windows-874 cp874", "\xA1\x80", "\xE0\xB8\x81\xE2\x82\xAC"},
    {"windows-1250 cp1250", "\xA3", "\xC5\x81"},
    {"windows-1251 cp1251", "\xC6", "\xD0\x96"},
    {"windows-1252 cp1252 x-cp1252", "\x80", "\xE2\x82\xAC"},
    {"windows-1253 cp1253", "\xD9", "\xCE\xA9"},
    {"windows-1254 cp1254", "\xF0", "\xC4\x9F"},
    {"windows-1255 cp1255", "\xF9", "\xD7\xA9"},
    {"windows-1256 cp1256", "\xD4", "\xD8\xB4"},
    {"windows-1257 cp1257", "\xF8", "\xC5\xB3"},
    {"windows-1258 cp1258", "\xF5>", "\xC6\xA1>"},  // a mark could follow the letter
    {"koi8-r KOI8-R cskoi8r", "\xF6", "\xD0\x96"},
    {"koi8-u", "\xA7", "\xD1\x97"},
    {"ibm866 cp866", "\x86", "\xD0\x96"},
    {"macintosh", "\x8E", "\xC3\xA9"},
    {"shift_jis Shift-JIS sjis x-sjis", "\x94\x84\x8F\xE3", "\xE5\xA3\xB2\xE4\xB8\x8A"},
    {"windows-31j cp932 ms932", "\x94\x84\x87\x40", "\xE5\xA3\xB2\xE2\x91\xA0"},
    {"euc-jp x-euc-jp eucjp", "\xC7\xE4\xBE\xE5", "\xE5\xA3\xB2\xE4\xB8\x8A"},
    {"gb2312 euc-cn", "\xCF\xFA\xCA\xDB", "\xE9\x94\x80\xE5\x94\xAE"},
    {"gbk cp936 windows-936", "\xE9\x46", "\xE9\x95\x95"},
    {"gb18030 GB18030", "\xCF\xFA\xA2\xE3", "\xE9\x94\x80\xE2\x82\xAC"},
    {"big5 Big5 cp950", "\xBE\x50\xB0\xE2", "\xE9\x8A\xB7\xE5\x94\xAE"},
    {"big5-hkscs", "\xBE\x50\xB0\xE2", "\xE9\x8A\xB7\xE5\x94\xAE"},
    {"euc-kr euckr", "\xB8\xC5\xC3\xE2", "\xEB\xA7\xA4\xEC\xB6\x9C"},
    {"windows-949 cp949 uhc ks_c_5601-1987", "\x8C\x63", "\xEB\x98\xA0"},
};

TEST(ReplyCharset, KnownCharsetsAreAcceptedByAllTheirNames) {
  EchoingClient client;
  for (const Charset& charset : kAccepted) {
    std::istringstream names(charset.names);
    for (std::string name; names >> name;) {
      EXPECT_EQ(
          client.Receive("<r>" + std::string(charset.bytes) + "</r>", "text/xml; charset=" + name),
          "<r>" + std::string(charset.text) + "</r>")
          << name;
      const std::string declaration = "<?xml version='1.0' encoding='" + name + "'?>";
      EXPECT_EQ(client.Receive(declaration + "<r>" + charset.bytes + "</r>"),
                declaration + "<r>" + charset.text + "</r>")
          << name;
    }
  }
}

// iconv knows all of these charsets except the last few.
TEST(ReplyCharset, OtherCharsetsAreRefused) {
  EchoingClient client;
  for (const std::string name :
       {"UTF-7",     "ISO-2022-JP",  "ISO-2022-KR", "ISO-2022-CN-EXT", "IBM037",
        "EBCDIC-US", "CP1047",       "TSCII",       "ARMSCII-8",       "T.61-8BIT",
        "HP-ROMAN8", "IBM1390",      "GEORGIAN-PS", "VISCII",          "JOHAB",
        "BRF",       "EUC-JISX0213", "INTERNAL",    "WCHAR_T",         "ISO-8859-1//TRANSLIT",
        "8859-1",    "ISO-8859",     "ISO-8859-12", "SO-8859-1",       "-",
        "X-NO-SUCH", "../../TMP/X"}) {
    EXPECT_THAT(
        client.Receive("<r/>", "text/xml; charset=" + name),
        AllOf(HasSubstr("the reply is in the charset \"" + name + "\", which is not accepted"),
              HasSubstr("; configure the server to use UTF-8")));
  }
  EXPECT_THAT(client.Receive("<r/>", "text/xml; charset=\"ISO-8859-1 ISO8859-1\""),
              HasSubstr("\"ISO-8859-1 ISO8859-1\", which is not accepted"));
  EXPECT_THAT(client.Receive("<r/>", "text/xml; charset=" + std::string(2000, 'x')),
              HasSubstr("\"" + std::string(40, 'X') + "\", which is not accepted"));
}

TEST(ReplyCharset, DeclarationFarFromTheStartIsIgnored) {
  EchoingClient client;
  const std::string declaration = "<?xml version='1.0' encoding='ISO-8859-1'?>";
  const std::string near = std::string(4000, ' ') + declaration + "<r>";
  EXPECT_EQ(client.Receive(near + "\xE9</r>"), near + "\xC3\xA9</r>");
  const std::string far = std::string(4096, ' ') + declaration + "<r>\xE9</r>";
  EXPECT_EQ(client.Receive(far), far);
}

struct Length {
  const char* contentType;
  std::string unit;    // the body repeats these bytes
  std::size_t longer;  // UTF-8 bytes that each repetition becomes
};

std::string Repeated(const std::string& unit, std::size_t times) {
  std::string all;
  for (std::size_t i = 0; i < times; ++i) all += unit;
  return all;
}

TEST(ReplyCharset, LimitAppliesToTheConvertedText) {
  constexpr std::size_t kLimit = 100'000;
  constexpr char kTooLong[] =
      "the reply is longer than 100000 bytes after its conversion to UTF-8 (limit maxReplyBytes); ";
  EchoingClient client(kLimit);
  const Length lengths[] = {
      {"text/xml; charset=iso-8859-1", "\xE9", 2},
      {"text/xml; charset=iso-8859-15", "\xA4", 3},
      {"text/xml; charset=windows-1253", "\xFF", 3},  // not assigned: U+FFFD
      {"text/xml; charset=big5", "\xFF", 3},
      {"text/xml; charset=utf-8", "\xFF", 3},  // ill-formed
      {"text/xml", "\xE0\x9F", 6},             // two bytes that begin nothing
      {"text/xml", "\xE0\xA0", 3},             // a sequence that is cut
      {"text/xml", "\xF0\x90\x80", 3},
      {"text/xml; charset=utf-8", "\xEF\xBF\xBD", 3},
  };
  for (const Length& length : lengths) {
    const std::size_t most = (kLimit - 5) / length.longer;
    const std::string fits = "<r>" + Repeated(length.unit, most) + "<>";
    EXPECT_THAT(client.Receive(fits, length.contentType), StartsWith("<r>")) << length.contentType;
    const std::string whole = fits + std::string(kLimit - 5 - most * length.longer, '.');
    EXPECT_THAT(client.Receive(whole, length.contentType), StartsWith("<r>"));
    EXPECT_THAT(client.Receive(whole + ".", length.contentType),
                length.unit.size() == length.longer
                    ? HasSubstr("the reply is longer than 100000 bytes")
                    : HasSubstr(kTooLong));
  }
  const std::string mark = "\xFF\xFE";
  const std::string chinese = "\x2E\x95";  // three bytes in UTF-8
  EXPECT_THAT(client.Receive(mark + std::string("<\0", 2) + Repeated(chinese, 33'333)),
              StartsWith("<\xE9\x94\xAE"));
  EXPECT_THAT(client.Receive(mark + std::string("<\0", 2) + Repeated(chinese, 33'334)),
              HasSubstr(kTooLong));
}

}  // namespace
