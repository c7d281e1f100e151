#include "HTTPTransfer.h"

#include <curl/curl.h>
#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <utility>

#include "Cancellation.h"
#include "HTTPStatus.h"
#include "HTTPUrl.h"
#include "SignalBlock.h"
#include "SystemReason.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"

namespace {

using Clock = std::chrono::steady_clock;

/// How long a transfer sleeps before it looks whether it is to stop: a signal handler can set the
/// execution state but wake nobody.
constexpr int kSliceMilliseconds = 40;
constexpr long kReceiveBuffer = 128L * 1024;
constexpr int kMostLogInRounds = 6;
/// Of headers behind a reply, which libcurl keeps without a bound of its own.
constexpr std::size_t kMostTrailerBytes = 300UL * 1024;
constexpr unsigned long kAllSchemes =
    CURLAUTH_NEGOTIATE | CURLAUTH_NTLM | CURLAUTH_DIGEST | CURLAUTH_BASIC;

/// The strongest of the schemes in the mask; 0 when there is none.
unsigned long Strongest(unsigned long schemes) {
  constexpr unsigned long kOrder[] = {CURLAUTH_NEGOTIATE, CURLAUTH_DIGEST, CURLAUTH_NTLM,
                                      CURLAUTH_BASIC};  // libcurl's own
  for (const unsigned long scheme : kOrder)
    if ((schemes & scheme) != 0) return scheme;
  return 0;
}

/// libcurl counts its users itself, but not under a lock in all its builds.
class LibraryUse {
 public:
  LibraryUse() {
    const std::lock_guard lock(Mutex());
    if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) throw std::bad_alloc();
  }
  ~LibraryUse() {
    const std::lock_guard lock(Mutex());
    curl_global_cleanup();
  }
  LibraryUse(const LibraryUse&) = delete;
  LibraryUse& operator=(const LibraryUse&) = delete;

 private:
  static std::mutex& Mutex() {
    static std::mutex mutex;
    return mutex;
  }
};

/// A thread of libcurl that waits for a name server may outlive its transfer: it must find its code
/// when the host unloads these libraries. libcurl is then never unloaded; it takes no other harm.
void KeepLibraryLoaded() noexcept {
  Dl_info library{};
  if (dladdr(reinterpret_cast<const void*>(&curl_easy_init), &library) == 0) return;
  if (void* const handle = dlopen(library.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE))
    dlclose(handle);
}

/// True unless every connection for the URL is plain: not one for https, nor one to a proxy, which
/// may speak TLS itself.
bool MayUseTLS(const NarrowString& url) {
  constexpr const char* kProxies[] = {"http_proxy", "all_proxy", "ALL_PROXY"};
  const bool isPlain = url.view().substr(0, 5) == "http:";
  return !isPlain || std::any_of(std::begin(kProxies), std::end(kProxies),
                                 [](const char* name) { return std::getenv(name) != nullptr; });
}

struct FreeHeaders {
  void operator()(curl_slist* headers) const noexcept { curl_slist_free_all(headers); }
};
using HeaderList = std::unique_ptr<curl_slist, FreeHeaders>;

struct Failure {
  CURLcode code;
  const wchar_t* what;
  const wchar_t* advice;
};

constexpr Failure kFailures[] = {
    {CURLE_COULDNT_RESOLVE_HOST, L"The host of the service is not known",
     L"check the spelling of the host name"},
    {CURLE_COULDNT_RESOLVE_PROXY, L"The host of the proxy is not known",
     L"check the environment's proxy setting"},
    {CURLE_COULDNT_CONNECT, L"There is no connection to the service",
     L"check host and port, that the service is running, and the proxy if the environment names "
     L"one"},
    {CURLE_PEER_FAILED_VERIFICATION, L"The server's certificate is not trusted",
     L"have the certificate put right, or name the file of its authority's certificate in "
     L"SSL_CERT_FILE"},
    {CURLE_SSL_CACERT_BADFILE, L"The file of trusted certificates cannot be read",
     L"check SSL_CERT_FILE"},
    {CURLE_SSL_CONNECT_ERROR, L"The server does not speak TLS as it should",
     L"check that the port is one for https"},
    {CURLE_GOT_NOTHING, L"The server closed the connection without an answer",
     L"check that the port is that of a web server, and try again"},
    {CURLE_PARTIAL_FILE, L"The connection was cut in the middle of the reply", L"try again"},
    {CURLE_RECV_ERROR, L"The connection broke while the reply was read", L"try again"},
    {CURLE_SEND_ERROR, L"The connection broke while the request was sent", L"try again"},
    {CURLE_BAD_CONTENT_ENCODING, L"The reply's compression is broken or not known",
     L"try again, or switch the server's compression off"},
    {CURLE_WEIRD_SERVER_REPLY, L"The answer is not HTTP",
     L"check that the port is that of a web server"},
    {CURLE_UNSUPPORTED_PROTOCOL, L"The answer is not HTTP",
     L"check that the port is that of a web server"},
    {CURLE_PROXY, L"The proxy does not let the connection through",
     L"check the environment's proxy setting"},
};

String FromBytes(const char* text) {
  return BaseStringUtil::StdStringToString(NarrowString(text), BaseStringUtil::kCodePageUTF8);
}

std::uint64_t Unsigned(curl_off_t number) {
  return number > 0 ? static_cast<std::uint64_t>(number) : 0;
}

}  // namespace

class HTTPTransfer::Session {
 public:
  Session(const NarrowString& url, const NarrowString& user, const NarrowString& password,
          std::uint32_t timeoutSeconds, const HTTPClientOptions& options);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void SetHeaderLines(const NarrowString& lines);
  void Post(const NarrowString& body, HTTPAnswer& answer);

 private:
  enum class End { kDone, kCancelled, kSilent, kTooLong, kLongTrailer, kOutOfMemory };

  static std::size_t OnHeader(char* bytes, std::size_t size, std::size_t count, void* self);
  static std::size_t OnBody(char* bytes, std::size_t size, std::size_t count, void* self) noexcept;

  template <class Value>
  void Set(CURLoption option, Value value) {
    if (curl_easy_setopt(m_easy, option, value) == CURLE_OUT_OF_MEMORY) throw std::bad_alloc();
  }
  template <class Value>
  Value Get(CURLINFO info, Value value = {}) {
    curl_easy_getinfo(m_easy, info, &value);
    return value;
  }
  void Configure(const NarrowString& url, const NarrowString& user, const NarrowString& password,
                 const HTTPClientOptions& options);
  void Release() noexcept;
  void MakeRoom();
  CURLcode Run();
  CURLcode RunOnce();
  CURLcode Wait();
  bool IsSilent(bool wasActive);
  bool TryOtherScheme(long status);
  void RememberScheme();
  void Describe(CURLcode code, HTTPAnswer& answer);
  void DescribeFailure(CURLcode code, HTTPAnswer& answer);
  std::vector<std::string> OfferedSchemes(const char* header, int round);

  const LibraryUse m_library;
  const std::uint32_t m_timeoutSeconds;
  const std::uint64_t m_maxReplyBytes;
  const bool m_mayUseTLS;
  CURL* m_easy = nullptr;
  CURLM* m_multi = nullptr;
  HeaderList m_headers;
  char m_reason[CURL_ERROR_SIZE] = {};
  bool m_hasCredentials = false;
  unsigned long m_schemes = kAllSchemes;  // what is offered to the server next
  int m_tries = 0;                        // of the request at work
  NarrowString* m_body = nullptr;         // of the answer that is received
  std::size_t m_trailerBytes = 0;         // of headers behind that answer
  bool m_isHeadWhole = false;             // all headers in front of it have come
  End m_end = End::kDone;
  Clock::time_point m_lastActivity;
};

HTTPTransfer::Session::Session(const NarrowString& url, const NarrowString& user,
                               const NarrowString& password, std::uint32_t timeoutSeconds,
                               const HTTPClientOptions& options)
    : m_timeoutSeconds(timeoutSeconds),
      m_maxReplyBytes(options.maxReplyBytes),
      m_mayUseTLS(MayUseTLS(url)) {
  try {
    m_easy = curl_easy_init();
    m_multi = curl_multi_init();
    if (!m_easy || !m_multi) throw std::bad_alloc();
    Configure(url, user, password, options);
    SetHeaderLines(NarrowString());
    // A multi handle takes CURLOPT_NOSIGNAL from the handles that it has seen. One that has seen
    // none changes the process's SIGPIPE for a moment when it is cleaned up.
    if (curl_multi_add_handle(m_multi, m_easy) != CURLM_OK ||
        curl_multi_remove_handle(m_multi, m_easy) != CURLM_OK)
      throw std::bad_alloc();
  } catch (...) {
    Release();
    throw;
  }
}

HTTPTransfer::Session::~Session() { Release(); }

void HTTPTransfer::Session::Release() noexcept {
  std::optional<SignalBlock> noPipeSignal;  // a TLS connection takes its leave
  if (m_mayUseTLS) noPipeSignal.emplace(SIGPIPE);
  // The connections belong to the multi handle, and closing them may still need the easy one.
  if (m_multi) curl_multi_cleanup(m_multi);
  if (m_easy) curl_easy_cleanup(m_easy);
}

void HTTPTransfer::Session::Configure(const NarrowString& url, const NarrowString& user,
                                      const NarrowString& password,
                                      const HTTPClientOptions& options) {
  Set(CURLOPT_NOSIGNAL, 1L);
  Set(CURLOPT_ERRORBUFFER, m_reason);
  Set(CURLOPT_PROTOCOLS_STR, "http,https");
  Set(CURLOPT_URL, url.c_str());
  Set(CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
  Set(CURLOPT_FOLLOWLOCATION, 0L);
  // libcurl counts the rounds of a log-in as redirects: a server may ask for another one for ever.
  Set(CURLOPT_MAXREDIRS, long{kMostLogInRounds});
  Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  Set(CURLOPT_ACCEPT_ENCODING, "");  // all that this libcurl knows
  Set(CURLOPT_COOKIEFILE, "");       // cookies in memory alone
  Set(CURLOPT_POST, 1L);
  Set(CURLOPT_BUFFERSIZE, kReceiveBuffer);
  Set(CURLOPT_TCP_KEEPALIVE, 1L);
  // A resumed session would bring back the certificate of its first connection: one that was
  // refused would stay so after the server got a good one.
  Set(CURLOPT_SSL_SESSIONID_CACHE, 0L);
  Set(CURLOPT_TCP_NODELAY, 1L);
  Set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  // A name server that does not answer must not hold up a cancelled transfer.
  Set(CURLOPT_QUICK_EXIT, 1L);
  const std::uint64_t milliseconds = std::uint64_t{m_timeoutSeconds} * 1000;
  Set(CURLOPT_CONNECTTIMEOUT_MS, milliseconds == 0 || milliseconds > INT_MAX
                                     ? long{INT_MAX}
                                     : static_cast<long>(milliseconds));
  Set(CURLOPT_HEADERFUNCTION, &OnHeader);
  Set(CURLOPT_HEADERDATA, this);
  Set(CURLOPT_WRITEFUNCTION, &OnBody);
  Set(CURLOPT_WRITEDATA, this);
  curl_multi_setopt(m_multi, CURLMOPT_MAXCONNECTS, 1L);
  if (options.proxy) {
    Set(CURLOPT_PROXY,
        BaseStringUtil::StringToStdString(*options.proxy, BaseStringUtil::kCodePageUTF8).c_str());
  }
  if (!user.empty()) {
    m_hasCredentials = true;
    Set(CURLOPT_USERNAME, user.c_str());
    Set(CURLOPT_PASSWORD, password.c_str());
  }
  NarrowString caFile =
      BaseStringUtil::StringToStdString(options.caFile, BaseStringUtil::kCodePageUTF8);
  if (caFile.empty()) {
    if (const char* const environment = std::getenv("SSL_CERT_FILE")) caFile = environment;
  }
  if (!caFile.empty()) {
    Set(CURLOPT_CAINFO, caFile.c_str());
    Set(CURLOPT_PROXY_CAINFO, caFile.c_str());
  }
  Set(CURLOPT_PROXYAUTH, static_cast<long>(kAllSchemes));
}

void HTTPTransfer::Session::SetHeaderLines(const NarrowString& lines) {
  HeaderList list;
  const auto append = [&list](const char* line) {
    curl_slist* const longer = curl_slist_append(list.get(), line);
    if (!longer) throw std::bad_alloc();
    static_cast<void>(list.release());
    list.reset(longer);
  };
  append("Expect:");  // send the body at once
  std::string_view rest = lines.view();
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    std::string line(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
    std::erase(line, '\r');
    if (!line.empty()) append(line.c_str());
  }
  Set(CURLOPT_HTTPHEADER, list.get());
  m_headers = std::move(list);
}

std::size_t HTTPTransfer::Session::OnHeader(char* bytes, std::size_t, std::size_t count,
                                            void* self) {
  auto& session = *static_cast<Session*>(self);
  const std::string_view line(bytes, count);
  // Every status line begins another answer: a preliminary one may have had a body.
  if (line.starts_with("HTTP/")) {
    session.m_body->clear();
    session.m_isHeadWhole = false;
  }
  if (session.m_isHeadWhole && (session.m_trailerBytes += count) > kMostTrailerBytes) {
    session.m_end = End::kLongTrailer;
    return 0;
  }
  if (line == "\r\n" || line == "\n") session.m_isHeadWhole = true;
  return count;
}

std::size_t HTTPTransfer::Session::OnBody(char* bytes, std::size_t, std::size_t count,
                                          void* self) noexcept {
  auto& session = *static_cast<Session*>(self);
  // A small compressed piece can unfold to very much before anybody else looks.
  if (IsThreadToStop()) {
    session.m_end = End::kCancelled;
    return CURL_WRITEFUNC_ERROR;
  }
  if (count > session.m_maxReplyBytes - session.m_body->size()) {
    session.m_end = End::kTooLong;
    return CURL_WRITEFUNC_ERROR;
  }
  try {
    if (session.m_body->empty()) session.MakeRoom();
    session.m_body->append(bytes, count);
  } catch (...) {
    session.m_end = End::kOutOfMemory;
    return CURL_WRITEFUNC_ERROR;
  }
  return count;
}

/// A long body that says its length is received without moving it about. A server may lie, so there
/// is a bound.
void HTTPTransfer::Session::MakeRoom() {
  constexpr curl_off_t kMostRoom = curl_off_t{256} << 20;
  constexpr curl_off_t kRoomForDeclaration = 64;  // that its reader may put in front
  const auto length = Get<curl_off_t>(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T);
  if (length > 0)
    m_body->reserve(static_cast<std::size_t>(std::min(length, kMostRoom) + kRoomForDeclaration));
}

bool HTTPTransfer::Session::IsSilent(bool wasActive) {
  const Clock::time_point now = Clock::now();
  // Until the connection stands, libcurl's own time-out holds.
  if (wasActive || Get<curl_off_t>(CURLINFO_PRETRANSFER_TIME_T) == 0) m_lastActivity = now;
  return m_timeoutSeconds > 0 && now - m_lastActivity >= std::chrono::seconds(m_timeoutSeconds);
}

CURLcode HTTPTransfer::Session::Wait() {
  m_lastActivity = Clock::now();
  for (;;) {
    int running = 0;
    if (curl_multi_perform(m_multi, &running) != CURLM_OK) return CURLE_OUT_OF_MEMORY;
    if (running == 0) break;
    int active = 0;
    if (curl_multi_poll(m_multi, nullptr, 0, kSliceMilliseconds, &active) != CURLM_OK)
      return CURLE_OUT_OF_MEMORY;
    if (IsThreadToStop()) {
      m_end = End::kCancelled;
      return CURLE_ABORTED_BY_CALLBACK;
    }
    if (IsSilent(active > 0)) {
      m_end = End::kSilent;
      return CURLE_OPERATION_TIMEDOUT;
    }
  }
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(m_multi, &left))
    if (message->msg == CURLMSG_DONE)
      // libcurl takes headers that end with the connection for a reply without a body.
      return message->data.result == CURLE_OK && !m_isHeadWhole ? CURLE_PARTIAL_FILE
                                                                : message->data.result;
  return CURLE_OUT_OF_MEMORY;
}

CURLcode HTTPTransfer::Session::RunOnce() {
  m_body->clear();
  m_isHeadWhole = false;
  m_trailerBytes = 0;
  m_reason[0] = '\0';
  if (m_hasCredentials) Set(CURLOPT_HTTPAUTH, static_cast<long>(m_schemes));
  if (curl_multi_add_handle(m_multi, m_easy) != CURLM_OK) return CURLE_OUT_OF_MEMORY;
  const CURLcode code = Wait();
  if (code != CURLE_OK && Get<curl_off_t>(CURLINFO_NAMELOOKUP_TIME_T) == 0) KeepLibraryLoaded();
  curl_multi_remove_handle(m_multi, m_easy);
  return code;
}

CURLcode HTTPTransfer::Session::Run() {
  m_tries = 0;
  CURLcode code;
  do {
    ++m_tries;
    code = RunOnce();
    // libcurl replaces a kept connection that turns out to be closed, but counts these over all
    // requests and refuses every sixth time.
    if (code == CURLE_SEND_ERROR && Get<long>(CURLINFO_NUM_CONNECTS) == 0) code = RunOnce();
  } while (code == CURLE_OK && TryOtherScheme(Get<long>(CURLINFO_RESPONSE_CODE)));
  if (code == CURLE_OK) RememberScheme();
  return code;
}

/// After a refused log-in: true when it is worth another try with other schemes.
bool HTTPTransfer::Session::TryOtherScheme(long status) {
  if (!m_hasCredentials || status != 401) return false;
  const auto offered = static_cast<unsigned long>(Get<long>(CURLINFO_HTTPAUTH_AVAIL)) & kAllSchemes;
  const unsigned long former = std::exchange(m_schemes, kAllSchemes);
  if (m_tries > 1) return false;
  if (former != kAllSchemes) {
    // The scheme that served so far does not now: the server wants another one, or a new nonce,
    // which libcurl has taken from this answer. Basic has nothing new to say.
    const unsigned long next = (offered & former) != 0 ? former : Strongest(offered);
    if (next == 0 || (next == former && former == CURLAUTH_BASIC)) return false;
    m_schemes = next;
    return true;
  }
  // Negotiate needs a ticket, which user and password do not give: the next best is no retreat.
  // A password that a stronger scheme refused is not sent again by a weaker one.
  const unsigned long others = offered & ~CURLAUTH_NEGOTIATE;
  if (others == offered || others == 0) return false;
  m_schemes = kAllSchemes & ~CURLAUTH_NEGOTIATE;
  return true;
}

/// The scheme that the server took is used from the beginning next time: one exchange, not two.
void HTTPTransfer::Session::RememberScheme() {
  if (!m_hasCredentials || Get<long>(CURLINFO_RESPONSE_CODE) == 401) return;
  const auto offered = static_cast<unsigned long>(Get<long>(CURLINFO_HTTPAUTH_AVAIL));
  if (const unsigned long taken = Strongest(offered & m_schemes)) m_schemes = taken;
}

std::vector<std::string> HTTPTransfer::Session::OfferedSchemes(const char* header, int round) {
  std::vector<std::string> schemes;
  curl_header* entry = nullptr;
  for (std::size_t i = 0;
       curl_easy_header(m_easy, header, i, CURLH_HEADER, round, &entry) == CURLHE_OK; ++i) {
    const std::string_view value = entry->value;
    std::string name(value.substr(0, std::min(value.find_first_of(" ,\t"), std::size_t{40})));
    if (!name.empty() && std::find(schemes.begin(), schemes.end(), name) == schemes.end())
      schemes.push_back(std::move(name));
  }
  return schemes;
}

void HTTPTransfer::Session::Post(const NarrowString& body, HTTPAnswer& answer) {
  std::optional<SignalBlock> noPipeSignal;
  if (m_mayUseTLS) noPipeSignal.emplace(SIGPIPE);
  m_body = &answer.body;
  m_end = End::kDone;
  Set(CURLOPT_POSTFIELDS, body.c_str());
  Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
  const CURLcode code = Run();
  Describe(code, answer);
  m_body = nullptr;
}

void HTTPTransfer::Session::Describe(CURLcode code, HTTPAnswer& answer) {
  answer.status = Get<long>(CURLINFO_RESPONSE_CODE);
  answer.wireBytes = Unsigned(Get<curl_off_t>(CURLINFO_SIZE_DOWNLOAD_T));
  if (Get<long>(CURLINFO_NUM_CONNECTS) > 0)
    answer.connectSeconds = Get<double>(CURLINFO_CONNECT_TIME);
  answer.firstByteSeconds = Get<double>(CURLINFO_STARTTRANSFER_TIME);
  answer.totalSeconds = Get<double>(CURLINFO_TOTAL_TIME);
  if (const char* const type = Get<const char*>(CURLINFO_CONTENT_TYPE)) answer.contentType = type;
  if (const char* const target = Get<const char*>(CURLINFO_REDIRECT_URL))
    answer.redirectTarget = HTTPUrl::ForDisplay(FromBytes(target));
  // The round that was one too many has no headers.
  const int round = code == CURLE_TOO_MANY_REDIRECTS ? kMostLogInRounds : -1;
  if (answer.status == 401) answer.schemes = OfferedSchemes("WWW-Authenticate", round);
  if (answer.status == 407) answer.schemes = OfferedSchemes("Proxy-Authenticate", round);
  if (code != CURLE_OK) DescribeFailure(code, answer);
}

void HTTPTransfer::Session::DescribeFailure(CURLcode code, HTTPAnswer& answer) {
  const String seconds = BaseStringUtil::StringFrom(m_timeoutSeconds);
  answer.gaveUp = m_end != End::kDone;
  switch (m_end) {
    case End::kCancelled:
      answer.failure = kCancelledText;
      return;
    case End::kTooLong:
      answer.failure = L"The reply is longer than " + BaseStringUtil::StringFrom(m_maxReplyBytes) +
                       L" bytes and was not read to its end";
      answer.advice = L"choose a smaller part of the server's metadata";
      return;
    case End::kLongTrailer:
      answer.failure = L"The reply is followed by more than " +
                       BaseStringUtil::StringFrom(kMostTrailerBytes) + L" bytes of headers";
      answer.advice = L"try again";
      return;
    case End::kOutOfMemory:
      answer.failure = L"There is not enough memory for the reply";
      return;
    case End::kSilent:
      answer.failure = (answer.status == 0 ? L"The server has sent no answer for "
                                           : L"The server stopped in the middle of its reply and "
                                             L"has sent nothing for ") +
                       seconds + L" seconds";
      answer.advice = L"try again, or with a longer time-out";
      return;
    case End::kDone:
      break;
  }
  const long proxyStatus = Get<long>(CURLINFO_HTTP_CONNECTCODE);
  if (answer.status == 0 && proxyStatus >= 300) {
    answer.failure =
        L"The proxy does not let the connection through: " + HTTPStatus::Line(proxyStatus);
    answer.advice = HTTPStatus::Advice(proxyStatus);
    return;
  }
  if (code == CURLE_OPERATION_TIMEDOUT) {
    answer.failure = L"No connection to the service came about within " + seconds + L" seconds";
    answer.advice = L"check host and port, or try a longer time-out";
    return;
  }
  const Failure* const known =
      std::find_if(std::begin(kFailures), std::end(kFailures),
                   [code](const Failure& failure) { return failure.code == code; });
  const bool isKnown = known != std::end(kFailures);
  answer.failure = isKnown ? known->what : L"The request failed";
  if (isKnown) answer.advice = known->advice;
  // The system's reason is taken by number: libcurl's text of it may follow the locale.
  const bool isSystems = code == CURLE_COULDNT_CONNECT || code == CURLE_RECV_ERROR ||
                         code == CURLE_SEND_ERROR || code == CURLE_GOT_NOTHING;
  const bool isUnknownHost =
      code == CURLE_COULDNT_RESOLVE_HOST || code == CURLE_COULDNT_RESOLVE_PROXY;
  const long systemError = Get<long>(CURLINFO_OS_ERRNO);
  if (isSystems && systemError != 0)
    answer.failure += L": " + SystemReason(static_cast<int>(systemError));
  else if (m_reason[0] != '\0' && code != CURLE_GOT_NOTHING && !isUnknownHost)
    answer.failure += L": " + FromBytes(m_reason);
  else if (!isKnown)
    answer.failure += L": " + FromBytes(curl_easy_strerror(code));
}

HTTPTransfer::HTTPTransfer(const NarrowString& url, const NarrowString& user,
                           const NarrowString& password, std::uint32_t timeoutSeconds,
                           const HTTPClientOptions& options)
    : m_session(std::make_unique<Session>(url, user, password, timeoutSeconds, options)) {}

HTTPTransfer::~HTTPTransfer() = default;

void HTTPTransfer::SetHeaderLines(const NarrowString& lines) { m_session->SetHeaderLines(lines); }

void HTTPTransfer::Post(const NarrowString& body, HTTPAnswer& answer) {
  m_session->Post(body, answer);
}
