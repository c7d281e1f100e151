#include "SampleProvider.h"

#include <libxml/parser.h>
#include <libxml/uri.h>

#include <atomic>
#include <stdexcept>

#include "CubeCopies.h"
#include "DiscoverService.h"
#include "Gzip.h"
#include "MoodMemory.h"
#include "Wire.h"
#include "loopback-server/Server.h"

namespace sample {
namespace {

constexpr std::chrono::seconds kIdleConnection{60};
constexpr std::size_t kRequestsKept = 4096;

constexpr std::pair<Kind, std::string_view> kKinds[] = {
    {Kind::kAnalysisServices, "analysis-services"},
    {Kind::kSapBw, "sap-bw"},
    {Kind::kTamarind, "tamarind"},
};

std::string Base64(std::string_view bytes) {
  constexpr std::string_view kDigits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const std::string_view group = bytes.substr(at, 3);
    unsigned bits = 0;
    for (std::size_t i = 0; i < 3; ++i)
      bits = bits << 8U | (i < group.size() ? static_cast<unsigned char>(group[i]) : 0U);
    for (std::size_t i = 0; i < 4; ++i)
      text += i <= group.size() ? kDigits[bits >> (18 - 6 * i) & 63U] : '=';
  }
  return text;
}

/// The decoded value of a parameter of the target's query; nothing if it is not there.
std::optional<std::string> Parameter(std::string_view target, std::string_view name) {
  std::size_t begin = target.find('?');
  while (begin != std::string_view::npos) {
    const std::size_t end = target.find('&', ++begin);
    const std::string_view pair = target.substr(begin, end - begin);
    if (pair.substr(0, pair.find('=')) == name) {
      const std::string_view value = pair.substr(std::min(name.size() + 1, pair.size()));
      const std::unique_ptr<char, decltype(xmlFree)> decoded(
          xmlURIUnescapeString(value.data(), static_cast<int>(value.size()), nullptr), xmlFree);
      return decoded ? decoded.get() : "";
    }
    begin = end;
  }
  return std::nullopt;
}

WireReply Page(int status, std::string_view title, std::string_view text) {
  WireReply reply;
  reply.status = status;
  reply.headers = {{"Content-Type", "text/html"}};
  reply.body.append("<html><head><title>").append(title).append("</title></head><body>");
  reply.body.append(text).append("</body></html>\n");
  return reply;
}

/// The reply as this kind of server sends it.
WireReply Proper(Kind kind, HttpReply from, bool compress) {
  WireReply reply;
  reply.status = from.status;
  reply.headers = {{"Content-Type", from.contentType}};
  if (compress) reply.headers.emplace_back("Content-Encoding", "gzip");
  reply.body = compress ? Gzip(from.body) : std::move(from.body);
  // Tamarind does not know the length of a reply when it begins to send it.
  if (kind == Kind::kTamarind) reply.framing = Framing::kChunked;
  return reply;
}

Options Checked(Options options) {
  if (options.port < 0 || options.port > 65535)
    throw std::runtime_error("The port must be between 0 and 65535.");
  if (options.latency.count() < 0) throw std::runtime_error("The latency must not be negative.");
  return options;
}

/// Initialises libxml2 before there are several threads. Returns the metadata with the wide cube,
/// in the order of Kind; empty without it. Metadata without the wide cube are parsed when a request
/// needs them.
std::vector<Metadata> Prepare(bool wideCube) {
  xmlInitParser();
  std::vector<Metadata> wide;
  if (wideCube)
    for (const auto& [kind, name] : kKinds) wide.push_back(MetadataWithWideCube(kind));
  return wide;
}

}  // namespace

std::optional<Kind> KindFromName(std::string_view name) {
  for (const auto& [kind, known] : kKinds)
    if (name == known) return kind;
  return std::nullopt;
}

std::string_view NameOfKind(Kind kind) { return kKinds[static_cast<std::size_t>(kind)].second; }

class Provider::Impl {
 public:
  explicit Impl(Options options)
      : m_options(Checked(std::move(options))),
        m_mood(ParseMood(m_options.mood)),
        m_wide(Prepare(m_options.wideCube)),
        m_server([this](loopback::Connection& connection,
                        const loopback::Request& request) { Serve(connection, request); },
                 {.port = m_options.port, .idle = kIdleConnection, .requestsKept = kRequestsKept}) {
  }

  int MaxRequestsInProgress() const { return m_maxInProgress; }
  loopback::Server& Server() { return m_server; }

 private:
  /// Counts the requests that are being answered.
  class RequestInProgress {
   public:
    explicit RequestInProgress(Impl& provider) : m_provider(provider) {
      const int now = ++provider.m_inProgress;
      int most = provider.m_maxInProgress;
      while (now > most && !provider.m_maxInProgress.compare_exchange_weak(most, now)) continue;
    }
    ~RequestInProgress() { --m_provider.m_inProgress; }
    RequestInProgress(const RequestInProgress&) = delete;
    RequestInProgress& operator=(const RequestInProgress&) = delete;

   private:
    Impl& m_provider;
  };

  void Serve(loopback::Connection& connection, const loopback::Request& request) {
    const RequestInProgress inProgress(*this);
    if (!m_server.Stop().Sleep(m_options.latency)) return;
    SendReply(connection, m_server.Stop(), ReplyTo(request));
  }

  bool IsAllowed(const loopback::Request& request) const {
    return m_options.user.empty() ||
           request.Header("Authorization") ==
               "Basic " + Base64(m_options.user + ':' + m_options.password);
  }

  WireReply ReplyTo(const loopback::Request& request) {
    const std::string target = request.Target();
    const std::string_view path = std::string_view(target).substr(0, target.find('?'));
    const std::optional<Kind> kind = path.empty() ? std::nullopt : KindFromName(path.substr(1));
    if (!kind) return Page(404, "404 Not Found", "There is no XMLA service at this path.");
    if (request.Method() != "POST") {
      WireReply reply = Page(405, "405 Method Not Allowed", "XML for Analysis requests use POST.");
      reply.headers.emplace_back("Allow", "POST");
      return reply;
    }
    if (!IsAllowed(request)) {
      WireReply reply = Page(401, "401 Unauthorized", "A user name and a password are needed.");
      reply.headers.emplace_back("WWW-Authenticate", "Basic realm=\"XMLA sample provider\"");
      return reply;
    }
    std::optional<Mood> mood = m_mood;
    try {
      if (const auto asked = Parameter(target, "mood")) mood = ParseMood(*asked);
    } catch (const std::runtime_error& error) {
      return Page(400, "400 Bad Request", EscapeXml(error.what()));
    }
    const Metadata& metadata =
        m_wide.empty() ? MetadataOf(*kind) : m_wide[static_cast<std::size_t>(*kind)];
    HttpReply reply = m_options.copies > 1 ? AnswerWithCopies(*kind, request.body, m_options.copies)
                                           : Answer(*kind, request.body, metadata);
    if (mood) mood = m_memory.MoodOf(*mood, request.body);
    if (mood) return InMood(*mood, *kind, reply);
    const bool compress =
        m_options.compress && request.Header("Accept-Encoding").find("gzip") != std::string::npos;
    return Proper(*kind, std::move(reply), compress);
  }

  const Options m_options;
  const std::optional<Mood> m_mood;
  MoodMemory m_memory;
  const std::vector<Metadata> m_wide;  // by Kind; empty: the usual ones
  std::atomic<int> m_inProgress{0};
  std::atomic<int> m_maxInProgress{0};
  loopback::Server m_server;  // last: its threads use the others
};

Provider::Provider(Options options) { m_impl = std::make_unique<Impl>(std::move(options)); }
Provider::~Provider() = default;

int Provider::Port() const { return m_impl->Server().Port(); }

int Provider::MaxRequestsInProgress() const { return m_impl->MaxRequestsInProgress(); }

std::string Provider::Url(Kind kind) const {
  return "http://" + m_impl->Server().Authority() + "/" + std::string(NameOfKind(kind));
}

std::vector<loopback::Request> Provider::TakeRequests() { return m_impl->Server().TakeRequests(); }

}  // namespace sample
