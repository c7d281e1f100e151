#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace malformed {

/// Where an element stands in a text.
struct Element {
  std::size_t begin = 0;       ///< of its opening tag
  std::size_t openEnd = 0;     ///< behind its opening tag
  std::size_t closeBegin = 0;  ///< of its closing tag; `end` for an element that has none
  std::size_t end = 0;
  std::size_t parent = 0;  ///< index; its own for the root
};

/// The elements of a well-formed text, in the order of their beginnings.
std::vector<Element> Elements(std::string_view text);

/// What can be done to an element.
struct Mutation {
  const char* name;
  /// The changed text; empty when it makes no sense for this element. `next` is the sibling behind
  /// it, or null.
  std::string (*apply)(std::string_view text, const Element& element, const Element* next);
};
const std::vector<Mutation>& Mutations();

/// The sibling behind the element, or null.
const Element* NextSibling(const std::vector<Element>& elements, std::size_t index);

}  // namespace malformed
