#include "SUXMLASAXReplyReader.h"

#include <algorithm>
#include <string_view>

#include "SUXMLASAXSoapFault.h"
#include "SUXMLASAXStop.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/MessageNumbers.h"

namespace {

/// Like text.find, but can be cancelled: with many partial matches, a large text takes seconds.
std::size_t Find(std::string_view text, std::string_view pattern, std::size_t from) {
  constexpr std::size_t kBlockBytes = std::size_t{1} << 20;
  for (;; from += kBlockBytes) {
    ThrowIfStopped();
    const std::string_view part = text.substr(0, from + kBlockBytes + pattern.size() - 1);
    const std::size_t found = part.find(pattern, from);
    if (found != std::string_view::npos || part.size() == text.size()) return found;
  }
}

}  // namespace

void NormaliseDeclaration(NarrowString& reply, bool prepends) {
  constexpr std::string_view kDeclaration = "<?xml version=\"1.0\"?>";
  constexpr std::string_view kWithoutEnd = "<?xml version=\"1.0\"";
  // If the reply has a declaration although none is expected, the reader skips the second one.
  const std::size_t start = prepends ? NarrowString::npos : Find(reply.view(), "<?xml version", 0);
  if (start == NarrowString::npos) {
    reply.ReplaceFront(0, kDeclaration);
    return;
  }
  const std::size_t end = Find(reply.view(), "?>", start);
  reply.ReplaceFront(std::min(end, reply.size()), kWithoutEnd);
}

ReplyReader::ReplyReader()
    : m_driver(SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(
          SAX2XmlReadDriverFactory::kThreadedReader)) {}

template <class Text>
void ReplyReader::StartThread(const Text& text, bool (SAX2XmlReadDriver::*parse)(Text, String&)) {
  Stop();
  m_parseError.clear();
  using Job = VXThreadJob_TwoArg<SAX2XmlReadDriver, Text, String>;
  const RefCnt<VXThreadJob> job(new Job(m_driver.get(), parse, text, m_parseError));
  m_thread = RefCnt<VXThread>(new VXUserThread<ManagedJobFunctor>(ManagedJobFunctor(job)));
  m_thread->Start();
}

void ReplyReader::Start(const String& text) { StartThread(text, &SAX2XmlReadDriver::ParseInMem); }

void ReplyReader::Start(const NarrowString& text) {
  StartThread(text, &SAX2XmlReadDriver::ParseBytesInMem);
}

void ReplyReader::Stop() {
  if (!m_thread) return;
  m_thread->RequestCancellation(0, VXExecutionState::kCancelReasonUnknown);
  m_thread->WaitUntilStopped();
}

RefCnt<SAX2XmlElement> ReplyReader::Next() {
  RefCnt<SAX2XmlElement> element = m_driver->Read();
  if (!element) return element;
  if (element->HasError())
    SUGThrow(ErrorMessage(kMessageParseError, m_parseError), kSourceFile, __LINE__);
  if (element->IsCancel()) {  // by the host, the deadline or Stop
    ThrowIfStopped();
    SUGThrow(ErrorMessage(kMessageReadCancelled), kSourceFile, __LINE__);
  }
  if (m_fault) m_fault->OnElement(*element);
  return element;
}

void ReplyReader::Read(NarrowString reply, const String& httpError,
                       const std::function<void()>& consume) {
  /// Stops the parser and frees the memory of the reply, also after an exception.
  struct StopAtEnd {
    ReplyReader& reader;
    ~StopAtEnd() {
      reader.Stop();
      reader.m_driver->Read();  // frees the block that is being read
      reader.m_thread = {};
      reader.m_fault = nullptr;
    }
  };
  SoapFault fault;
  const StopAtEnd stopAtEnd{*this};
  m_fault = &fault;
  Start(reply);
  reply.clear();  // now only the parser refers to the text
  try {
    if (httpError.empty()) consume();
    while (Next()) {
    }
  } catch (const ErrorMessage& error) {
    // For an error reply that is not XML, the HTTP status says more.
    if (httpError.empty() || error.GetNumber() != kMessageParseError) throw;
    SUGThrow(ErrorMessage(httpError), kSourceFile, __LINE__);
  }
  if (fault.IsFault() && (httpError.empty() || fault.HasReason())) {
    if (const auto& handler = ImportSettings::Current().onFaultDetail)
      for (const String& detail : fault.Details()) handler(detail);
    SUGThrow(ErrorMessage(kMessageSoapFault, fault.Code(), fault.Text()), kSourceFile, __LINE__);
  }
  if (!httpError.empty()) SUGThrow(ErrorMessage(httpError), kSourceFile, __LINE__);
}
