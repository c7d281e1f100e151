#pragma once

#include <functional>
#include <string>
#include <vector>

#include "loopback-server/Server.h"

namespace support {

using loopback::Request;

/// A response of the server.
struct Reply {
  std::string body;
  int status = 200;
  std::string contentType = "text/xml";
};

/// An HTTP server on a loopback port with scripted replies. Records the requests.
class ScriptedServer {
 public:
  using Handler = std::function<Reply(const Request&)>;
  /// Port 0 is a free one.
  explicit ScriptedServer(Handler handler, int port = 0);
  /// Sends the replies in order, then status 500 without a SOAP fault.
  explicit ScriptedServer(std::vector<Reply> replies);

  std::string Url() const { return "http://" + m_server.Authority() + "/xmla"; }
  /// The requests so far, in order of arrival.
  std::vector<Request> Requests() const { return m_server.Requests(); }

 private:
  loopback::Server m_server;
};
/// A reply in the form of XMLA servers, with this text inside its root element.
std::string RowsetReply(const std::string& rows);
/// A reply with rows of one column each.
std::string RowsetReply(const std::string& column, const std::vector<std::string>& values);
/// A SOAP fault.
std::string FaultReply(const std::string& code, const std::string& text);
/// The text of the RequestType element of a Discover request.
std::string RequestType(const std::string& request);

}  // namespace support
