#include <algorithm>
#include <cstdio>
#include <string_view>
#include <utility>

#include "SUXMLASAXImportLog.h"
#include "SUXMLASAXProviderRules.h"
#include "SUXMLASAXRequests.h"
#include "SUXMLASAXSoapFault.h"
#include "SUXMLASAXStop.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportOperation.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/MessageNumbers.h"
#include "Utility/XMLASAX/XmlADiscoverAgentImpl.h"

// The exchange of one request and its reply: sent, parsed on the parser thread, read on the calling
// thread, and logged.

namespace {

using BaseStringUtil::IsCaseInsensitiveMatch;

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

/// Normalises the XML declaration of the reply. The text is already decoded, so the declaration has
/// no encoding.
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

/// Throws the error for a request that exceeds maxRequestBytes.
void RejectLongRequest() {
  SUGThrow(
      ErrorMessage(L"A request would be longer than " +
                   BaseStringUtil::StringFrom(ImportSettings::Current().limits.maxRequestBytes) +
                   L" bytes (limit maxRequestBytes), because the server uses very long names"),
      kSourceFile, __LINE__);
}

}  // namespace

String XmlADiscoverAgentImpl::PrepareHttpSizeHeader() const {
  static const String kLines =
      L"SOAPAction: \"urn:schemas-microsoft-com:xml-analysis:Discover\"\n"
      L"Content-Type: text/xml; charset = UTF-8\n";
  return kLines;
}

/// Sends the request and sets `reply`, with a normalised declaration. Returns the HTTP client's
/// error text if the reply may still contain a fault; usually it is empty. Throws the error text
/// without a reply.
String XmlADiscoverAgentImpl::Post(const NarrowString& request, const String& subject,
                                   NarrowString& reply) {
  ImportOperation* const operation = ImportOperation::Current();
  if (operation) operation->CountRequest();
  m_HttpClient->SetRequestHeader(PrepareHttpSizeHeader());
  m_HttpClient->SetRequestSubject(subject);
  String error;
  const bool hasReply = m_HttpClient->ReadBytes(request, reply, error);
  m_HttpClient->SetRequestSubject(String());  // free the memory of long names
  if (operation) operation->CheckReplyBytes();
  if (hasReply) {
    NormaliseDeclaration(reply, Rules().prependsDeclaration);
  } else if (!error.empty()) {
    SUGThrow(ErrorMessage(error), kSourceFile, __LINE__);
  }
  return error;
}

/// Starts the parser thread on a text. Stops an earlier one before.
template <class Text>
void XmlADiscoverAgentImpl::StartReader(const Text& text,
                                        bool (SAX2XmlReadDriver::*parse)(Text, String&)) {
  StopSaxParser();
  m_SoapParseErrorString.clear();
  using Job = VXThreadJob_TwoArg<SAX2XmlReadDriver, Text, String>;
  const RefCnt<VXThreadJob> job(
      new Job(m_XmlReaderDriver.get(), parse, text, m_SoapParseErrorString));
  m_Reader = RefCnt<VXThread>(new VXUserThread<ManagedJobFunctor>(ManagedJobFunctor(job)));
  m_Reader->Start();
}

void XmlADiscoverAgentImpl::StartSaxParser(const String& text) {
  StartReader(text, &SAX2XmlReadDriver::ParseInMem);
}

void XmlADiscoverAgentImpl::StopSaxParser() {
  if (!m_Reader) return;
  m_Reader->RequestCancellation(0, VXExecutionState::kCancelReasonUnknown);
  m_Reader->WaitUntilStopped();
}

/// The next element of the reply, or an empty handle at its end. Throws after a parse error or a
/// cancellation.
RefCnt<SAX2XmlElement> XmlADiscoverAgentImpl::NextElement() {
  RefCnt<SAX2XmlElement> element = m_XmlReaderDriver->Read();
  if (!element) return element;
  if (element->HasError())
    SUGThrow(ErrorMessage(kMessageParseError, m_SoapParseErrorString), kSourceFile, __LINE__);
  if (element->IsCancel()) {  // by the host, the deadline or StopSaxParser
    ThrowIfStopped();
    SUGThrow(ErrorMessage(kMessageReadCancelled), kSourceFile, __LINE__);
  }
  if (m_Fault) m_Fault->OnElement(*element);
  return element;
}

/// Reads a whole reply. `consume` reads elements, and all elements are checked for a fault. Throws
/// ErrorMessage for a fault, a parse error, a cancelled parse and `httpError`. The caller must then
/// drop what `consume` has read.
void XmlADiscoverAgentImpl::ReadReply(NarrowString reply, const String& httpError,
                                      const std::function<void()>& consume) {
  /// Stops the parser and frees the memory of the reply, also after an exception.
  struct StopAtEnd {
    XmlADiscoverAgentImpl& agent;
    ~StopAtEnd() {
      agent.StopSaxParser();
      agent.m_XmlReaderDriver->Read();  // frees the block that is being read
      agent.m_Reader = {};
      agent.m_Fault = nullptr;
    }
  };
  SoapFault fault;
  const StopAtEnd stopAtEnd{*this};
  m_Fault = &fault;
  StartReader(reply, &SAX2XmlReadDriver::ParseBytesInMem);
  reply.clear();  // now only the parser refers to the text
  try {
    if (httpError.empty()) consume();
    while (NextElement()) {
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

/// Sends a request, reads its reply with `consume`, and logs both.
void XmlADiscoverAgentImpl::Exchange(const DiscoverRequest& request,
                                     const std::function<void()>& consume) {
  ImportLog::Times times;
  times.started = request.started;
  NarrowString reply;
  const auto log = [&](const wchar_t* title, const VXStringVector& arguments) {
    VXDateTime::GetCurrDateTime(times.finished);
    LogContent(ImportLog::FormatLine(kTitleCapacity, title, arguments), request.body, reply,
               times.started, times.answered, times.finished);
  };
  try {
    if (request.isTooLong) RejectLongRequest();
    const String httpError = Post(request.body, request.subject, reply);
    VXDateTime::GetCurrDateTime(times.answered);
    ReadReply(m_Log ? reply : std::move(reply), httpError, consume);
  } catch (const ErrorMessage& error) {
    if (m_Log && request.title->failure) {
      VXStringVector arguments = request.titleArguments;
      error.RetrieveErrorMessages(arguments.emplace_back());
      VXDateTime::GetCurrDateTime(times.answered);
      log(request.title->failure, arguments);
    }
    throw;
  }
  if (m_Log) log(request.title->success, request.titleArguments);
}

void XmlADiscoverAgentImpl::LogContent(const String& title, const NarrowString& request,
                                       const NarrowString& response, const VXDateTime& start,
                                       const VXDateTime& sent, const VXDateTime& parsed) {
  ImportLog::WriteEntry(*m_LogFile, title, request, response, {start, sent, parsed});
}

// The host calls these operations by name. The imports do not use them.

void XmlADiscoverAgentImpl::SendSoapRequest(const String& request, String& response) {
  NarrowString reply;
  const auto keep = [&] {
    if (!reply.empty()) response = BaseStringUtil::FromUTF8(reply);
  };
  try {
    const String httpError = Post(BaseStringUtil::ToUTF8(request), String(), reply);
    if (reply.empty()) return;  // neither a reply nor an error
    ReadReply(reply, httpError, [] {});
  } catch (const ErrorMessage&) {
    keep();
    throw;
  }
  keep();
}

void XmlADiscoverAgentImpl::RetrieveSoapFaultString(const String& text, String& faultCode,
                                                    String& faultString) {
  StartSaxParser(text);
  while (const RefCnt<SAX2XmlElement> element = NextElement()) {
    if (IsCaseInsensitiveMatch(element->GetLocalName(), L"faultcode"))
      faultCode = element->GetValue();
    else if (IsCaseInsensitiveMatch(element->GetLocalName(), L"faultstring"))
      faultString += element->GetValue();
  }
  StopSaxParser();
}

void XmlADiscoverAgentImpl::PrintXmlContent() {
  static constexpr const wchar_t* kHidden[] = {L"element", L"sequence", L"complexType", L"schema"};
  while (const RefCnt<SAX2XmlElement> element = NextElement()) {
    const auto isName = [&](const wchar_t* name) {
      return IsCaseInsensitiveMatch(element->GetLocalName(), name);
    };
    if (std::any_of(std::begin(kHidden), std::end(kHidden), isName)) continue;
    // Written as bytes: wide output would depend on the locale and change the orientation of the
    // stream.
    const NarrowString line = BaseStringUtil::ToUTF8(L"\tNAME[" + element->GetLocalName() +
                                                     L"]\t\tVALUE[" + element->GetValue() + L"]\n");
    std::fwrite(line.data(), 1, line.size(), stdout);
  }
}
