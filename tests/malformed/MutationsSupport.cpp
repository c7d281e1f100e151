#include "Mutations.h"

namespace malformed {
namespace {

std::string Joined(std::initializer_list<std::string_view> parts) {
  std::string text;
  for (const std::string_view part : parts) text += part;
  return text;
}

std::string_view Part(std::string_view text, std::size_t from, std::size_t to) {
  return text.substr(from, to - from);
}
std::string_view Open(std::string_view text, const Element& e) {
  return Part(text, e.begin, e.openEnd);
}
std::string_view Close(std::string_view text, const Element& e) {
  return Part(text, e.closeBegin, e.end);
}
std::string_view Whole(std::string_view text, const Element& e) {
  return Part(text, e.begin, e.end);
}

std::string Drop(std::string_view text, const Element& e, const Element*) {
  return Joined({text.substr(0, e.begin), text.substr(e.end)});
}
std::string DropOpening(std::string_view text, const Element& e, const Element*) {
  return Joined({text.substr(0, e.begin), text.substr(e.openEnd)});
}
std::string DropClosing(std::string_view text, const Element& e, const Element*) {
  return e.closeBegin == e.end ? std::string()
                               : Joined({text.substr(0, e.closeBegin), text.substr(e.end)});
}
std::string Double(std::string_view text, const Element& e, const Element*) {
  return Joined({text.substr(0, e.end), text.substr(e.begin)});
}
std::string DoubleOpening(std::string_view text, const Element& e, const Element*) {
  return Joined({text.substr(0, e.openEnd), text.substr(e.begin)});
}
std::string DoubleClosing(std::string_view text, const Element& e, const Element*) {
  return e.closeBegin == e.end ? std::string()
                               : Joined({text.substr(0, e.end), text.substr(e.closeBegin)});
}
std::string SwapTags(std::string_view text, const Element& e, const Element*) {
  if (e.closeBegin == e.end) return {};
  return Joined({text.substr(0, e.begin), Close(text, e), Part(text, e.openEnd, e.closeBegin),
                 Open(text, e), text.substr(e.end)});
}
std::string SwapWithNext(std::string_view text, const Element& e, const Element* next) {
  if (!next) return {};
  return Joined({text.substr(0, e.begin), Whole(text, *next), Part(text, e.end, next->begin),
                 Whole(text, e), text.substr(next->end)});
}
std::string NestInItself(std::string_view text, const Element& e, const Element*) {
  if (e.closeBegin == e.end) return {};
  return Joined({text.substr(0, e.openEnd), Whole(text, e), text.substr(e.openEnd)});
}
std::string NestNext(std::string_view text, const Element& e, const Element* next) {
  if (!next || e.closeBegin == e.end) return {};
  return Joined({text.substr(0, e.closeBegin), Whole(text, *next), Close(text, e),
                 Part(text, e.end, next->begin), text.substr(next->end)});
}
/// Swapping would overlap.
std::string NestHalfOfNext(std::string_view text, const Element& e, const Element* next) {
  if (!next || e.closeBegin == e.end) return {};
  return Joined({text.substr(0, e.closeBegin), Open(text, *next), Close(text, e),
                 Part(text, e.end, next->begin), text.substr(next->openEnd)});
}

struct Skipped {
  std::string_view open;
  std::string_view close;
};
constexpr Skipped kSkipped[] = {{"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}};

/// The end of a comment, CDATA section or instruction at the position, or the position itself.
std::size_t SkipNoTag(std::string_view text, std::size_t position) {
  for (const Skipped& skipped : kSkipped)
    if (text.substr(position).starts_with(skipped.open))
      return text.find(skipped.close, position) + skipped.close.size();
  return position;
}

/// Position after the tag, whose quoted values may contain anything.
std::size_t TagEnd(std::string_view text, std::size_t position) {
  char quote = 0;
  for (; position < text.size(); ++position) {
    const char c = text[position];
    if (quote)
      quote = c == quote ? '\0' : quote;
    else if (c == '"' || c == '\'')
      quote = c;
    else if (c == '>')
      return position + 1;
  }
  return position;
}

}  // namespace

std::vector<Element> Elements(std::string_view text) {
  std::vector<Element> elements;
  std::vector<std::size_t> open;
  for (std::size_t at = text.find('<'); at != text.npos; at = text.find('<', at)) {
    if (const std::size_t behind = SkipNoTag(text, at); behind != at) {
      at = behind;
      continue;
    }
    const std::size_t end = TagEnd(text, at);
    if (text.substr(at).starts_with("</")) {
      if (open.empty()) break;
      elements[open.back()].closeBegin = at;
      elements[open.back()].end = end;
      open.pop_back();
    } else {
      const bool isEmpty = text[end - 2] == '/';
      elements.push_back({at, end, end, end, open.empty() ? elements.size() : open.back()});
      if (!isEmpty) open.push_back(elements.size() - 1);
    }
    at = end;
  }
  return elements;
}

const std::vector<Mutation>& Mutations() {
  static const std::vector<Mutation> mutations = {
      {"dropped", &Drop},
      {"without its opening tag", &DropOpening},
      {"without its closing tag", &DropClosing},
      {"doubled", &Double},
      {"with its opening tag doubled", &DoubleOpening},
      {"with its closing tag doubled", &DoubleClosing},
      {"with its tags swapped", &SwapTags},
      {"swapped with the next", &SwapWithNext},
      {"nested in itself", &NestInItself},
      {"with the next nested in it", &NestNext},
      {"overlapping with the next", &NestHalfOfNext},
  };
  return mutations;
}

const Element* NextSibling(const std::vector<Element>& elements, std::size_t index) {
  for (std::size_t i = index + 1; i < elements.size(); ++i) {
    if (elements[i].begin < elements[index].end) continue;
    return elements[i].parent == elements[index].parent ? &elements[i] : nullptr;
  }
  return nullptr;
}

}  // namespace malformed
