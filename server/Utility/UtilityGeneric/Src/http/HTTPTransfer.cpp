#include "http/HTTPTransfer.h"

#include <curl/curl.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <mutex>
#include <new>
#include <optional>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/Secret.h"
#include "http/HTTPCookies.h"
#include "http/HTTPLogIns.h"
#include "http/HTTPProxy.h"
#include "http/HTTPReplyHead.h"
#include "http/HTTPUrl.h"
#include "system/Cancellation.h"
#include "system/CloseOnExec.h"
#include "system/SignalBlock.h"

namespace {

using Clock = std::chrono::steady_clock;

/// How long a transfer sleeps before it looks whether it is to stop: a signal handler can set the
/// execution state but wake nobody.
constexpr int kSliceMilliseconds = 40;
constexpr long kReceiveBuffer = 128L * 1024;
constexpr int kMostLogInRounds = 6;
/// A shorter reply may be packed as tightly as it likes.
constexpr std::uint64_t kShortReply = std::uint64_t{1} << 20;

struct Scheme {
  unsigned long curls;
  unsigned int ours;
};
constexpr Scheme kSchemes[] = {{CURLAUTH_BASIC, kAuthBasic},
                               {CURLAUTH_DIGEST, kAuthDigest},
                               {CURLAUTH_NTLM, kAuthNTLM},
                               {CURLAUTH_NEGOTIATE, kAuthNegotiate}};

long ForCurl(unsigned int schemes) {
  unsigned long set = CURLAUTH_NONE;
  for (const Scheme& scheme : kSchemes)
    if ((schemes & scheme.ours) != 0) set |= scheme.curls;
  return static_cast<long>(set);
}

unsigned int FromCurl(long schemes) {
  unsigned int set = 0;
  for (const Scheme& scheme : kSchemes)
    if ((static_cast<unsigned long>(schemes) & scheme.curls) != 0) set |= scheme.ours;
  return set;
}

/// True for a date in the past, and for the first second of its count.
bool IsPast(const std::string& date) {
  const std::time_t seconds = curl_getdate(date.c_str(), nullptr);
  return seconds >= 0 && seconds <= std::time(nullptr);
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

struct FreeHeaders {
  void operator()(curl_slist* headers) const noexcept { curl_slist_free_all(headers); }
};
using HeaderList = std::unique_ptr<curl_slist, FreeHeaders>;

struct KnownCode {
  CURLcode code;
  HTTPFailure failure;
};
constexpr KnownCode kKnownCodes[] = {
    {CURLE_COULDNT_RESOLVE_HOST, HTTPFailure::kUnknownHost},
    {CURLE_COULDNT_RESOLVE_PROXY, HTTPFailure::kUnknownProxy},
    {CURLE_COULDNT_CONNECT, HTTPFailure::kNotConnected},
    {CURLE_OPERATION_TIMEDOUT, HTTPFailure::kNotConnectedInTime},
    {CURLE_PEER_FAILED_VERIFICATION, HTTPFailure::kUntrustedCertificate},
    {CURLE_SSL_CACERT_BADFILE, HTTPFailure::kUnreadableCertificates},
    {CURLE_SSL_CONNECT_ERROR, HTTPFailure::kNoTLS},
    {CURLE_GOT_NOTHING, HTTPFailure::kNothingCame},
    {CURLE_PARTIAL_FILE, HTTPFailure::kCut},
    {CURLE_RECV_ERROR, HTTPFailure::kBrokenWhileReading},
    {CURLE_SEND_ERROR, HTTPFailure::kBrokenWhileSending},
    {CURLE_BAD_CONTENT_ENCODING, HTTPFailure::kBadCompression},
    {CURLE_WEIRD_SERVER_REPLY, HTTPFailure::kNotHTTP},
    {CURLE_UNSUPPORTED_PROTOCOL, HTTPFailure::kNotHTTP},
    {CURLE_PROXY, HTTPFailure::kProxyRefuses},
};

HTTPFailure FailureOf(CURLcode code) {
  for (const KnownCode& known : kKnownCodes)
    if (known.code == code) return known.failure;
  return HTTPFailure::kOther;
}

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
  static std::size_t OnHeader(char* bytes, std::size_t size, std::size_t count,
                              void* self) noexcept;
  static std::size_t OnBody(char* bytes, std::size_t size, std::size_t count, void* self) noexcept;
  static int OnProgress(void* self, curl_off_t, curl_off_t received, curl_off_t,
                        curl_off_t sent) noexcept;
  static curl_socket_t OnOpenSocket(void*, curlsocktype, curl_sockaddr* address) noexcept;

  template <class Value>
  void Set(CURLoption option, Value value) {
    const CURLcode code = curl_easy_setopt(m_easy, option, value);
    if (code == CURLE_OUT_OF_MEMORY) throw std::bad_alloc();
    if (code != CURLE_OK)
      SUGThrow(ErrorMessage(L"The HTTP library refuses a setting: " +
                            FromBytes(curl_easy_strerror(code))),
               L"HTTPTransfer.cpp", __LINE__);
  }
  template <class Value>
  Value Get(CURLINFO info, Value value = {}) const {
    curl_easy_getinfo(m_easy, info, &value);
    return value;
  }
  void Configure(const NarrowString& url, const NarrowString& user, const NarrowString& password,
                 const HTTPClientOptions& options);
  void ConfigureTLS(const HTTPClientOptions& options);
  void ConfigureProxy(const HTTPClientOptions& options);
  void Release() noexcept;
  void MakeRoom();
  bool IsOverRatio(std::uint64_t unseenWireBytes);
  std::size_t Abort(HTTPFailure reason) noexcept {
    m_end = reason;
    return CURL_WRITEFUNC_ERROR;
  }
  CURLcode Run();
  void ForgetRefusal();
  CURLcode RunOnce();
  CURLcode Wait();
  void MarkResolverSockets();
  bool IsSilent() const;
  bool IsConnected() const;
  bool LogsInAgain(CURLcode code);
  void Describe(CURLcode code, HTTPAnswer& answer);
  void DescribeFailure(CURLcode code, HTTPAnswer& answer);
  std::uint64_t NumberOf(HTTPFailure failure) const;

  const LibraryUse m_library;
  const std::uint32_t m_timeoutSeconds;
  const std::uint64_t m_maxReplyBytes;
  const std::size_t m_maxHeaderBytes;
  const std::uint64_t m_maxRatio;
  const bool m_mayUseTLS;
  CURL* m_easy = nullptr;
  CURLM* m_multi = nullptr;
  HeaderList m_headers;
  char m_reason[CURL_ERROR_SIZE] = {};
  HTTPLogIns m_logIns;
  HTTPCookies m_cookies;
  HTTPReplyHead m_head;
  NarrowString* m_body = nullptr;  // of the answer that is received
  HTTPFailure m_end = HTTPFailure::kNone;
  curl_off_t m_moved = 0;  // bytes of both bodies so far
  Clock::time_point m_lastActivity;
};

HTTPTransfer::Session::Session(const NarrowString& url, const NarrowString& user,
                               const NarrowString& password, std::uint32_t timeoutSeconds,
                               const HTTPClientOptions& options)
    : m_timeoutSeconds(timeoutSeconds),
      m_maxReplyBytes(options.maxReplyBytes == 0 ? UINT64_MAX : options.maxReplyBytes),
      m_maxHeaderBytes(options.maxHeaderBytes),
      m_maxRatio(options.maxCompressionRatio),
      m_mayUseTLS(HTTPUrl::IsHTTPS(FromBytes(url.c_str())) ||
                  !options.proxy->empty()),  // a proxy may speak it itself
      m_logIns(FromBytes(url.c_str()), !user.empty(), options),
      m_cookies(HTTPUrl::PathForRequest(url), options.maxCookies, options.maxCookieBytes),
      m_head(options.maxHeaderBytes, m_cookies, &IsPast) {
  try {
    m_easy = curl_easy_init();
    m_multi = curl_multi_init();
    if (!m_easy || !m_multi) throw std::bad_alloc();
    CloseOnExec::MarkPairThatGets([this] { curl_multi_wakeup(m_multi); });
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
  Set(CURLOPT_POST, 1L);
  Set(CURLOPT_BUFFERSIZE, kReceiveBuffer);
  Set(CURLOPT_TCP_KEEPALIVE, 1L);
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
  // Also asked in loops of libcurl that call nothing else, such as that over a proxy's refusal.
  Set(CURLOPT_XFERINFOFUNCTION, &OnProgress);
  Set(CURLOPT_XFERINFODATA, this);
  Set(CURLOPT_NOPROGRESS, 0L);
  Set(CURLOPT_OPENSOCKETFUNCTION, &OnOpenSocket);
  // An empty user makes libcurl log in as the process.
  if (!user.empty() || (options.authSchemes & kAuthNegotiate) != 0)
    Set(CURLOPT_USERNAME, user.c_str());
  if (!user.empty()) Set(CURLOPT_PASSWORD, password.c_str());
  ConfigureTLS(options);
  ConfigureProxy(options);
}

/// The versions are set so that no file that OPENSSL_CONF names can lower them.
void HTTPTransfer::Session::ConfigureTLS(const HTTPClientOptions& options) {
  Set(CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
  Set(CURLOPT_PROXY_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
  // A resumed session would bring back the certificate of its first connection: one that was
  // refused would stay so after the server got a good one.
  Set(CURLOPT_SSL_SESSIONID_CACHE, 0L);
  NarrowString caFile =
      BaseStringUtil::StringToStdString(options.caFile, BaseStringUtil::kCodePageUTF8);
  if (caFile.empty()) {
    if (const char* const environment = std::getenv("SSL_CERT_FILE")) caFile = environment;
  }
  if (caFile.empty()) return;
  Set(CURLOPT_CAINFO, caFile.c_str());
  Set(CURLOPT_PROXY_CAINFO, caFile.c_str());
}

void HTTPTransfer::Session::ConfigureProxy(const HTTPClientOptions& options) {
  const Secret<NarrowString> proxy(
      BaseStringUtil::StringToStdString(*options.proxy, BaseStringUtil::kCodePageUTF8));
  Set(CURLOPT_PROXY, proxy.c_str());
  const unsigned int schemes = HTTPLogIns::ProxySchemes(options);
  // The user inside the URL, if there is one, takes the place of this.
  if ((schemes & kAuthNegotiate) != 0) Set(CURLOPT_PROXYUSERNAME, "");
  unsigned long socks = CURLAUTH_NONE;
  // User and password go to a SOCKS proxy as they are: like Basic.
  const bool isReadable = !options.allowBasicOverPlainHttp && HTTPProxy::IsInClear(*options.proxy);
  if ((schemes & kAuthBasic) != 0 && !isReadable) socks |= CURLAUTH_BASIC;
  if ((schemes & kAuthNegotiate) != 0) socks |= CURLAUTH_GSSAPI;
  Set(CURLOPT_SOCKS5_AUTH, static_cast<long>(socks));
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
                                            void* self) noexcept {
  auto& session = *static_cast<Session*>(self);
  if (IsThreadToStop()) return session.Abort(HTTPFailure::kCancelled);
  session.m_lastActivity = Clock::now();
  try {
    // libcurl counts the requests of a log-in as redirects.
    const long request = session.Get<long>(CURLINFO_REDIRECT_COUNT);
    switch (session.m_head.Take({bytes, count}, request)) {
      case HTTPReplyHead::Verdict::kNewAnswer:
        session.m_body->clear();  // a preliminary answer may have had one
        break;
      case HTTPReplyHead::Verdict::kTooLong:
        return session.Abort(HTTPFailure::kHeadersTooLong);
      case HTTPReplyHead::Verdict::kMalformed:
        return session.Abort(HTTPFailure::kBadHeaderLine);
      case HTTPReplyHead::Verdict::kPackedTwice:
        return session.Abort(HTTPFailure::kPackedTwice);
      case HTTPReplyHead::Verdict::kGood:
        break;
    }
  } catch (...) {
    return session.Abort(HTTPFailure::kOutOfMemory);
  }
  return count;
}

std::size_t HTTPTransfer::Session::OnBody(char* bytes, std::size_t, std::size_t count,
                                          void* self) noexcept {
  auto& session = *static_cast<Session*>(self);
  // A small compressed piece can unfold to very much before anybody else looks.
  if (IsThreadToStop()) return session.Abort(HTTPFailure::kCancelled);
  if (count > session.m_maxReplyBytes - session.m_body->size())
    return session.Abort(HTTPFailure::kReplyTooLong);
  try {
    if (session.m_body->empty()) session.MakeRoom();
    session.m_body->append(bytes, count);
  } catch (...) {
    return session.Abort(HTTPFailure::kOutOfMemory);
  }
  // Of a reply in chunks, libcurl counts what it has read lately only after it was decoded.
  if (session.IsOverRatio(kReceiveBuffer)) return session.Abort(HTTPFailure::kRatioTooHigh);
  return count;
}

int HTTPTransfer::Session::OnProgress(void* self, curl_off_t, curl_off_t received, curl_off_t,
                                      curl_off_t sent) noexcept {
  auto& session = *static_cast<Session*>(self);
  // Bytes that are neither header nor body, such as chunk extensions, are no activity.
  if (received + sent != session.m_moved) session.m_lastActivity = Clock::now();
  session.m_moved = received + sent;
  // libcurl's own time-out does not hold while it reads what a refusing proxy keeps sending.
  if (!session.IsConnected() && session.IsSilent())
    session.m_end = HTTPFailure::kNotConnectedInTime;
  // Also the body of a refused log-in, which libcurl does not hand on.
  const bool isTooLong = Unsigned(received) > session.m_maxReplyBytes;
  if (isTooLong) session.m_end = HTTPFailure::kReplyTooLong;
  if (IsThreadToStop()) session.m_end = HTTPFailure::kCancelled;
  return session.m_end == HTTPFailure::kNone ? 0 : 1;
}

curl_socket_t HTTPTransfer::Session::OnOpenSocket(void*, curlsocktype,
                                                  curl_sockaddr* address) noexcept {
  return ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

bool HTTPTransfer::Session::IsOverRatio(std::uint64_t unseenWireBytes) {
  if (m_maxRatio == 0 || m_body->size() <= kShortReply) return false;
  const std::uint64_t wire = Unsigned(Get<curl_off_t>(CURLINFO_SIZE_DOWNLOAD_T));
  return m_body->size() / m_maxRatio > wire + unseenWireBytes;
}

/// A long body that says its length is received without moving it about. A server may lie, so there
/// is a bound.
void HTTPTransfer::Session::MakeRoom() {
  constexpr std::uint64_t kMostRoom = std::uint64_t{256} << 20;
  constexpr std::uint64_t kRoomForDeclaration = 64;  // that its reader may put in front
  const std::uint64_t length = Unsigned(Get<curl_off_t>(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T));
  if (length > 0)
    m_body->reserve(std::min({length, kMostRoom, m_maxReplyBytes}) + kRoomForDeclaration);
}

bool HTTPTransfer::Session::IsConnected() const {
  return Get<curl_off_t>(CURLINFO_PRETRANSFER_TIME_T) != 0;
}

bool HTTPTransfer::Session::IsSilent() const {
  return m_timeoutSeconds > 0 &&
         Clock::now() - m_lastActivity >= std::chrono::seconds(m_timeoutSeconds);
}

CURLcode HTTPTransfer::Session::Wait() {
  m_lastActivity = Clock::now();
  bool isFirst = true;
  for (;;) {
    int running = 0;
    if (curl_multi_perform(m_multi, &running) != CURLM_OK) return CURLE_OUT_OF_MEMORY;
    if (running == 0) break;
    if (isFirst) MarkResolverSockets();
    isFirst = false;
    if (curl_multi_poll(m_multi, nullptr, 0, kSliceMilliseconds, nullptr) != CURLM_OK)
      return CURLE_OUT_OF_MEMORY;
    if (IsThreadToStop()) {
      m_end = HTTPFailure::kCancelled;
      return CURLE_ABORTED_BY_CALLBACK;
    }
    // Until the connection stands, libcurl's own time-out holds.
    if (!IsConnected()) m_lastActivity = Clock::now();
    if (IsSilent()) {
      m_end =
          Get<long>(CURLINFO_RESPONSE_CODE) == 0 ? HTTPFailure::kNoAnswer : HTTPFailure::kSilence;
      return CURLE_OPERATION_TIMEDOUT;
    }
  }
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(m_multi, &left))
    if (message->msg == CURLMSG_DONE)
      // libcurl takes headers that end with the connection for a reply without a body.
      return message->data.result == CURLE_OK && !m_head.IsWhole() ? CURLE_PARTIAL_FILE
                                                                   : message->data.result;
  return CURLE_OUT_OF_MEMORY;
}

/// While libcurl resolves a host name, a thread of its own tells the result through a pair of
/// sockets. It is the only thing libcurl waits for that OnOpenSocket has not opened. libcurl leaves
/// numbers out that do not fit into the sets.
void HTTPTransfer::Session::MarkResolverSockets() {
  fd_set readable;
  fd_set other;
  FD_ZERO(&readable);
  FD_ZERO(&other);
  int highest = -1;
  if (curl_multi_fdset(m_multi, &readable, &other, &other, &highest) != CURLM_OK) return;
  for (int descriptor = 0; descriptor <= highest; ++descriptor)
    if (FD_ISSET(descriptor, &readable) && (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0)
      CloseOnExec::MarkPair(descriptor);
}

/// After a refusal of Digest, libcurl takes the next offer for one that it has read already, and
/// overlooks its nonce. A copy of the handle has its settings alone.
void HTTPTransfer::Session::ForgetRefusal() {
  CURL* const fresh = curl_easy_duphandle(m_easy);
  if (!fresh) throw std::bad_alloc();
  curl_easy_cleanup(m_easy);
  m_easy = fresh;
}

CURLcode HTTPTransfer::Session::RunOnce() {
  if (m_logIns.WasDigestRefused()) ForgetRefusal();
  m_body->clear();
  m_head.BeginRequest();
  m_reason[0] = '\0';
  const std::string cookies = m_cookies.ForRequest();
  Set(CURLOPT_COOKIE, cookies.empty() ? nullptr : cookies.c_str());
  Set(CURLOPT_HTTPAUTH, ForCurl(m_logIns.ServiceScheme()));
  Set(CURLOPT_PROXYAUTH, ForCurl(m_logIns.ProxyScheme()));
  if (curl_multi_add_handle(m_multi, m_easy) != CURLM_OK) return CURLE_OUT_OF_MEMORY;
  const CURLcode code = Wait();
  if (code != CURLE_OK && Get<curl_off_t>(CURLINFO_NAMELOOKUP_TIME_T) == 0) KeepLibraryLoaded();
  curl_multi_remove_handle(m_multi, m_easy);
  return code;
}

CURLcode HTTPTransfer::Session::Run() {
  m_head.BeginExchange();
  m_logIns.BeginExchange();
  CURLcode code;
  do {
    code = RunOnce();
    // libcurl replaces a kept connection that turns out to be closed, but counts these over all
    // requests and refuses every sixth time.
    if (code == CURLE_SEND_ERROR && Get<long>(CURLINFO_NUM_CONNECTS) == 0) code = RunOnce();
  } while (LogsInAgain(code));
  if (code == CURLE_OK && IsOverRatio(0)) {
    m_end = HTTPFailure::kRatioTooHigh;
    code = CURLE_WRITE_ERROR;
  }
  return code;
}

/// After a refused log-in: true when the request is worth another try.
bool HTTPTransfer::Session::LogsInAgain(CURLcode code) {
  HTTPRound round;
  round.isWhole = code == CURLE_OK;
  round.status = Get<long>(CURLINFO_RESPONSE_CODE);
  round.connectStatus = Get<long>(CURLINFO_HTTP_CONNECTCODE);
  round.offeredByService = FromCurl(Get<long>(CURLINFO_HTTPAUTH_AVAIL));
  round.offeredByProxy = FromCurl(Get<long>(CURLINFO_PROXYAUTH_AVAIL));
  if (const char* const peer = Get<const char*>(CURLINFO_PRIMARY_IP)) round.peer = peer;
  return m_logIns.TakeRound(round) && m_end == HTTPFailure::kNone;
}

void HTTPTransfer::Session::Post(const NarrowString& body, HTTPAnswer& answer) {
  std::optional<SignalBlock> noPipeSignal;
  if (m_mayUseTLS) noPipeSignal.emplace(SIGPIPE);
  m_body = &answer.body;
  m_end = HTTPFailure::kNone;
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
  answer.schemes = m_head.Schemes();
  answer.logInAdvice = m_logIns.Advice();
  answer.basicInClear = m_logIns.WasBasicInClear();
  if (code != CURLE_OK) DescribeFailure(code, answer);
}

void HTTPTransfer::Session::DescribeFailure(CURLcode code, HTTPAnswer& answer) {
  HTTPFailureFacts facts;
  facts.failure = m_end != HTTPFailure::kNone ? m_end : FailureOf(code);
  facts.number = NumberOf(facts.failure);
  facts.proxyStatus = answer.status == 0 ? Get<long>(CURLINFO_HTTP_CONNECTCODE) : 0;
  facts.systemError = static_cast<int>(Get<long>(CURLINFO_OS_ERRNO));
  facts.reason = FromBytes(m_reason);
  if (facts.reason.empty() && facts.failure == HTTPFailure::kOther)
    facts.reason = FromBytes(curl_easy_strerror(code));
  answer.failure = facts.failure;
  DescribeHTTPFailure(facts, answer.failureText, answer.advice);
}

/// The number that the text of a failure tells.
std::uint64_t HTTPTransfer::Session::NumberOf(HTTPFailure failure) const {
  switch (failure) {
    case HTTPFailure::kReplyTooLong:
      return m_maxReplyBytes;
    case HTTPFailure::kHeadersTooLong:
      return m_maxHeaderBytes;
    case HTTPFailure::kRatioTooHigh:
      return m_maxRatio;
    default:
      return m_timeoutSeconds;
  }
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
