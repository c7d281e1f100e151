#pragma once

#include "Utility/Generic/Heap.h"
#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/RefCnt.h"
#include "Utility/Generic/String.h"

/// One parsed element as handed to the consumer, or the end of a parse by an error or by
/// cancellation. It never changes for its holder. The thread that reads has it to itself until its
/// next call of the driver; after that any thread may use it.
class XMLAHOST_API SAX2XmlElement : public RefCountable {
 public:
  enum class Kind : unsigned char { kElement, kError, kCancelled };

  explicit SAX2XmlElement(Kind kind) : m_kind(kind) {}

  /// The element's name without prefix. Elements of one name share its text.
  const String& GetLocalName() const noexcept { return *m_name; }
  /// The element's own character data, CDATA and references resolved, without that of its children.
  /// White space between children is no value; an element without children keeps its blanks. Made
  /// when it is first asked for. Throws std::bad_alloc.
  const String& GetValue() const {
    if (m_byteCount != 0) Decode();
    return m_value;
  }
  /// True when the parse failed; the text is in the error argument of the parse.
  bool HasError() const noexcept { return m_kind == Kind::kError; }
  /// True when the parse was cancelled.
  bool IsCancel() const noexcept { return m_kind == Kind::kCancelled; }

 private:
  friend class SAX2ElementReader;
  /// The value that was decoded last, of the elements of one name, in the reader's block.
  struct LastDecoded {
    const char* bytes = nullptr;
    std::size_t byteCount = 0;
    String text;
  };

  /// Shows an element of the reader's block. `last` belongs to the element's name.
  void Refer(const String& name, const char* bytes, std::size_t byteCount,
             LastDecoded& last) noexcept;
  void Decode() const;
  /// Takes copies of its texts, so that the block can go.
  void Detach();
  /// Shows nothing any more.
  void Clear() noexcept;

  const String* m_name = &m_localName;  // its own, or that in the reader's block
  String m_localName;
  mutable String m_value;
  const char* m_bytes = nullptr;        // the value in the reader's block ...
  mutable std::size_t m_byteCount = 0;  // ... until it is decoded
  LastDecoded* m_last = nullptr;
  Kind m_kind;
};

/// A SAX2 reader: one thread parses, another reads the elements. An element is delivered when it
/// ends, children first. The attributes of an element named Error, where XMLA puts the code and the
/// description of a failure, are delivered like children in front of it, ErrorCode first; other
/// attributes are not delivered. The hand-over is bounded: the parsing thread waits when the
/// consumer is behind, and wakes at once on cancellation.
///
/// Order of calls: Announce, then a parse on any thread while the consumer calls Read. A parse that
/// is not announced announces itself when it begins. One parse at a time; a driver may parse any
/// number of documents one after the other, and nothing is left over from one to the next.
///
/// Accepted: XML 1.0 without document type declaration; a byte-order mark, blanks and one further
/// XML declaration right after the first are skipped; null characters and blanks after the
/// document's end are ignored; the text is already decoded, an encoding in its declaration means
/// nothing. Limits: 250 elements deep, 8 Mi characters of text in an element; and, far beyond what
/// any server needs, 64 KiB in a tag, 100,000 different names, 1,000 namespaces at one place.
class XMLAHOST_API SAX2XmlReadDriver : public RefCountable {
 public:
  ~SAX2XmlReadDriver() override;

  /// Parses the UTF-8 file of that name; otherwise like ParseInMem.
  virtual bool ParseFile(String fileName, String& error) = 0;
  /// Parses the text and hands its elements over. True when the document was well-formed and read
  /// to its end. On failure `error` gets what is wrong with line and column (written before the
  /// error element is handed over) and the consumer an element whose HasError is true; on
  /// cancellation one whose IsCancel is true. Throws nothing: memory exhaustion is an error text.
  virtual bool ParseInMem(String text, String& error) = 0;
  /// The next element, waiting for one while a parse is announced or running; the empty handle when
  /// the document has been read to its end, after an error or cancelled element, and when no parse
  /// was announced. A cancelled element, too, when the calling thread's VXExecutionState is asked
  /// to stop.
  virtual RefCnt<SAX2XmlElement> Read() = 0;
  /// Stops the announced or running parse, from any thread, at once: elements not yet read are
  /// dropped and a cancelled element takes their place. Without such a parse it does nothing.
  virtual void Cancel() = 0;
  /// Like ParseInMem, for text in UTF-8. Each maximal subpart of an ill-formed sequence counts as
  /// one U+FFFD.
  virtual bool ParseBytesInMem(NarrowString bytes, String& error) = 0;

  /// Says that a parse is about to begin on another thread: Read waits for it from now on.
  virtual void Announce() = 0;
};

class XMLAHOST_API SAX2XmlReadDriverFactory {
 public:
  /// Kinds of reader; 1 is the one that reads from memory in a worker thread.
  static constexpr int kThreadedReader = 1;
  /// A new driver. A kind other than 1 is a logic error.
  static Heap<SAX2XmlReadDriver> CreateSAX2XmlReadDriver(int kind);
};
