#pragma once

/// \file
/// The reader of XML documents.

#include <cstdint>

#include "Utility/Generic/Heap.h"
#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/RefCnt.h"
#include "Utility/Generic/String.h"

/// One parsed element, or the end of a parse by an error or a cancellation. An element does not
/// change while a handle to it exists. Only the reading thread may use it until its next call of
/// the driver; then any thread may.
class XMLAHOST_API SAX2XmlElement : public RefCountable {
 public:
  /// What the object stands for.
  enum class Kind : unsigned char { kElement, kError, kCancelled };

  /// Creates an element without name, value and attributes.
  explicit SAX2XmlElement(Kind kind) : m_kind(kind) {}

  /// The element's name without prefix. Elements with the same name share its text.
  const String& GetLocalName() const noexcept { return *m_name; }
  /// The element's own character data, without that of its children. CDATA sections and references
  /// are resolved. White space between children is not part of the value; an element without
  /// children keeps its white space. Decoded on the first call. Throws std::bad_alloc.
  const String& GetValue() const {
    if (m_byteCount != 0) Decode();
    return m_value;
  }
  /// Number of enclosing elements: 0 for the root, 1 for its children.
  std::size_t GetDepth() const noexcept { return m_depth; }
  /// True if the parse failed. The `error` argument of the parse has the text.
  bool HasError() const noexcept { return m_kind == Kind::kError; }
  /// True if the parse was cancelled.
  bool IsCancel() const noexcept { return m_kind == Kind::kCancelled; }

 private:
  friend class SAX2ElementReader;
  /// The last decoded value of the elements with one name in the current block.
  struct LastDecoded {
    const char* bytes = nullptr;
    std::size_t byteCount = 0;
    String text;
  };

  /// Refers to an element of the reader's current block. `last` belongs to the element's name.
  void Refer(const String& name, std::uint16_t depth, const char* bytes, std::size_t byteCount,
             LastDecoded& last) noexcept;
  void Decode() const;
  /// Copies the texts, so that the block can be freed.
  void Detach();
  /// Makes the element empty.
  void Clear() noexcept;

  const String* m_name = &m_localName;  // m_localName, or a name in the reader's block
  String m_localName;
  mutable String m_value;
  const char* m_bytes = nullptr;        // the value in the reader's block
  mutable std::size_t m_byteCount = 0;  // 0 after decoding
  LastDecoded* m_last = nullptr;
  Kind m_kind;
  std::uint16_t m_depth = 0;
};

/// A SAX2 reader: one thread parses, and another reads the elements. Elements are delivered at
/// their end tag, children first. The attributes ErrorCode and Description of an element named
/// Error are delivered like children before its other children, because XMLA puts the code and
/// description of a failure there. Other attributes are not delivered. The queue between the
/// threads is bounded: the parser waits when the reader is behind, and wakes at once on
/// cancellation.
///
/// Order of calls: Announce, then a parse on any thread, while the consumer calls Read. A parse
/// without Announce announces itself. One parse at a time. A driver may parse any number of
/// documents one after the other, and no state remains between them.
///
/// Accepts XML 1.0 without a document type declaration. Skips a byte-order mark, white space and a
/// second XML declaration before the document, and ignores null characters and white space after
/// it. The text is already decoded, so an encoding in the declaration has no effect.
///
/// Limits: 250 nested elements, 8 Mi characters of text in an element, 64 KiB in a tag, 100,000
/// different names, 1,000 namespaces in scope.
class XMLAHOST_API SAX2XmlReadDriver : public RefCountable {
 public:
  ~SAX2XmlReadDriver() override;

  /// Parses a UTF-8 file; otherwise like ParseInMem.
  virtual bool ParseFile(String fileName, String& error) = 0;
  /// Parses the text and delivers its elements. Returns true if the document is well-formed and was
  /// read to its end. On failure, sets `error` to the message, line and column, and then delivers
  /// an element whose HasError is true. On cancellation, delivers an element whose IsCancel is
  /// true. Throws nothing; exhausted memory is an error text.
  virtual bool ParseInMem(String text, String& error) = 0;
  /// Returns the next element. Waits while a parse is announced or running. Returns an empty handle
  /// at the end of the document, after an error or cancelled element, and if no parse was
  /// announced. If the VXExecutionState of the calling thread is cancelled, cancels the parse and
  /// returns a cancelled element.
  virtual RefCnt<SAX2XmlElement> Read() = 0;
  /// Cancels the announced or running parse at once; call from any thread. Elements that are not
  /// read yet are dropped, and a cancelled element follows. Does nothing without such a parse.
  virtual void Cancel() = 0;
  /// Like ParseInMem, for UTF-8. Each maximal subpart of an ill-formed sequence becomes one U+FFFD.
  virtual bool ParseBytesInMem(NarrowString bytes, String& error) = 0;

  /// Announces a parse on another thread: Read waits for it from now on.
  virtual void Announce() = 0;
};

/// Creates readers of XML.
class XMLAHOST_API SAX2XmlReadDriverFactory {
 public:
  /// The only kind of reader: parses in a worker thread.
  static constexpr int kThreadedReader = 1;
  /// Creates a driver. Any other kind is a logic error.
  static Heap<SAX2XmlReadDriver> CreateSAX2XmlReadDriver(int kind);
};
