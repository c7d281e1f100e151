#include "ServerProcess.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "loopback-server/Server.h"

namespace {

void Serve(const ServerProcess::Handler& handler, std::chrono::milliseconds delay, int told) {
  const loopback::Server server(
      [&](loopback::Connection& connection, const loopback::Request& request) {
        const std::string& body = handler(request.body);
        if (delay.count() > 0) std::this_thread::sleep_for(delay);
        std::string head =
            "HTTP/1.1 200 OK\r\nContent-Type: text/xml; charset=utf-8\r\nContent-Length: " +
            std::to_string(body.size()) + "\r\n\r\n";
        if (body.size() < 65536) {
          connection.Send(head.append(body));  // in one packet, like real servers
        } else {
          connection.Send(head);
          connection.Send(body);
        }
      },
      {.requestsKept = 0});
  const int port = server.Port();
  if (write(told, &port, sizeof port) != sizeof port) _exit(1);
  for (;;) pause();
}

}  // namespace

ServerProcess::ServerProcess(Handler handler, std::chrono::milliseconds delay) {
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("cannot create a pipe for the server");
  m_child = fork();
  if (m_child < 0) throw std::runtime_error("cannot create a process for the server");
  if (m_child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    close(ends[0]);
    Serve(handler, delay, ends[1]);
  }
  close(ends[1]);
  int port = 0;
  const ssize_t got = read(ends[0], &port, sizeof port);
  close(ends[0]);
  if (got != sizeof port) throw std::runtime_error("the server found no free port");
  m_url = "http://127.0.0.1:" + std::to_string(port) + "/xmla";
}

ServerProcess::~ServerProcess() {
  kill(m_child, SIGKILL);
  waitpid(m_child, nullptr, 0);
}
