#include "support/ScriptedServer.h"

#include <httplib.h>
#include <strings.h>

#include <mutex>
#include <thread>

namespace support {

std::string Request::Header(const std::string& name) const {
  std::string found;
  for (const auto& [key, value] : headers) {
    if (strcasecmp(key.c_str(), name.c_str()) != 0) continue;
    if (!found.empty()) found += "|";
    found += value;
  }
  return found;
}

struct ScriptedServer::Impl {
  httplib::Server server;
  Handler handler;
  mutable std::mutex mutex;
  std::vector<Request> requests;
  int port = 0;
  std::thread thread;
};

ScriptedServer::ScriptedServer(Handler handler) : m_impl(std::make_unique<Impl>()) {
  m_impl->handler = std::move(handler);
  // A client keeps its connection; a worker is needed for each client of a test.
  m_impl->server.new_task_queue = [] { return new httplib::ThreadPool(8); };
  m_impl->server.set_keep_alive_max_count(1000000);
  m_impl->server.set_tcp_nodelay(true);
  const auto answer = [impl = m_impl.get()](const httplib::Request& in, httplib::Response& out) {
    Request request{
        in.method, in.path, in.body, {in.headers.begin(), in.headers.end()}, in.remote_port};
    {
      const std::lock_guard lock(impl->mutex);
      impl->requests.push_back(request);
    }
    const Reply reply = impl->handler(request);
    // What it wrote is there for the next request, which another thread may answer.
    { const std::lock_guard lock(impl->mutex); }
    out.status = reply.status;
    out.set_content(reply.body, reply.contentType);
  };
  m_impl->server.Post(".*", answer);
  m_impl->server.Get(".*", answer);
  m_impl->port = m_impl->server.bind_to_any_port("127.0.0.1");
  m_impl->thread = std::thread([impl = m_impl.get()] { impl->server.listen_after_bind(); });
  while (!m_impl->server.is_running()) std::this_thread::yield();  // else it could not be stopped
}

ScriptedServer::ScriptedServer(std::vector<Reply> replies)
    : ScriptedServer([replies, next = std::size_t{0}](const Request&) mutable {
        return next < replies.size() ? replies[next++]
                                     : Reply{"no more replies", 500, "text/plain"};
      }) {}

ScriptedServer::~ScriptedServer() {
  m_impl->server.stop();
  m_impl->thread.join();
}

std::string ScriptedServer::Url() const {
  return "http://127.0.0.1:" + std::to_string(m_impl->port) + "/xmla";
}

std::vector<Request> ScriptedServer::Requests() const {
  const std::lock_guard lock(m_impl->mutex);
  return m_impl->requests;
}

std::string RowsetReply(const std::string& rows) {
  return "<?xml version=\"1.0\"?>\n"
         "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\">"
         "<SOAP-ENV:Body><DiscoverResponse xmlns=\"urn:schemas-microsoft-com:xml-analysis\">"
         "<return><root xmlns=\"urn:schemas-microsoft-com:xml-analysis:rowset\">" +
         rows + "</root></return></DiscoverResponse></SOAP-ENV:Body></SOAP-ENV:Envelope>\n";
}

std::string RowsetReply(const std::string& column, const std::vector<std::string>& values) {
  std::string rows;
  for (const std::string& value : values)
    rows += "<row><" + column + ">" + value + "</" + column + "></row>";
  return RowsetReply(rows);
}

std::string FaultReply(const std::string& code, const std::string& text) {
  return "<?xml version=\"1.0\"?>\n"
         "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\">"
         "<SOAP-ENV:Body><SOAP-ENV:Fault><faultcode>" +
         code + "</faultcode><faultstring>" + text +
         "</faultstring></SOAP-ENV:Fault></SOAP-ENV:Body></SOAP-ENV:Envelope>\n";
}

std::string RequestType(const std::string& request) {
  const std::string open = "<RequestType>";
  const std::size_t from = request.find(open);
  if (from == std::string::npos) return {};
  const std::size_t begin = from + open.size();
  return request.substr(begin, request.find("</RequestType>", begin) - begin);
}

}  // namespace support
