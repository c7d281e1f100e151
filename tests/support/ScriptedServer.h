#pragma once

#include <functional>
#include <string>
#include <vector>

#include "loopback-server/Server.h"

namespace support {

using loopback::Request;

/// What the server answers.
struct Reply {
  std::string body;
  int status = 200;
  std::string contentType = "text/xml";
};

/// An HTTP server on a free loopback port whose replies are texts. It remembers the requests.
class ScriptedServer {
 public:
  using Handler = std::function<Reply(const Request&)>;
  explicit ScriptedServer(Handler handler);
  /// Answers with the replies in order, and then with status 500 without a fault.
  explicit ScriptedServer(std::vector<Reply> replies);

  std::string Url() const { return "http://" + m_server.Authority() + "/xmla"; }
  /// The requests so far, in order of arrival.
  std::vector<Request> Requests() const { return m_server.Requests(); }

 private:
  loopback::Server m_server;
};
/// A reply as XMLA servers send it, with the given text inside its root element.
std::string RowsetReply(const std::string& rows);
/// The same with rows of one column each.
std::string RowsetReply(const std::string& column, const std::vector<std::string>& values);
/// A SOAP fault.
std::string FaultReply(const std::string& code, const std::string& text);
/// The text of the RequestType element of a Discover request.
std::string RequestType(const std::string& request);

}  // namespace support
