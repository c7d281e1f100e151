#include "ExemptServerSupport.h"

#include <stdexcept>
#include <utility>

#include "DiscoverService.h"
#include "support/FailingAllocation.h"

namespace reliability {

ExemptServer::ExemptServer(loopback::Handler handler)
    : m_server(std::move(handler),
               {.requestsKept = 0, .onThread = &FailingAllocation::ExemptThisThread}) {}

ExemptServer::ExemptServer()
    : ExemptServer([this](loopback::Connection& connection, const loopback::Request& request) {
        connection.Send(SampleAnswer(request));
      }) {}

const std::string& ExemptServer::SampleAnswer(const loopback::Request& request) {
  const std::string path = request.Target();
  const std::lock_guard lock(m_mutex);
  std::string& answer = m_answers[path + request.body];
  if (answer.empty()) {
    const auto kind = sample::KindFromName(path.substr(1));
    if (!kind) throw std::runtime_error("no such kind: " + path);
    const sample::HttpReply reply = sample::Answer(*kind, request.body);
    answer =
        loopback::Answer(reply.body, reply.status, "Content-Type: " + reply.contentType + "\r\n");
  }
  return answer;
}

}  // namespace reliability
