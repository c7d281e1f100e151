#include "Utility/Generic/SAX2XmlReadDriver.h"

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/VXAssert.h"
#include "system/ReadFile.h"
#include "text/UnicodeConversion.h"
#include "xml/SAX2ElementReader.h"
#include "xml/SAX2ElementWriter.h"
#include "xml/XmlParser.h"

namespace {

/// A reader whose parser runs in a worker thread.
class ThreadedReadDriver final : public SAX2XmlReadDriver {
 public:
  bool ParseFile(String fileName, String& error) override {
    return Parse(error, [&](SAX2ElementWriter& writer) {
      NarrowString bytes;
      if (!ReadFile(fileName, bytes, error)) return XmlOutcome::kFailed;
      return ParseBytes(bytes, writer, error);
    });
  }

  bool ParseInMem(String text, String& error) override {
    return Parse(error, [&](SAX2ElementWriter& writer) {
      const NarrowString bytes = BaseStringUtil::ToUTF8(text);
      text.clear();
      return ParseXmlText(bytes, writer, error);
    });
  }

  bool ParseBytesInMem(NarrowString bytes, String& error) override {
    return Parse(error,
                 [&](SAX2ElementWriter& writer) { return ParseBytes(bytes, writer, error); });
  }

  RefCnt<SAX2XmlElement> Read() override { return m_reader.Read(); }
  void Cancel() override { m_queue.Cancel(); }
  void Announce() override { m_queue.Announce(); }

 private:
  static XmlOutcome ParseBytes(NarrowString& bytes, SAX2ElementWriter& writer, String& error) {
    const bool isReady =
        UnicodeConversion::MakeWellFormed(bytes, [&] { return writer.IsStopped(); });
    return isReady ? ParseXmlText(bytes, writer, error) : XmlOutcome::kStopped;
  }

  template <class Work>
  bool Parse(String& error, Work work) noexcept {
    const SAX2ElementQueue::Generation parse = m_queue.Begin();
    if (parse == SAX2ElementQueue::kNone) return false;
    XmlOutcome outcome = XmlOutcome::kFailed;
    try {
      SAX2ElementWriter writer(m_queue, parse);
      outcome = work(writer);
      writer.Finish();
    } catch (...) {
      outcome = XmlOutcome::kFailed;
      error = m_outOfMemory;
    }
    return m_queue.End(parse, outcome == XmlOutcome::kFailed) && outcome == XmlOutcome::kWellFormed;
  }

  SAX2ElementQueue m_queue;
  SAX2ElementReader m_reader{m_queue};
  const String m_outOfMemory{L"not enough memory to read the document"};
};

}  // namespace

SAX2XmlReadDriver::~SAX2XmlReadDriver() = default;

Heap<SAX2XmlReadDriver> SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(int kind) {
  if (kind != kThreadedReader)
    VXAssert::handleLogicError(L"SAX2XmlReadDriver.cpp", __LINE__, L"unknown kind of XML reader");
  return std::make_unique<ThreadedReadDriver>();
}
