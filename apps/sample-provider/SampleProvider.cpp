#include "SampleProvider.h"

#include <httplib.h>
#include <libxml/parser.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "DiscoverService.h"
#include "MoodMemory.h"
#include "Wire.h"

namespace sample {
namespace {

using std::chrono::milliseconds;

constexpr std::chrono::seconds kIdleConnection{60};
constexpr milliseconds kSlowClient{30'000};
constexpr size_t kRequestsKept = 4096;
constexpr std::string_view kAcceptEncoding = "Accept-Encoding";

constexpr std::pair<Kind, std::string_view> kKinds[] = {
    {Kind::kAnalysisServices, "analysis-services"},
    {Kind::kSapBw, "sap-bw"},
    {Kind::kTamarind, "tamarind"},
};

// The connection as a stream of the HTTP library. The stop signal ends every wait.
class Connection : public httplib::Stream {
 public:
  Connection(int socket, const StopSignal& stop) : socket_(socket), stop_(stop) {}
  ~Connection() override {
    ::shutdown(socket_, SHUT_RDWR);
    ::close(socket_);
  }

  // Waits for the first byte of the next request.
  bool NextRequest() {
    replied_ = false;
    accepted_encoding_.clear();
    return !last_ && (at_ < filled_ || Fill(kIdleConnection));
  }

  // Sends the reply directly. The reply of the HTTP library is then discarded.
  void Send(const WireReply& reply) {
    replied_ = true;
    if (!SendReply(socket_, stop_, reply)) last_ = true;
  }

  std::string& AcceptedEncoding() { return accepted_encoding_; }

  bool is_readable() const override { return true; }
  bool is_writable() const override { return true; }
  ssize_t read(char* to, size_t size) override {
    if (at_ == filled_ && !Fill(kSlowClient)) return -1;
    const size_t count = std::min(size, filled_ - at_);
    std::copy_n(buffer_.begin() + static_cast<std::ptrdiff_t>(at_), count, to);
    at_ += count;
    return static_cast<ssize_t>(count);
  }
  ssize_t write(const char* from, size_t size) override {
    if (!replied_ && !SendBytes(socket_, stop_, {from, size})) return -1;
    return static_cast<ssize_t>(size);
  }
  void get_remote_ip_and_port(std::string& ip, int& port) const override {
    ip = "127.0.0.1";
    port = 0;
  }
  void get_local_ip_and_port(std::string& ip, int& port) const override {
    ip = "127.0.0.1";
    port = 0;
  }
  socket_t socket() const override { return socket_; }

 private:
  bool Fill(milliseconds time) {
    if (!stop_.WaitFor(socket_, POLLIN, time)) return false;
    const ssize_t got = ::recv(socket_, buffer_.data(), buffer_.size(), 0);
    if (got <= 0) return false;
    at_ = 0;
    filled_ = static_cast<size_t>(got);
    return true;
  }

  int socket_;
  const StopSignal& stop_;
  std::array<char, 8192> buffer_{};
  size_t at_ = 0;
  size_t filled_ = 0;
  bool replied_ = false;
  bool last_ = false;
  std::string accepted_encoding_;
};

// The connection of the current thread. Handlers have no other access to it.
thread_local Connection* t_connection = nullptr;

// One thread per connection, so a stalled client does not block others. Idle threads are reused.
class ConnectionThreads : public httplib::TaskQueue {
 public:
  void enqueue(std::function<void()> job) override {
    const std::lock_guard lock(mutex_);
    jobs_.push_back(std::move(job));
    if (idle_ < jobs_.size()) threads_.emplace_back([this] { Work(); });
    wake_.notify_one();
  }

  void shutdown() override {
    {
      const std::lock_guard lock(mutex_);
      done_ = true;
      wake_.notify_all();
    }
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
  }

 private:
  void Work() {
    std::unique_lock lock(mutex_);
    for (;;) {
      ++idle_;
      wake_.wait(lock, [this] { return done_ || !jobs_.empty(); });
      --idle_;
      if (jobs_.empty()) return;
      const std::function<void()> job = std::move(jobs_.front());
      jobs_.pop_front();
      lock.unlock();
      job();
      lock.lock();
    }
  }

  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::function<void()>> jobs_;
  std::vector<std::thread> threads_;
  size_t idle_ = 0;
  bool done_ = false;
};

class HttpServer : public httplib::Server {
 public:
  HttpServer(const StopSignal& stop, bool compress) : stop_(stop), compress_(compress) {}

  // The HTTP library's backlog is five connections. Further clients would wait seconds for the
  // retry of the kernel.
  void WidenBacklog() { ::listen(svr_sock_, SOMAXCONN); }

 private:
  bool process_and_close_socket(socket_t socket) override {
    Connection connection(socket, stop_);
    t_connection = &connection;
    // The HTTP library compresses whenever the client accepts it. Remove the header if compression
    // is off.
    const auto prepare = [&](httplib::Request& request) {
      if (compress_) return;
      connection.AcceptedEncoding() = request.get_header_value(kAcceptEncoding.data());
      request.headers.erase(kAcceptEncoding.data());
    };
    bool closed = false;
    while (!closed && connection.NextRequest()) {
      if (!process_request(connection, false, closed, prepare)) break;
    }
    t_connection = nullptr;
    return true;
  }

  const StopSignal& stop_;
  bool compress_;
};

// Restores the process's SIGPIPE handler, which the HTTP library changes.
class RestoredSignalHandler {
 public:
  RestoredSignalHandler() { ::sigaction(SIGPIPE, nullptr, &before_); }
  ~RestoredSignalHandler() { ::sigaction(SIGPIPE, &before_, nullptr); }
  RestoredSignalHandler(const RestoredSignalHandler&) = delete;
  RestoredSignalHandler& operator=(const RestoredSignalHandler&) = delete;

 private:
  struct sigaction before_ {};
};

std::unique_ptr<HttpServer> MakeServer(const StopSignal& stop, bool compress) {
  const RestoredSignalHandler kept;
  return std::make_unique<HttpServer>(stop, compress);
}

constexpr std::string_view kCopy = ", copy ";

// Repeats the rows of MDSCHEMA_CUBES, with a number after each cube's name. Removes the number from
// requests.
HttpReply AnswerWithCopies(Kind kind, std::string request, int copies) {
  for (size_t at = request.find(kCopy); at != std::string::npos; at = request.find(kCopy, at)) {
    request.erase(at, request.find('<', at) - at);
  }
  HttpReply reply = Answer(kind, request);
  const size_t begin = reply.body.find("<row>");
  if (begin == std::string::npos || RequestTypeOf(request) != "MDSCHEMA_CUBES") return reply;
  const size_t end = reply.body.rfind("</row>") + 6;
  const std::string rows = reply.body.substr(begin, end - begin);
  std::string all;
  for (int copy = 1; copy <= copies; ++copy) {
    size_t done = 0;
    for (size_t at; (at = rows.find("</CUBE_NAME>", done)) != std::string::npos; done = at + 1) {
      all.append(rows, done, at - done).append(kCopy).append(std::to_string(copy)).append("<");
    }
    all.append(rows, done);
  }
  reply.body.replace(begin, end - begin, all);
  return reply;
}

}  // namespace

std::optional<Kind> KindFromName(std::string_view name) {
  for (const auto& [kind, known] : kKinds) {
    if (name == known) return kind;
  }
  return std::nullopt;
}

std::string_view NameOfKind(Kind kind) { return kKinds[static_cast<size_t>(kind)].second; }

class Provider::Impl {
 public:
  explicit Impl(Options options)
      : options_(std::move(options)),
        mood_(ParseMood(options_.mood)),
        server_(MakeServer(stop_, options_.compress)) {
    if (options_.port < 0 || options_.port > 65535) {
      throw std::runtime_error("The port must be between 0 and 65535.");
    }
    if (options_.latency.count() < 0) {
      throw std::runtime_error("The latency must not be negative.");
    }
    xmlInitParser();
    for (const auto& [kind, name] : kKinds) {
      MetadataOf(kind);
      const std::string path = "/" + std::string(name);
      server_->Post(path, [this, kind = kind](const auto& request, auto& response) {
        Serve(kind, request, response);
      });
      server_->Get(path, [this](const auto& request, auto& response) {
        Record(request);
        response.status = 405;
        response.set_header("Allow", "POST");
        response.set_content(
            "<html><head><title>405 Method Not Allowed</title></head>"
            "<body>XML for Analysis requests use POST.</body></html>\n",
            "text/html");
      });
    }
    server_->new_task_queue = [] { return new ConnectionThreads; };
    server_->set_keep_alive_max_count(1'000'000);
    server_->set_keep_alive_timeout(kIdleConnection.count());
    server_->set_tcp_nodelay(true);
    // The HTTP library would set SO_REUSEPORT, so that two providers could share a port.
    server_->set_socket_options([](socket_t socket) {
      const int yes = 1;
      ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    Listen();
  }

  ~Impl() {
    stop_.Raise();
    server_->stop();
    thread_.join();
  }

  int Port() const { return port_; }
  int MaxRequestsInProgress() const { return max_in_progress_; }

  std::vector<Request> TakeRequests() {
    const std::lock_guard lock(mutex_);
    std::vector<Request> taken(std::make_move_iterator(requests_.begin()),
                               std::make_move_iterator(requests_.end()));
    requests_.clear();
    return taken;
  }

 private:
  // Counts the requests that are being answered.
  class RequestInProgress {
   public:
    explicit RequestInProgress(Impl& provider) : provider_(provider) {
      const int now = ++provider_.in_progress_;
      int most = provider_.max_in_progress_;
      while (now > most && !provider_.max_in_progress_.compare_exchange_weak(most, now)) continue;
    }
    ~RequestInProgress() { --provider_.in_progress_; }
    RequestInProgress(const RequestInProgress&) = delete;
    RequestInProgress& operator=(const RequestInProgress&) = delete;

   private:
    Impl& provider_;
  };

  void Listen() {
    port_ = options_.port;
    if (port_ == 0) {
      port_ = server_->bind_to_any_port("127.0.0.1");
    } else if (!server_->bind_to_port("127.0.0.1", port_)) {
      port_ = -1;
    }
    if (port_ <= 0) {
      throw std::runtime_error("Cannot listen on 127.0.0.1, port " + std::to_string(options_.port) +
                               ": it is in use or not permitted. Use another port, or 0.");
    }
    server_->WidenBacklog();
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    // stop() has no effect before the server runs.
    while (!server_->is_running()) std::this_thread::sleep_for(milliseconds(1));
  }

  void Record(const httplib::Request& from) {
    Request request{from.method, from.target, {}, from.body};
    for (const auto& [name, value] : from.headers) {
      // Headers that the HTTP library adds.
      if (name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" ||
          name == "LOCAL_PORT") {
        continue;
      }
      request.headers.emplace_back(name, value);
    }
    if (!t_connection->AcceptedEncoding().empty()) {
      request.headers.emplace_back(kAcceptEncoding, t_connection->AcceptedEncoding());
    }
    const std::lock_guard lock(mutex_);
    requests_.push_back(std::move(request));
    if (requests_.size() > kRequestsKept) requests_.pop_front();
  }

  bool Allowed(const httplib::Request& request) const {
    if (options_.user.empty()) return true;
    const auto wanted = httplib::make_basic_authentication_header(options_.user, options_.password);
    return request.get_header_value("Authorization") == wanted.second;
  }

  void Serve(Kind kind, const httplib::Request& request, httplib::Response& response) {
    Record(request);
    const RequestInProgress in_progress(*this);
    if (!stop_.Sleep(options_.latency)) return;
    if (!Allowed(request)) {
      response.status = 401;
      response.set_header("WWW-Authenticate", "Basic realm=\"XMLA sample provider\"");
      response.set_content(
          "<html><head><title>401 Unauthorized</title></head>"
          "<body>A user name and a password are needed.</body></html>\n",
          "text/html");
      return;
    }
    std::optional<Mood> mood = mood_;
    try {
      if (request.has_param("mood")) mood = ParseMood(request.get_param_value("mood"));
    } catch (const std::runtime_error& error) {
      response.status = 400;
      response.set_content(std::string(error.what()) + "\n", "text/plain");
      return;
    }
    HttpReply reply = options_.copies > 1 ? AnswerWithCopies(kind, request.body, options_.copies)
                                          : Answer(kind, request.body);
    if (mood) mood = memory_.MoodOf(*mood, request.body);
    if (mood) {
      t_connection->Send(InMood(*mood, kind, reply));
      return;
    }
    response.status = reply.status;
    if (kind != Kind::kTamarind) {
      response.set_content(reply.body, reply.content_type);
      return;
    }
    // This kind of server sends replies in chunks.
    response.set_chunked_content_provider(
        reply.content_type, [body = std::move(reply.body)](size_t offset, httplib::DataSink& sink) {
          constexpr size_t kChunk = 8000;
          const std::string_view chunk = std::string_view(body).substr(offset, kChunk);
          if (!chunk.empty()) sink.write(chunk.data(), chunk.size());
          if (offset + chunk.size() == body.size()) sink.done();
          return true;
        });
  }

  Options options_;
  std::optional<Mood> mood_;
  MoodMemory memory_;
  std::atomic<int> in_progress_{0};
  std::atomic<int> max_in_progress_{0};
  StopSignal stop_;
  std::unique_ptr<HttpServer> server_;
  int port_ = 0;
  std::thread thread_;
  std::mutex mutex_;
  std::deque<Request> requests_;
};

Provider::Provider(Options options) : impl_(std::make_unique<Impl>(std::move(options))) {}
Provider::~Provider() = default;

int Provider::Port() const { return impl_->Port(); }

int Provider::MaxRequestsInProgress() const { return impl_->MaxRequestsInProgress(); }

std::string Provider::Url(Kind kind) const {
  return "http://127.0.0.1:" + std::to_string(Port()) + "/" + std::string(NameOfKind(kind));
}

std::vector<Request> Provider::TakeRequests() { return impl_->TakeRequests(); }

}  // namespace sample
