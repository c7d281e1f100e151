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

// One request and its reply: sent, parsed on the reader thread, read on the calling thread, logged.

namespace {

using BaseStringUtil::IsCaseInsensitiveMatch;

/// Like text.find, but can be stopped: a large text of beginnings takes seconds.
std::size_t Find(std::string_view text, std::string_view pattern, std::size_t from) {
  constexpr std::size_t kBlockBytes = std::size_t{1} << 20;
  for (;; from += kBlockBytes) {
    ThrowIfStopped();
    const std::string_view part = text.substr(0, from + kBlockBytes + pattern.size() - 1);
    const std::size_t found = part.find(pattern, from);
    if (found != std::string_view::npos || part.size() == text.size()) return found;
  }
}

/// Brings the reply's XML declaration into one form, without encoding: the text is decoded already.
void NormaliseDeclaration(NarrowString& reply, bool prepends) {
  constexpr std::string_view kDeclaration = "<?xml version=\"1.0\"?>";
  constexpr std::string_view kWithoutEnd = "<?xml version=\"1.0\"";
  // Should a declaration come where none is expected, the reader skips the second one.
  const std::size_t start = prepends ? NarrowString::npos : Find(reply.view(), "<?xml version", 0);
  if (start == NarrowString::npos) {
    reply.ReplaceFront(0, kDeclaration);
    return;
  }
  const std::size_t end = Find(reply.view(), "?>", start);
  reply.ReplaceFront(std::min(end, reply.size()), kWithoutEnd);
}

/// Throws the error of a request beyond maxRequestBytes.
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

/// Sends the request. `reply` gets the answer with its declaration in one form. The result is the
/// HTTP client's error text for an answer that may still hold a fault, empty as a rule. Throws the
/// client's error text when there is no answer.
String XmlADiscoverAgentImpl::Post(const NarrowString& request, const String& subject,
                                   NarrowString& reply) {
  ImportOperation* const operation = ImportOperation::Current();
  if (operation) operation->CountRequest();
  m_HttpClient->SetRequestHeader(PrepareHttpSizeHeader());
  m_HttpClient->SetRequestSubject(subject);
  String error;
  const bool hasReply = m_HttpClient->ReadBytes(request, reply, error);
  m_HttpClient->SetRequestSubject(String());  // it may be long
  if (operation) operation->CheckReplyBytes();
  if (hasReply) {
    NormaliseDeclaration(reply, Rules().prependsDeclaration);
  } else if (!error.empty()) {
    SUGThrow(ErrorMessage(error), kSourceFile, __LINE__);
  }
  return error;
}

/// Starts the reader thread on a text, after stopping an earlier one.
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

/// The next element of the reply, or the empty handle at its end. Throws for a reply that cannot be
/// parsed and for a cancelled parse.
RefCnt<SAX2XmlElement> XmlADiscoverAgentImpl::NextElement() {
  RefCnt<SAX2XmlElement> element = m_XmlReaderDriver->Read();
  if (!element) return element;
  if (element->HasError())
    SUGThrow(ErrorMessage(kMessageParseError, m_SoapParseErrorString), kSourceFile, __LINE__);
  if (element->IsCancel()) {
    ThrowIfStopped();
    SUGThrow(ErrorMessage(kMessageReadCancelled), kSourceFile, __LINE__);  // by StopSaxParser
  }
  if (m_Fault) m_Fault->OnElement(*element);
  return element;
}

/// Reads a whole reply once: `consume` takes the elements that it knows, while all of them are
/// searched for a fault. Throws for a fault (64203), a parse error (46100), a cancelled parse
/// (46066), and for `httpError`; what `consume` took is then to be dropped.
void XmlADiscoverAgentImpl::ReadReply(NarrowString reply, const String& httpError,
                                      const std::function<void()>& consume) {
  /// Ends the reading, however it ended: a failed one must not keep its text.
  struct StopAtEnd {
    XmlADiscoverAgentImpl& agent;
    ~StopAtEnd() {
      agent.StopSaxParser();
      agent.m_XmlReaderDriver->Read();  // what a consumer left half read is let go
      agent.m_Reader = {};
      agent.m_Fault = nullptr;
    }
  };
  SoapFault fault;
  const StopAtEnd stopAtEnd{*this};
  m_Fault = &fault;
  StartReader(reply, &SAX2XmlReadDriver::ParseBytesInMem);
  reply.clear();  // the parser keeps it no longer than it needs it
  try {
    if (httpError.empty()) consume();
    while (NextElement()) {
    }
  } catch (const ErrorMessage& error) {
    // Of a refusal that is no XML, the status says more.
    if (httpError.empty() || error.GetNumber() != kMessageParseError) throw;
    SUGThrow(ErrorMessage(httpError), kSourceFile, __LINE__);
  }
  const bool isUsable = httpError.empty() || !fault.Code().empty() || !fault.Text().empty();
  if (fault.IsFault() && isUsable)
    SUGThrow(ErrorMessage(kMessageSoapFault, fault.Code(), fault.Text()), kSourceFile, __LINE__);
  if (!httpError.empty()) SUGThrow(ErrorMessage(httpError), kSourceFile, __LINE__);
}

/// Sends a request, has its reply read by `consume`, and logs both.
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

// Not used by imports, which read a reply once: the host knows these operations by name.

void XmlADiscoverAgentImpl::SendSoapRequest(const String& request, String& response) {
  NarrowString reply;
  const auto keep = [&] {
    if (!reply.empty()) response = BaseStringUtil::FromUTF8(reply);
  };
  try {
    const String httpError = Post(BaseStringUtil::ToUTF8(request), String(), reply);
    if (reply.empty()) return;  // neither a reply nor a reason: `response` stays as it is
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
    // As bytes: wide output would depend on the locale and change the stream for everybody else.
    const NarrowString line = BaseStringUtil::ToUTF8(L"\tNAME[" + element->GetLocalName() +
                                                     L"]\t\tVALUE[" + element->GetValue() + L"]\n");
    std::fwrite(line.data(), 1, line.size(), stdout);
  }
}
