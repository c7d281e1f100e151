#include "Utility/Generic/HTTPClientWrapper.h"

#include <algorithm>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportOperation.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/Secret.h"
#include "errors/MessageCatalogue.h"
#include "http/HTTPProxy.h"
#include "http/HTTPStatus.h"
#include "http/HTTPTransfer.h"
#include "http/HTTPUrl.h"
#include "http/ReplyCharset.h"
#include "http/ReplyKind.h"
#include "system/Cancellation.h"

namespace {

NarrowString ToUTF8(const String& text) {
  return BaseStringUtil::StringToStdString(text, BaseStringUtil::kCodePageUTF8);
}

String FromUTF8(std::string_view bytes) {
  return BaseStringUtil::StdStringToString(NarrowString(bytes), BaseStringUtil::kCodePageUTF8);
}

String Joined(const std::vector<std::string>& names) {
  String text;
  for (const std::string& name : names) {
    if (!text.empty()) text += L", ";
    text += FromUTF8(name);
  }
  return text;
}

/// For what a server may make as long as it likes.
String Shortened(const String& text) {
  constexpr std::size_t kMost = 512;
  return text.size() <= kMost ? text : text.substr(0, kMost) + L"...";
}

/// What went wrong and what to try; no text when nothing went wrong.
struct Verdict {
  String what;
  String advice;
};

Verdict JudgeStatus(const HTTPAnswer& answer) {
  Verdict verdict{HTTPStatus::Line(answer.status), HTTPStatus::Advice(answer.status)};
  if (answer.status == 401 || answer.status == 407) {
    verdict.what += answer.schemes.empty() ? String(L", no way to log in is offered")
                                           : L", log-in offered: " + Joined(answer.schemes);
    if (!answer.logInAdvice.empty()) verdict.advice = answer.logInAdvice;
  } else if (!answer.redirectTarget.empty()) {
    verdict.what += L", points to " + Shortened(answer.redirectTarget);
  }
  return verdict;
}

/// What speaks against a body that should be XML.
Verdict JudgeBody(const HTTPAnswer& answer) {
  const std::string_view body = answer.body.view();
  const wchar_t* const kCheckURL = L"check that the URL is that of an XML for Analysis service";
  if (ReplyKind::IsEmpty(body)) {
    return {HTTPStatus::Line(answer.status) + L", but the reply is empty", kCheckURL};
  }
  if (ReplyKind::IsWebPage(body)) {
    const std::string title = ReplyKind::PageTitle(body);
    String what = L"A web page came instead of XML";
    if (!title.empty()) what += L", titled \"" + FromUTF8(title) + L"\"";
    return {what,
            L"it may be a log-in form or a proxy's page; open the URL in a browser, and check "
            L"that it is that of an XML for Analysis service"};
  }
  if (ReplyKind::IsPlainText(body)) {
    return {L"Plain text came instead of XML: \"" + FromUTF8(ReplyKind::Beginning(body)) + L"\"",
            kCheckURL};
  }
  return {};
}

/// What came, and whether the caller may look into it.
struct Judgement {
  Verdict verdict;
  bool hasReply;
};

/// Judges the whole answer; on the way its body becomes UTF-8.
Judgement Judge(HTTPAnswer& answer, std::uint64_t maxReplyBytes) {
  const bool isSuccess = answer.status >= 200 && answer.status < 300;
  if (answer.failure != HTTPFailure::kNone) {
    // A server that refuses a request often cuts the connection: its status says more than that.
    if (IsOwnDoing(answer.failure) || answer.status < 300)
      return {{answer.failureText, answer.advice}, false};
    return {JudgeStatus(answer), false};
  }
  String charset;
  const ReplyText text = MakeReplyUTF8(answer.body, answer.contentType, maxReplyBytes, charset);
  if (IsThreadToStop()) return {{StopText(), L""}, false};  // the text may be unfinished
  if (text == ReplyText::kTooLong) {
    return {{L"The reply is longer than " + BaseStringUtil::StringFrom(maxReplyBytes) +
                 L" bytes after its conversion to UTF-8 (limit maxReplyBytes)",
             L"choose a smaller part of the server's metadata"},
            false};
  }
  if (isSuccess && text == ReplyText::kUnknownCharset) {
    return {{L"The reply is in the charset \"" + charset + L"\", which is not accepted",
             L"have the server answer in UTF-8"},
            false};
  }
  const Verdict body = JudgeBody(answer);
  if (isSuccess) return {body, body.what.empty()};
  return {JudgeStatus(answer), text == ReplyText::kReady && body.what.empty()};
}

constexpr const wchar_t* kSourceFile = L"HTTPClientWrapper.cpp";

/// Control characters would end a header line: the rest would be another header, or a request.
void RefuseControlCharacters(const String& text, const wchar_t* name) {
  if (!HTTPUrl::HasControlCharacter(text.view())) return;
  SUGThrow(ErrorMessage(String(L"The ") + name +
                        L" contains a control character, such as a line break, and cannot be "
                        L"used: check how it was entered"),
           kSourceFile, __LINE__);
}

}  // namespace

class HTTPClientWrapper::Impl {
 public:
  Impl(const String& shownURL, const NarrowString& url, const NarrowString& user,
       const NarrowString& password, std::uint32_t timeoutSeconds, const HTTPClientOptions& options)
      : m_shownURL(shownURL),
        m_maxReplyBytes(options.maxReplyBytes),
        m_transfer(url, user, password, timeoutSeconds, options) {}

  void SetHeaderLines(const String& lines) {
    if (lines == m_headerLines) return;
    m_transfer.SetHeaderLines(ToUTF8(lines));
    m_headerLines = lines;
  }

  void SetSubject(const String& subject) { m_subject = subject; }

  bool Exchange(const NarrowString& body, NarrowString& reply, String& error) {
    HTTPAnswer answer;
    m_transfer.Post(body, answer);
    const std::uint64_t received = answer.body.size();
    const auto [verdict, hasReply] = Judge(answer, m_maxReplyBytes);
    if (ImportOperation* const operation = ImportOperation::Current())
      operation->CountReplyBytes(
          std::max<std::uint64_t>({received, answer.body.size(), answer.wireBytes}));
    reply = hasReply ? answer.body : NarrowString();
    const bool ok = verdict.what.empty();
    if (!ok) error = ErrorText(verdict);
    if (HTTPExchangeObserver* const observer = ImportSettings::Current().exchangeObserver) {
      HTTPExchangeInfo info;
      info.url = m_shownURL;
      info.subject = m_subject;
      info.status = answer.status;
      info.request = body;
      info.replyBytes = received;
      info.wireBytes = answer.wireBytes;
      info.connectSeconds = answer.connectSeconds;
      info.firstByteSeconds = answer.firstByteSeconds;
      info.totalSeconds = answer.totalSeconds;
      info.ok = ok;
      if (!ok) info.error = error;
      info.basicInClear = answer.basicInClear;
      observer->OnExchange(info);
    }
    return hasReply;
  }

 private:
  String ErrorText(const Verdict& verdict) const {
    String text = verdict.what + L": " + m_shownURL;
    if (!verdict.advice.empty()) text += L" (" + verdict.advice + L")";
    return MessageCatalogue::OneLine(text);
  }

  const String m_shownURL;
  const std::uint64_t m_maxReplyBytes;
  String m_subject;
  String m_headerLines;  // that the transfer has
  HTTPTransfer m_transfer;
};

HTTPClientWrapper::HTTPClientWrapper(const String& url, const String& user, const String& password,
                                     std::uint32_t timeoutSeconds,
                                     const HTTPClientOptions* options) {
  String cleanURL = url;
  Secret<String> urlUser;
  Secret<String> urlPassword;
  const bool usable = TakeCredentials(cleanURL, urlUser, urlPassword);
  const String shown = HTTPUrl::ForDisplay(cleanURL);
  if (!usable) {
    SUGThrow(ErrorMessage(L"The URL of the service cannot be used, it must look like "
                          L"http://host/path or https://host/path: " +
                          shown),
             kSourceFile, __LINE__);
  }
  const String& usedUser = user.empty() ? urlUser : user;
  const String& usedPassword = user.empty() ? urlPassword : password;
  RefuseControlCharacters(usedUser, L"user name");
  RefuseControlCharacters(usedPassword, L"password");

  const HTTPClientOptions& given = options ? *options : ImportSettings::Current().http;
  const Secret<String> proxy(given.proxy ? String(*given.proxy)
                                         : HTTPProxy::OfEnvironment(HTTPUrl::IsHTTPS(cleanURL)));
  HTTPClientOptions all = given;
  all.proxy = proxy;
  Secret<String> proxyUser;
  Secret<String> proxyPassword;
  HTTPProxy::GetCredentials(proxy, proxyUser, proxyPassword);
  RefuseControlCharacters(proxyUser, L"proxy's user name");
  RefuseControlCharacters(proxyPassword, L"proxy's password");
  RefuseControlCharacters(proxy, L"proxy's URL");

  const Secret<NarrowString> narrowUser(ToUTF8(usedUser));
  const Secret<NarrowString> narrowPassword(ToUTF8(usedPassword));
  m_impl = std::make_unique<Impl>(shown, HTTPUrl::ForRequest(cleanURL), narrowUser, narrowPassword,
                                  timeoutSeconds, all);
}

HTTPClientWrapper::~HTTPClientWrapper() = default;

void HTTPClientWrapper::SetRequestHeader(const String& lines) { m_impl->SetHeaderLines(lines); }

void HTTPClientWrapper::SetRequestSubject(const String& subject) { m_impl->SetSubject(subject); }

bool HTTPClientWrapper::ReadBytes(const NarrowString& body, NarrowString& reply, String& error) {
  return m_impl->Exchange(body, reply, error);
}

bool HTTPClientWrapper::TakeCredentials(String& url, String& user, String& password) {
  HTTPUrl::CutCredentials(url, user, password);
  return HTTPUrl::LooksUsable(url);
}
