#include "Utility/Generic/SAX2XmlReadDriver.h"

#include <mutex>

#include "ReadFile.h"
#include "SAX2ElementChannel.h"
#include "UnicodeConversion.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "XmlPushParser.h"

namespace {

/// The reader whose parse and whose elements' consumer are two threads.
class ThreadedReadDriver final : public SAX2XmlReadDriver {
 public:
  bool ParseFile(String fileName, String& error) override {
    return Parse(error, [&](SAX2ElementChannel::Ticket ticket) {
      NarrowString bytes;
      if (!ReadFile(fileName, bytes, error)) return XmlOutcome::kFailed;
      return ParseBytes(bytes, ticket, error);
    });
  }

  bool ParseInMem(String text, String& error) override {
    return Parse(error, [&](SAX2ElementChannel::Ticket ticket) {
      const NarrowString bytes =
          BaseStringUtil::StringToStdString(text, BaseStringUtil::kCodePageUTF8);
      text.clear();
      return ParseXmlText(bytes, m_store, Channel(), ticket, error);
    });
  }

  bool ParseBytesInMem(NarrowString bytes, String& error) override {
    return Parse(
        error, [&](SAX2ElementChannel::Ticket ticket) { return ParseBytes(bytes, ticket, error); });
  }

  RefCnt<SAX2XmlElement> Read() override { return Channel().Read(); }
  void Cancel() override { Channel().Cancel(); }

 private:
  XmlOutcome ParseBytes(NarrowString& bytes, SAX2ElementChannel::Ticket ticket, String& error) {
    const bool isReady =
        UnicodeConversion::MakeWellFormed(bytes, [&] { return Channel().IsStopped(ticket); });
    return isReady ? ParseXmlText(bytes, m_store, Channel(), ticket, error) : XmlOutcome::kStopped;
  }

  template <class Work>
  bool Parse(String& error, Work work) noexcept {
    const SAX2ElementChannel::Ticket ticket = Channel().Begin();
    if (ticket == 0) return false;
    // A parse that this one replaced has lost its ticket, but its thread may still be on its way
    // out.
    const std::lock_guard lock(m_parsing);
    Channel().TakeSpare();
    XmlOutcome outcome = XmlOutcome::kFailed;
    try {
      outcome = work(ticket);
      Channel().Close();
    } catch (...) {
      outcome = XmlOutcome::kFailed;
      error = m_outOfMemory;
    }
    return Channel().End(ticket, outcome == XmlOutcome::kFailed) &&
           outcome == XmlOutcome::kWellFormed;
  }

  std::mutex m_parsing;
  XmlParserStore m_store;
  const String m_outOfMemory{L"not enough memory to read the document"};
};

}  // namespace

SAX2XmlReadDriver::SAX2XmlReadDriver() : m_channel(std::make_unique<SAX2ElementChannel>()) {}
SAX2XmlReadDriver::~SAX2XmlReadDriver() = default;

RefCnt<SAX2XmlElement> SAX2XmlReadDriver::ReadAmong(std::span<const String::View> names) {
  return m_channel->Read(names);
}
void SAX2XmlReadDriver::Announce() { m_channel->Announce(); }
void SAX2XmlReadDriver::KeepElements() { m_channel->KeepNext(); }
bool SAX2XmlReadDriver::ReadAgain() { return m_channel->ReadAgain(); }

Heap<SAX2XmlReadDriver> SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(int kind) {
  if (kind != kThreadedReader)
    VXAssert::handleLogicError(L"SAX2XmlReadDriver.cpp", __LINE__, L"unknown kind of XML reader");
  return std::make_unique<ThreadedReadDriver>();
}
