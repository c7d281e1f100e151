#pragma once

#include <functional>

#include "Utility/Generic/Heap.h"
#include "Utility/Generic/SAX2XmlReadDriver.h"
#include "Utility/Generic/String.h"
#include "Utility/Generic/VXThread.h"

class SoapFault;

/// Reads replies, one at a time. A parser thread parses the text, and the calling thread gets its
/// elements. Use from one thread at a time.
class ReplyReader {
 public:
  ReplyReader();
  ~ReplyReader() { Stop(); }
  ReplyReader(const ReplyReader&) = delete;
  ReplyReader& operator=(const ReplyReader&) = delete;

  /// Starts the parser thread on a text. Stops an earlier one before.
  void Start(const String& text);
  void Start(const NarrowString& text);
  /// Cancels the parser thread and waits for it, if there is one.
  void Stop();
  /// The next element, or an empty handle at the end. Throws ErrorMessage after a parse error or a
  /// cancellation.
  RefCnt<SAX2XmlElement> Next();

  /// Reads a whole reply. `consume` calls Next, and all elements are checked for a fault. Throws
  /// ErrorMessage for a fault, a parse error, a cancelled parse and `httpError`. The caller must
  /// then drop what `consume` has read.
  void Read(NarrowString reply, const String& httpError, const std::function<void()>& consume);

 private:
  template <class Text>
  void StartThread(const Text& text, bool (SAX2XmlReadDriver::*parse)(Text, String&));

  Heap<SAX2XmlReadDriver> m_driver;
  RefCnt<VXThread> m_thread;
  String m_parseError;           // set by the parser thread before the element with HasError
  SoapFault* m_fault = nullptr;  // of the current reply
};

/// Normalises the XML declaration of a received reply. The text is already decoded, so the
/// declaration has no encoding. `prepends`: see ProviderRules::prependsDeclaration.
void NormaliseDeclaration(NarrowString& reply, bool prepends);
