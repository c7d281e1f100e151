#pragma once

/// \file
/// The text types of the host.

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstring>
#include <functional>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Utility/Generic/MemAlloc.h"

/// Text with a shared buffer: copying increments an atomic count, and changing one copy never
/// changes another. A null character, which is not part of the text, terminates the buffer. The
/// text may contain null characters. An empty text has no buffer.
///
/// Compares with std::wstring (or std::string), their views and literals. Construct it from one
/// with BasicString(text), and make one with std::wstring(text.view()). BaseStringUtil::ToUTF8 and
/// FromUTF8 convert between String and UTF-8.
///
/// Threads: different threads may use different objects, even if these share a buffer. An object
/// must not be changed while another thread uses it. Errors: throws std::bad_alloc, or
/// std::length_error for a text that exceeds the address space. The object then keeps its text.
template <class Char>
class BasicString {
 public:
  /// As in std::basic_string.
  /// @{
  using value_type = Char;
  using View = std::basic_string_view<Char>;
  static constexpr std::size_t npos = View::npos;

  BasicString() noexcept = default;
  BasicString(const Char* text) : BasicString(View(text)) {}  // NOLINT: text converts freely
  BasicString(const Char* text, std::size_t length) : BasicString(View(text, length)) {}
  explicit BasicString(View text) { append(text); }
  BasicString(std::size_t count, Char character) {
    if (count == 0) return;
    Reallocate(count);
    std::char_traits<Char>::assign(m_buffer->Text(), count, character);
    SetLength(count);
  }
  BasicString(const BasicString& other) noexcept : m_buffer(other.m_buffer) { Share(); }
  BasicString(BasicString&& other) noexcept : m_buffer(other.m_buffer) { other.m_buffer = nullptr; }
  ~BasicString() { Release(m_buffer); }

  BasicString& operator=(const BasicString& other) noexcept {
    Buffer* const old = m_buffer;
    m_buffer = other.m_buffer;
    Share();
    Release(old);
    return *this;
  }
  BasicString& operator=(BasicString&& other) noexcept {
    std::swap(m_buffer, other.m_buffer);
    return *this;
  }

  const Char* c_str() const noexcept { return m_buffer ? m_buffer->Text() : EmptyText(); }
  const Char* data() const noexcept { return c_str(); }
  /// Number of Unicode characters of a wide text, or bytes of a narrow one.
  std::size_t size() const noexcept { return m_buffer ? m_buffer->length : 0; }
  std::size_t length() const noexcept { return size(); }
  bool empty() const noexcept { return size() == 0; }
  /// A view that is valid until this object is changed or destroyed.
  View view() const noexcept { return View(c_str(), size()); }
  operator View() const noexcept { return view(); }  // NOLINT: a text is readable as a view
  /// Requires index < size().
  Char operator[](std::size_t index) const noexcept { return c_str()[index]; }
  const Char* begin() const noexcept { return c_str(); }
  const Char* end() const noexcept { return c_str() + size(); }

  void clear() noexcept {
    Release(m_buffer);
    m_buffer = nullptr;
  }
  /// Clears the text. Overwrites its characters before, unless another text shares them.
  void Erase() noexcept {
    if (IsUnique()) {
      volatile Char* const text = m_buffer->Text();  // volatile: not optimised away
      for (std::size_t i = 0; i < m_buffer->capacity; ++i) text[i] = Char();
    }
    clear();
  }
  /// Reserves memory for `capacity` characters.
  void reserve(std::size_t capacity) {
    if (capacity > size() && (!IsUnique() || capacity > m_buffer->capacity)) Reallocate(capacity);
  }
  /// Appends text, which may be part of this object.
  BasicString& append(View text) {
    if (text.empty()) return *this;
    const std::size_t old = size();
    if (text.size() > MaxLength() - old) throw std::length_error("text too long");
    const std::size_t length = old + text.size();
    if (IsUnique() && length <= m_buffer->capacity) {
      std::char_traits<Char>::move(m_buffer->Text() + old, text.data(), text.size());
    } else {
      const BasicString keep(*this);  // `text` may be part of the old buffer
      Reallocate(old == 0 ? length : Grown(length));
      std::char_traits<Char>::copy(m_buffer->Text() + old, text.data(), text.size());
    }
    SetLength(length);
    return *this;
  }
  BasicString& append(const Char* text, std::size_t length) { return append(View(text, length)); }
  /// Appends characters that `fill(Char* place)` writes: at most `most`. `fill` returns their
  /// number and must not throw. For producers that know the maximum in advance.
  template <class Fill>
  BasicString& AppendFilled(std::size_t most, Fill&& fill) {
    const std::size_t old = size();
    if (most > MaxLength() - old) throw std::length_error("text too long");
    if (most == 0) return *this;
    if (!IsUnique() || old + most > m_buffer->capacity)
      Reallocate(old == 0 ? most : Grown(old + most));
    SetLength(old + fill(m_buffer->Text() + old));
    return *this;
  }
  /// Replaces the first `count` characters by `text`, without allocation if the buffer has room.
  /// Requires count <= size(). `text` must not be part of this object.
  BasicString& ReplaceFront(std::size_t count, View text) {
    const std::size_t rest = size() - count;
    if (text.size() > MaxLength() - rest) throw std::length_error("text too long");
    const std::size_t length = text.size() + rest;
    if (!IsUnique() || length > m_buffer->capacity) {
      BasicString result;
      result.reserve(length);
      result.append(text);
      result.append(view().substr(count));
      return *this = std::move(result);
    }
    std::char_traits<Char>::move(m_buffer->Text() + text.size(), m_buffer->Text() + count, rest);
    std::char_traits<Char>::copy(m_buffer->Text(), text.data(), text.size());
    SetLength(length);
    return *this;
  }
  BasicString& operator+=(const BasicString& text) {
    if (empty()) return *this = text;
    return append(text.view());
  }
  BasicString& operator+=(const Char* text) { return append(View(text)); }
  BasicString& operator+=(Char character) { return append(View(&character, 1)); }
  void push_back(Char character) { append(View(&character, 1)); }

  /// At most `count` characters from `position` on; empty if `position` is past the end. If the
  /// result is the whole text, it shares the buffer.
  BasicString substr(std::size_t position, std::size_t count = npos) const {
    if (position >= size()) return BasicString();
    if (position == 0 && count >= size()) return *this;
    return BasicString(view().substr(position, count));
  }
  std::size_t find(View pattern, std::size_t from = 0) const noexcept {
    return view().find(pattern, from);
  }
  /// Compares by character codes. Returns a negative number, zero or a positive number.
  int compare(const BasicString& other) const noexcept {
    return m_buffer == other.m_buffer ? 0 : view().compare(other.view());
  }
  /// True if the other text has the same buffer. Two empty texts have none.
  bool SharesBufferWith(const BasicString& other) const noexcept {
    return m_buffer != nullptr && m_buffer == other.m_buffer;
  }

  friend bool operator==(const BasicString& a, const BasicString& b) noexcept {
    return a.m_buffer == b.m_buffer || a.view() == b.view();
  }
  friend bool operator==(const BasicString& a, const Char* b) noexcept {
    return a.view() == View(b);
  }
  friend bool operator==(const BasicString& a, View b) noexcept { return a.view() == b; }
  friend std::strong_ordering operator<=>(const BasicString& a, const BasicString& b) noexcept {
    return a.compare(b) <=> 0;
  }
  friend std::strong_ordering operator<=>(const BasicString& a, View b) noexcept {
    return a.view().compare(b) <=> 0;
  }
  friend BasicString operator+(const BasicString& a, const BasicString& b) {
    return Joined(a.view(), b.view());
  }
  friend BasicString operator+(const BasicString& a, const Char* b) {
    return Joined(a.view(), View(b));
  }
  friend BasicString operator+(const Char* a, const BasicString& b) {
    return Joined(View(a), b.view());
  }
  /// @}

 private:
  struct Buffer {
    std::atomic<std::size_t> count;
    std::size_t length;
    std::size_t capacity;
    Char* Text() noexcept { return reinterpret_cast<Char*>(this + 1); }
  };

  static const Char* EmptyText() noexcept {
    static constexpr Char kEmpty[1] = {};
    return kEmpty;
  }
  static constexpr std::size_t MaxLength() {
    return (std::numeric_limits<std::ptrdiff_t>::max() - sizeof(Buffer)) / sizeof(Char) - 1;
  }
  static BasicString Joined(View a, View b) {
    BasicString result;
    result.reserve(a.size() + b.size());
    result.append(a);
    result.append(b);
    return result;
  }
  static void Release(Buffer* buffer) noexcept {
    if (buffer && buffer->count.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      buffer->~Buffer();
      MemAlloc::Free(buffer);
    }
  }
  void Share() noexcept {
    if (m_buffer) m_buffer->count.fetch_add(1, std::memory_order_relaxed);
  }
  bool IsUnique() const noexcept {
    return m_buffer && m_buffer->count.load(std::memory_order_acquire) == 1;
  }
  std::size_t Grown(std::size_t length) const noexcept {
    const std::size_t doubled = size() <= MaxLength() / 2 ? 2 * size() : MaxLength();
    return doubled > length ? doubled : length;
  }
  /// Moves the text to a new buffer. Requires capacity >= size().
  void Reallocate(std::size_t capacity) {
    if (capacity > MaxLength()) throw std::length_error("text too long");
    void* const block = MemAlloc::Allocate(sizeof(Buffer) + (capacity + 1) * sizeof(Char));
    Buffer* const buffer = new (block) Buffer{{1}, size(), capacity};
    std::char_traits<Char>::copy(buffer->Text(), c_str(), size() + 1);
    Release(m_buffer);
    m_buffer = buffer;
  }
  void SetLength(std::size_t length) noexcept {
    m_buffer->length = length;
    m_buffer->Text()[length] = Char();
  }

  Buffer* m_buffer = nullptr;
};

/// The host's text: each Unicode character is one wide character of four bytes.
using String = BasicString<wchar_t>;
/// UTF-8 bytes, used for HTTP, XML and the log.
using NarrowString = BasicString<char>;

/// @cond
// Equal texts have equal hashes, also as std::wstring or std::string.
template <class Char>
struct std::hash<BasicString<Char>> {
  std::size_t operator()(const BasicString<Char>& text) const noexcept {
    return std::hash<std::basic_string_view<Char>>()(text.view());
  }
};
/// @endcond

static_assert(sizeof(wchar_t) == 4, "wide characters hold one Unicode character each");
