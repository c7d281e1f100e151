#include "http/ReplyCharset.h"

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/Cancellation.h"
#include "text/UnicodeConversion.h"

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
constexpr std::string_view kWhiteSpace = " \t\r\n";
/// An XML declaration that does not end within this many bytes is ignored.
constexpr std::size_t kMaxDeclarationEnd = std::size_t{4} << 10;

struct Mark {
  std::string_view bytes;
  const char* converter;  // iconv's name; null: UTF-8
  std::size_t unit;       // bytes per code unit
  bool isPartOfText;      // false: a byte-order mark, which is removed
};

// Longer marks first, because that of UTF-32LE begins with that of UTF-16LE.
constexpr Mark kMarks[] = {
    {{"\xEF\xBB\xBF", 3}, nullptr, 1, true},     {{"\xFF\xFE\0\0", 4}, "UTF-32LE", 4, false},
    {{"\0\0\xFE\xFF", 4}, "UTF-32BE", 4, false}, {{"\xFF\xFE", 2}, "UTF-16LE", 2, false},
    {{"\xFE\xFF", 2}, "UTF-16BE", 2, false},     {{"<\0\0\0", 4}, "UTF-32LE", 4, true},
    {{"\0\0\0<", 4}, "UTF-32BE", 4, true},       {{"<\0", 2}, "UTF-16LE", 2, true},
    {{"\0<", 2}, "UTF-16BE", 2, true},
};

struct Charset {
  const char* converter;   // iconv's name; null: UTF-8
  std::string_view names;  // in upper case, each between spaces
};

// iconv supports hundreds more. They are not used for XML, their converters are rarely tested, and
// some expand a few bytes to very long texts.
constexpr Charset kCharsets[] = {
    {nullptr,
     " UTF-8 UTF8 UNICODE-1-1-UTF-8 CSUTF8 US-ASCII ASCII US ANSI_X3.4-1968 ANSI_X3.4-1986 "
     "ISO_646.IRV:1991 ISO646-US ISO-IR-6 IBM367 CP367 CSASCII "},
    {"ISO-8859-1",
     " ISO-8859-1 ISO8859-1 ISO88591 ISO_8859-1 ISO_8859-1:1987 ISO-IR-100 LATIN1 L1 IBM819 CP819 "
     "CSISOLATIN1 "},
    {"ISO-8859-2",
     " ISO-8859-2 ISO8859-2 ISO88592 ISO_8859-2 ISO_8859-2:1987 ISO-IR-101 LATIN2 L2 "
     "CSISOLATIN2 "},
    {"ISO-8859-3",
     " ISO-8859-3 ISO8859-3 ISO88593 ISO_8859-3 ISO_8859-3:1988 ISO-IR-109 LATIN3 L3 "
     "CSISOLATIN3 "},
    {"ISO-8859-4",
     " ISO-8859-4 ISO8859-4 ISO88594 ISO_8859-4 ISO_8859-4:1988 ISO-IR-110 LATIN4 L4 "
     "CSISOLATIN4 "},
    {"ISO-8859-5",
     " ISO-8859-5 ISO8859-5 ISO88595 ISO_8859-5 ISO_8859-5:1988 ISO-IR-144 CYRILLIC "
     "CSISOLATINCYRILLIC "},
    {"ISO-8859-6",
     " ISO-8859-6 ISO8859-6 ISO88596 ISO_8859-6 ISO_8859-6:1987 ISO-IR-127 ARABIC ASMO-708 "
     "ECMA-114 CSISOLATINARABIC "},
    {"ISO-8859-7",
     " ISO-8859-7 ISO8859-7 ISO88597 ISO_8859-7 ISO_8859-7:1987 ISO-IR-126 GREEK GREEK8 ELOT_928 "
     "ECMA-118 CSISOLATINGREEK "},
    {"ISO-8859-8",
     " ISO-8859-8 ISO8859-8 ISO88598 ISO_8859-8 ISO_8859-8:1988 ISO-8859-8-I ISO-8859-8-E "
     "ISO-IR-138 HEBREW CSISOLATINHEBREW "},
    {"ISO-8859-9",
     " ISO-8859-9 ISO8859-9 ISO88599 ISO_8859-9 ISO_8859-9:1989 ISO-IR-148 LATIN5 L5 "
     "CSISOLATIN5 "},
    {"ISO-8859-10", " ISO-8859-10 ISO8859-10 ISO_8859-10 ISO-IR-157 LATIN6 L6 CSISOLATIN6 "},
    {"ISO-8859-11", " ISO-8859-11 ISO8859-11 ISO_8859-11 TIS-620 TIS620 "},
    {"ISO-8859-13", " ISO-8859-13 ISO8859-13 ISO_8859-13 LATIN7 L7 "},
    {"ISO-8859-14", " ISO-8859-14 ISO8859-14 ISO_8859-14 LATIN8 L8 "},
    {"ISO-8859-15", " ISO-8859-15 ISO8859-15 ISO_8859-15 LATIN-9 LATIN9 L9 CSISOLATIN9 "},
    {"ISO-8859-16", " ISO-8859-16 ISO8859-16 ISO_8859-16 LATIN10 L10 "},
    {"CP874", " WINDOWS-874 CP874 "},
    {"CP1250", " WINDOWS-1250 CP1250 X-CP1250 "},
    {"CP1251", " WINDOWS-1251 CP1251 X-CP1251 "},
    {"CP1252", " WINDOWS-1252 CP1252 X-CP1252 "},
    {"CP1253", " WINDOWS-1253 CP1253 X-CP1253 "},
    {"CP1254", " WINDOWS-1254 CP1254 X-CP1254 "},
    {"CP1255", " WINDOWS-1255 CP1255 X-CP1255 "},
    {"CP1256", " WINDOWS-1256 CP1256 X-CP1256 "},
    {"CP1257", " WINDOWS-1257 CP1257 X-CP1257 "},
    {"CP1258", " WINDOWS-1258 CP1258 X-CP1258 "},
    {"KOI8-R", " KOI8-R KOI8 KOI KOI8_R CSKOI8R "},
    {"KOI8-U", " KOI8-U KOI8-RU "},
    {"IBM866", " IBM866 CP866 866 CSIBM866 "},
    {"MACINTOSH", " MACINTOSH MAC CSMACINTOSH "},
    {"SJIS", " SHIFT_JIS SHIFT-JIS SJIS X-SJIS MS_KANJI CSSHIFTJIS "},
    {"CP932", " WINDOWS-31J CP932 MS932 CSWINDOWS31J "},
    {"EUC-JP", " EUC-JP EUCJP X-EUC-JP CSEUCPKDFMTJAPANESE "},
    {"GB2312", " GB2312 GB_2312-80 EUC-CN CHINESE CSGB2312 "},
    {"GBK", " GBK CP936 MS936 WINDOWS-936 X-GBK "},
    {"GB18030", " GB18030 "},
    {"BIG5", " BIG5 BIG-5 CN-BIG5 X-X-BIG5 CSBIG5 CP950 "},
    {"BIG5-HKSCS", " BIG5-HKSCS BIG5HKSCS "},
    {"EUC-KR", " EUC-KR EUCKR KOREAN CSEUCKR "},
    {"UHC", " WINDOWS-949 CP949 UHC MS949 KS_C_5601-1987 KS_C_5601-1989 KSC5601 KSC_5601 "},
};

std::string Upper(std::string_view text) {
  std::string upper(text);
  for (char& character : upper)
    if (character >= 'a' && character <= 'z') character = static_cast<char>(character - 'a' + 'A');
  return upper;
}

/// The value of `name = value` in upper case, without quotes; empty if there is none.
std::string ValueOf(std::string_view text, std::string_view name) {
  const std::string upper = Upper(text);
  for (std::size_t found = upper.find(name); found != std::string::npos;
       found = upper.find(name, found + 1)) {
    std::size_t position = upper.find_first_not_of(kWhiteSpace, found + name.size());
    if (position == std::string::npos || upper[position] != '=') continue;
    position = upper.find_first_not_of(kWhiteSpace, position + 1);
    if (position == std::string::npos) return {};
    const bool quoted = upper[position] == '"' || upper[position] == '\'';
    const std::size_t begin = quoted ? position + 1 : position;
    const std::size_t end =
        quoted ? upper.find(upper[position], begin) : upper.find_first_of("; \t\r\n?>", begin);
    return upper.substr(begin, end == std::string::npos ? end : end - begin);
  }
  return {};
}

std::string DeclaredCharset(std::string_view body) {
  body = body.substr(0, kMaxDeclarationEnd);
  const std::size_t begin = body.find_first_not_of(kWhiteSpace);
  if (begin == std::string_view::npos || body.substr(begin, 5) != "<?xml") return {};
  const std::size_t end = body.find("?>", begin);
  if (end == std::string_view::npos) return {};
  return ValueOf(body.substr(begin, end - begin), "ENCODING");
}

/// True for charsets with code units of two or more bytes. Such a declaration is ignored for a body
/// without a byte-order mark and without null bytes at its start: some servers build their text as
/// UTF-16, declare it so, and send it as UTF-8.
bool IsWideCharset(std::string_view charset) {
  constexpr std::string_view kWide[] = {"UTF-16",  "UTF16",     "UTF-32",   "UTF32",
                                        "UCS-2",   "UCS2",      "UCS-4",    "UCS4",
                                        "UNICODE", "ISO-10646", "CSUNICODE"};
  return std::any_of(std::begin(kWide), std::end(kWide), [charset](std::string_view wide) {
    return charset.substr(0, wide.size()) == wide;
  });
}

const Charset* FindCharset(const std::string& name) {
  if (name.find(' ') != std::string::npos) return nullptr;
  const auto found = std::find_if(std::begin(kCharsets), std::end(kCharsets),
                                  [name = ' ' + name + ' '](const Charset& known) {
                                    return known.names.find(name) != std::string_view::npos;
                                  });
  return found == std::end(kCharsets) ? nullptr : found;
}

class Converter {
 public:
  explicit Converter(const char* charset) : m_handle(iconv_open("UTF-8", charset)) {}
  ~Converter() {
    if (IsKnown()) iconv_close(m_handle);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  bool IsKnown() const {
    return m_handle != reinterpret_cast<iconv_t>(-1);  // NOLINT: iconv_open's error value
  }

  /// Appends the converted bytes to `text`. Returns false if `text` would exceed `most` bytes. Each
  /// invalid sequence is replaced, and `unit` bytes are skipped. The result is incomplete if the
  /// thread must stop.
  bool Convert(std::string_view bytes, std::size_t unit, std::uint64_t most, NarrowString& text) {
    std::uint64_t room = 0;
    const auto append = [&](std::string_view more) {
      if (more.size() > most - text.size()) return false;
      if (text.size() + more.size() > room) {
        // Doubling the capacity could exceed the limit, so it grows by half.
        room = std::min<std::uint64_t>(
            most,
            std::max<std::uint64_t>(bytes.size(), text.size() + text.size() / 2) + more.size());
        text.reserve(room);
      }
      text.append(more);
      return true;
    };
    char* position = const_cast<char*>(bytes.data());  // NOLINT: iconv does not change the input
    std::size_t left = bytes.size();
    char buffer[16384];
    while (left > 0 && !IsThreadToStop()) {
      char* place = buffer;
      std::size_t free = sizeof buffer;
      const std::size_t result = iconv(m_handle, &position, &left, &place, &free);
      const int error = errno;
      if (!append({buffer, static_cast<std::size_t>(place - buffer)})) return false;
      if (result != static_cast<std::size_t>(-1) || error == E2BIG) continue;
      if (!append(kReplacement)) return false;
      if (error == EINVAL) break;  // incomplete character at the end
      position += std::min(unit, left);
      left -= std::min(unit, left);
    }
    return true;
  }

 private:
  iconv_t m_handle;
};

/// Checks the size after ill-formed bytes are replaced by U+FFFD, which takes three bytes.
CharsetResult CheckUTF8Length(std::string_view body, std::uint64_t maxBytes) {
  if (body.size() <= maxBytes / kReplacement.size()) return CharsetResult::kReady;
  const bool isWithin = UnicodeConversion::WellFormedLength(
                            body, maxBytes, [] { return IsThreadToStop(); }) <= maxBytes;
  return isWithin ? CharsetResult::kReady : CharsetResult::kTooLong;
}

}  // namespace

CharsetResult ConvertReplyToUTF8(NarrowString& body, std::string_view contentType,
                                 std::uint64_t maxBytes, String& unknownCharset) {
  std::string_view bytes = body.view();
  const char* converterName = nullptr;
  std::size_t unit = 1;
  const Mark* const mark =
      std::find_if(std::begin(kMarks), std::end(kMarks),
                   [bytes](const Mark& known) { return bytes.starts_with(known.bytes); });
  if (mark != std::end(kMarks)) {
    converterName = mark->converter;
    unit = mark->unit;
    if (!mark->isPartOfText) bytes.remove_prefix(mark->bytes.size());
  } else {
    std::string name = ValueOf(contentType, "CHARSET");
    if (name.empty() || IsWideCharset(name)) name = DeclaredCharset(bytes);
    if (!name.empty() && !IsWideCharset(name)) {
      const Charset* const charset = FindCharset(name);
      if (!charset) {
        unknownCharset = BaseStringUtil::FromUTF8(std::string_view(name).substr(0, 40));
        return CharsetResult::kUnknownCharset;
      }
      converterName = charset->converter;
    }
  }
  if (!converterName) return CheckUTF8Length(bytes, maxBytes);
  Converter converter(converterName);
  if (!converter.IsKnown()) {  // iconv's module for it is not installed
    unknownCharset = BaseStringUtil::FromUTF8(converterName);
    return CharsetResult::kUnknownCharset;
  }
  NarrowString text;
  if (!converter.Convert(bytes, unit, maxBytes, text)) return CharsetResult::kTooLong;
  body = std::move(text);
  return CharsetResult::kReady;
}
