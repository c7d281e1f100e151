#include "diff/Document.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string_view>

#include "base/Descriptor.h"
#include "base/Interrupt.h"
#include "base/Text.h"
#include "call/UsageError.h"

namespace {

using Json = nlohmann::json;

constexpr const char* kUTF16 = "it is UTF-16";
constexpr const char* kWriteAgain =
    "; write it again with this version of xmla-import and --format json";

std::string ReadAll(const std::string& name, const std::string& shown) {
  const bool isStandardInput = name == "-";
  Descriptor file(isStandardInput ? dup(STDIN_FILENO) : open(name.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.IsOpen()) throw UsageError(shown + " cannot be read: " + std::strerror(errno));
  std::string text;
  std::string block(std::size_t{1} << 16, '\0');
  for (;;) {
    const ssize_t count = read(file.Number(), block.data(), block.size());
    if (Interrupt::Happened()) throw UsageError("interrupted while " + shown + " was read");
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw UsageError(shown + " cannot be read: " + std::strerror(errno));
    if (count == 0) return text;
    text.append(block, 0, static_cast<std::size_t>(count));
  }
}

/// Why the document is not JSON: a usual cause, else the parser's text without the name of its
/// exception.
std::string Reason(const std::string& document, const Json::parse_error& error) {
  constexpr const char* kWhiteSpace = " \t\r\n";
  if (document.find_first_not_of(kWhiteSpace) == document.npos) return "it is empty";
  const std::size_t lineEnd = std::min(document.find('\n'), document.size());
  const std::size_t next = document.find_first_not_of(kWhiteSpace, lineEnd);
  if (next != document.npos && document[0] == '{' && document[next] == '{' &&
      Json::accept(document.substr(0, lineEnd)))
    return "it is ndjson";
  if (error.byte > document.size())
    return "it was cut off in line " + std::to_string(1 + std::ranges::count(document, '\n'));
  const std::string_view text = error.what();
  const std::size_t end = text.find("] ");
  return OneLine(end == text.npos ? text : text.substr(end + 2));
}

struct FileBeginning {
  std::string_view bytes;
  const char* meaning;
};
constexpr FileBeginning kOtherFiles[] = {
    {"kind,", "it is csv"},
    {"# ", "it is markdown"},
    {"PK\x03\x04", "it is xlsx, or another zip file"},
    {"<!doctype html", "it is html"},
    {"<!DOCTYPE html", "it is html"},
    {"<html", "it is html"},
    {"<", "it is XML"},
    {"\xFE\xFF", kUTF16},
    {"\xFF\xFE", kUTF16},
    {{"{\0", 2}, kUTF16},  // without a byte-order mark
    {{"\0{", 2}, kUTF16},
};

/// What a file that does not begin like JSON is, by its first bytes behind blanks; null: unknown.
const char* OtherFile(std::string_view document) {
  document.remove_prefix(std::min(document.find_first_not_of(" \t\r\n"), document.size()));
  for (const auto& [bytes, meaning] : kOtherFiles)
    if (document.starts_with(bytes)) return meaning;
  return nullptr;
}

const Json* Member(const Json& record, std::string_view path) {
  const Json* value = &record;
  while (!path.empty()) {
    const std::string_view key = path.substr(0, path.find('.'));
    if (!value->is_object()) return nullptr;
    const auto found = value->find(key);
    if (found == value->end()) return nullptr;
    value = &*found;
    path.remove_prefix(std::min(key.size() + 1, path.size()));
  }
  return value;
}

/// Checks that a document has the members that a comparison needs.
class Checker {
 public:
  explicit Checker(const std::string& shown) : m_shown(shown) {}

  void Check(const Json& record, const RecordRule& rule, const std::string& place) const {
    if (rule.isMessage) {
      if (!record.is_string()) Fail(place + " is not a text");
      return;
    }
    if (!record.is_object()) Fail(place + " is not an object");
    for (const std::string_view name : rule.names)
      if (!Need(record, name, place).is_string())
        Fail(place + '.' + std::string(name) + " is not a text");
    for (const FieldRule& field : rule.fields)
      if (!field.key.starts_with("provider.") || record.contains("provider"))
        CheckField(record, field, place);
    for (const ListRule& list : rule.lists) {
      const Json& items = Need(record, list.key, place);
      const std::string name = Join(place, list.key);
      if (!items.is_array()) Fail(name + " is not a list");
      for (std::size_t i = 0; i < items.size(); ++i)
        Check(items[i], *list.record, name + '[' + std::to_string(i) + ']');
    }
  }

  const Json& Need(const Json& record, std::string_view key, const std::string& place) const {
    if (const Json* const found = Member(record, key)) return *found;
    Fail((place.empty() ? "it" : place) + " has no " + Listed({std::string(key)}) +
         ", so another version of xmla-import wrote it");
  }

 private:
  void CheckField(const Json& record, const FieldRule& field, const std::string& place) const {
    const Json& value = Need(record, field.key, place);
    const bool isTexts = value.is_array() && std::ranges::all_of(value, [](const Json& each) {
                           return each.is_string();
                         });
    if (!value.is_primitive() && !isTexts)
      Fail(Join(place, field.key) + " is neither a value nor a list of texts");
  }

  static std::string Join(const std::string& place, std::string_view key) {
    return place.empty() ? std::string(key) : place + '.' + std::string(key);
  }

  [[noreturn]] void Fail(const std::string& reason) const {
    throw UsageError(m_shown + " cannot be compared: " + reason + kWriteAgain);
  }

  const std::string& m_shown;
};

}  // namespace

const char* KindName(Document::Kind kind) {
  switch (kind) {
    case Document::Kind::kCube:
      return "cube";
    case Document::Kind::kTree:
      return "tree";
    default:
      return "import";
  }
}

Document ParseDocument(const std::string& text, const std::string& name, const std::string& shown) {
  Json json;
  try {
    json = Json::parse(text);
  } catch (const Json::parse_error& error) {
    const char* const other = OtherFile(text);
    throw UsageError(
        shown + " is not a JSON document: " + (other ? other : Reason(text, error)) +
        (other == kUTF16
             ? "; save it as UTF-8"
             : "; give a document that xmla-import import, cube or tree wrote with --format json"));
  }
  Document document{.name = name, .shown = shown, .content = nullptr};
  const auto has = [&json](const char* key) { return json.is_object() && json.contains(key); };
  if (has("dataSources")) {
    document.kind = Document::Kind::kTree;
  } else if (has("hierarchies")) {
    document.kind = Document::Kind::kCube;
    json = Json{
        {"cubes", Json::array({json})}, {"errors", Json::array()}, {"warnings", Json::array()}};
  } else if (!has("cubes")) {
    throw UsageError(
        shown +
        " is not a document of import, cube or tree; give one that was written with --format json");
  }
  const Checker checker(shown);
  checker.Check(json, document.Rule(), "");
  if (document.kind == Document::Kind::kImport) checker.Need(json, "provider", "");
  document.content = std::make_shared<const Json>(std::move(json));
  return document;
}

Document ReadDocument(const std::string& name) {
  const bool isStandardInput = name == "-";
  const std::string shown = isStandardInput ? "standard input" : Listed({name});
  return ParseDocument(ReadAll(name, shown), isStandardInput ? shown : name, shown);
}
