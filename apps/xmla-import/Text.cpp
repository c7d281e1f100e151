#include "Text.h"

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

std::string WithoutCredentials(std::string text) {
  for (std::size_t at = text.find("://"); at != std::string::npos; at = text.find("://", at + 3)) {
    const std::size_t begin = at + 3;
    const std::size_t end = std::min(text.find(' ', begin), text.size());
    const std::size_t last = text.rfind('@', end);
    if (last != std::string::npos && last >= begin) text.erase(begin, last + 1 - begin);
  }
  return text;
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
