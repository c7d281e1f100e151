#include "base/Text.h"

#include <algorithm>

#include "Utility/Generic/BaseStringUtil.h"

std::string Utf8(const String& text) {
  const NarrowString bytes = BaseStringUtil::StringToStdString(text, BaseStringUtil::kCodePageUTF8);
  return std::string(bytes.view());
}

String Wide(std::string_view bytes) {
  return BaseStringUtil::StdStringToString(NarrowString(bytes), BaseStringUtil::kCodePageUTF8);
}

std::vector<std::string> Lines(const String& text) {
  const std::string bytes = Utf8(text);
  std::vector<std::string> lines;
  for (std::size_t begin = 0; begin < bytes.size();) {
    const std::size_t end = std::min(bytes.find('\n', begin), bytes.size());
    if (end > begin) lines.push_back(bytes.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

std::string OneLine(std::string_view text) {
  std::string line(text);
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
  std::replace_if(line.begin(), line.end(), isControl, ' ');
  return line;
}

std::string WithoutCredentials(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t length = text.find(' ');  // of a word
    const std::string_view word = text.substr(0, length);
    const std::size_t scheme = word.find("://");
    const std::size_t last = word.rfind('@');
    const bool hasThem = scheme != word.npos && last != word.npos && last > scheme;
    result += hasThem ? word.substr(0, scheme + 3) : word;
    if (hasThem) result += word.substr(last + 1);
    text.remove_prefix(word.size());
    const std::size_t blanks = std::min(text.find_first_not_of(' '), text.size());
    result.append(blanks, ' ');
    text.remove_prefix(blanks);
  }
  return result;
}

String Shortened(const String& text) {
  constexpr std::size_t kMax = 1000;
  if (text.size() <= kMax) return text;
  return text.substr(0, kMax) + L"... (" +
         BaseStringUtil::StringFrom(std::uint64_t{text.size() - kMax}) + L" more characters)";
}

std::vector<std::string> Lines(const ErrorMessage& error) {
  String text;
  error.RetrieveErrorMessages(text);
  return Lines(text);
}

std::string Listed(const std::vector<std::string>& items) {
  std::string list;
  for (const std::string& item : items) {
    if (!list.empty()) list += ", ";
    list += '"' + OneLine(item) + '"';
  }
  return list;
}

std::string Counted(std::size_t count, std::string_view one, std::string_view many) {
  return std::to_string(count) + ' ' + std::string(count == 1 ? one : many);
}
