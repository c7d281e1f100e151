#include <algorithm>
#include <cstdio>
#include <utility>

#include "SUXMLASAXImportLog.h"
#include "SUXMLASAXProviderRules.h"
#include "SUXMLASAXReplyReader.h"
#include "SUXMLASAXRequests.h"
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

void XmlADiscoverAgentImpl::StartSaxParser(const String& text) { m_ReplyReader->Start(text); }

void XmlADiscoverAgentImpl::StopSaxParser() { m_ReplyReader->Stop(); }

RefCnt<SAX2XmlElement> XmlADiscoverAgentImpl::NextElement() { return m_ReplyReader->Next(); }

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
    m_ReplyReader->Read(m_Log ? reply : std::move(reply), httpError, consume);
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
    m_ReplyReader->Read(reply, httpError, [] {});
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
