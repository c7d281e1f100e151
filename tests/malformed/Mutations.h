#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace malformed {

/// The position of an element in a text.
struct Element {
  std::size_t begin = 0;       ///< of the opening tag
  std::size_t openEnd = 0;     ///< after the opening tag
  std::size_t closeBegin = 0;  ///< of the closing tag; `end` if there is none
  std::size_t end = 0;
  std::size_t parent = 0;  ///< index of the parent; the root is its own parent
};

/// The elements of a well-formed text in document order.
std::vector<Element> Elements(std::string_view text);

/// One way to change an element.
struct Mutation {
  const char* name;
  /// Returns the changed text; empty if the change does not apply to this element. `next` is the
  /// following sibling, or null.
  std::string (*apply)(std::string_view text, const Element& element, const Element* next);
};
const std::vector<Mutation>& Mutations();

/// The following sibling of the element, or null.
const Element* NextSibling(const std::vector<Element>& elements, std::size_t index);

}  // namespace malformed
