#include "ReplyCharset.h"

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "Cancellation.h"
#include "Utility/Generic/BaseStringUtil.h"

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

struct Mark {
  std::string_view bytes;
  const char* charset;
  bool isPartOfText;  // the bytes tell the charset but are the text's own
};

// The longer marks first: UTF-32's begins with UTF-16's.
constexpr Mark kMarks[] = {
    {{"\xEF\xBB\xBF", 3}, "UTF-8", true},     {{"\xFF\xFE\0\0", 4}, "UTF-32LE", false},
    {{"\0\0\xFE\xFF", 4}, "UTF-32BE", false}, {{"\xFF\xFE", 2}, "UTF-16LE", false},
    {{"\xFE\xFF", 2}, "UTF-16BE", false},     {{"<\0\0\0", 4}, "UTF-32LE", true},
    {{"\0\0\0<", 4}, "UTF-32BE", true},       {{"<\0", 2}, "UTF-16LE", true},
    {{"\0<", 2}, "UTF-16BE", true},
};

std::string Upper(std::string_view text) {
  std::string upper(text);
  for (char& character : upper)
    if (character >= 'a' && character <= 'z') character = static_cast<char>(character - 'a' + 'A');
  return upper;
}

/// The text behind `name` and an equals sign with blanks around it, without quotes.
std::string ValueOf(std::string_view text, std::string_view name) {
  const std::string upper = Upper(text);
  constexpr std::string_view kBlanks = " \t\r\n";
  for (std::size_t found = upper.find(name); found != std::string::npos;
       found = upper.find(name, found + 1)) {
    std::size_t position = upper.find_first_not_of(kBlanks, found + name.size());
    if (position == std::string::npos || upper[position] != '=') continue;
    position = upper.find_first_not_of(kBlanks, position + 1);
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
  constexpr std::string_view kBlanks = " \t\r\n";
  const std::size_t begin = body.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos || body.substr(begin, 5) != "<?xml") return {};
  const std::size_t end = body.find("?>", begin);
  if (end == std::string_view::npos || end - begin > 1000) return {};
  return ValueOf(body.substr(begin, end - begin), "ENCODING");
}

/// True for charsets whose characters take two bytes or more: a body without a byte-order mark and
/// without null bytes among its first is not in one of them, whatever it says. Some servers make
/// their text as UTF-16, declare it so, and send it as UTF-8.
bool IsWideCharset(std::string_view charset) {
  constexpr std::string_view kWide[] = {"UTF-16",  "UTF16",     "UTF-32",   "UTF32",
                                        "UCS-2",   "UCS2",      "UCS-4",    "UCS4",
                                        "UNICODE", "ISO-10646", "CSUNICODE"};
  return std::any_of(std::begin(kWide), std::end(kWide), [charset](std::string_view wide) {
    return charset.substr(0, wide.size()) == wide;
  });
}

bool IsUTF8Name(std::string_view charset) {
  constexpr std::string_view kNames[] = {"UTF-8", "UTF8", "US-ASCII", "ASCII", "ANSI_X3.4-1968"};
  return std::find(std::begin(kNames), std::end(kNames), charset) != std::end(kNames);
}

/// Only what a charset's name consists of reaches the system's converter, whose names may carry
/// options and paths.
bool IsCharsetName(std::string_view charset) {
  return charset.size() <= 40 &&
         charset.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_.:+") ==
             std::string_view::npos;
}

class Converter {
 public:
  explicit Converter(const std::string& charset) : m_handle(iconv_open("UTF-8", charset.c_str())) {}
  ~Converter() {
    if (IsKnown()) iconv_close(m_handle);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  bool IsKnown() const {
    return m_handle != reinterpret_cast<iconv_t>(-1);  // NOLINT: as iconv_open says it
  }

  /// `unit` is how many bytes are given up where one is wrong. Unfinished when the host asks the
  /// thread to stop.
  NarrowString Convert(std::string_view bytes, std::size_t unit) {
    NarrowString text;
    text.reserve(bytes.size() + bytes.size() / 4);
    char* position = const_cast<char*>(bytes.data());  // NOLINT: iconv does not write there
    std::size_t left = bytes.size();
    char buffer[16384];
    while (left > 0 && !IsThreadToStop()) {
      char* place = buffer;
      std::size_t room = sizeof buffer;
      const std::size_t result = iconv(m_handle, &position, &left, &place, &room);
      const int error = errno;
      text.append(buffer, static_cast<std::size_t>(place - buffer));
      if (result != static_cast<std::size_t>(-1) || error == E2BIG) continue;
      text.append(kReplacement);
      if (error == EINVAL) break;  // an unfinished character at the end
      position += std::min(unit, left);
      left -= std::min(unit, left);
    }
    return text;
  }

 private:
  iconv_t m_handle;
};

}  // namespace

bool MakeReplyUTF8(NarrowString& body, std::string_view contentType, String& unknownCharset) {
  std::string_view bytes = body.view();
  std::string charset;
  for (const Mark& mark : kMarks) {
    if (bytes.substr(0, mark.bytes.size()) != mark.bytes) continue;
    charset = mark.charset;
    if (!mark.isPartOfText) bytes.remove_prefix(mark.bytes.size());
    break;
  }
  if (charset.empty()) {
    charset = ValueOf(contentType, "CHARSET");
    if (charset.empty() || IsWideCharset(charset)) charset = DeclaredCharset(bytes);
    if (IsWideCharset(charset)) charset.clear();
  }
  if (charset.empty() || IsUTF8Name(charset)) return true;
  if (IsCharsetName(charset)) {
    Converter converter(charset);
    if (converter.IsKnown()) {
      const bool isUTF16 = charset.starts_with("UTF-16");
      const bool isUTF32 = charset.starts_with("UTF-32");
      body = converter.Convert(bytes, isUTF16 ? 2 : isUTF32 ? 4 : 1);
      return true;
    }
  }
  unknownCharset = BaseStringUtil::StdStringToString(
      NarrowString(std::string_view(charset).substr(0, 40)), BaseStringUtil::kCodePageUTF8);
  return false;
}
