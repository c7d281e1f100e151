#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace support {

/// What a client sent.
struct Request {
  std::string method;
  std::string path;
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;
  int connection = 0;  ///< the client's port: equal for requests on one connection

  /// The values of the header, joined by "|"; names are compared ignoring case.
  std::string Header(const std::string& name) const;
};

/// What the server answers.
struct Reply {
  std::string body;
  int status = 200;
  std::string contentType = "text/xml";
};

/// An HTTP server on a free loopback port that answers as it is told and remembers what it was
/// asked.
class ScriptedServer {
 public:
  using Handler = std::function<Reply(const Request&)>;
  explicit ScriptedServer(Handler handler);
  /// Answers with the replies in order; a request too many gets a status 500 without fault.
  explicit ScriptedServer(std::vector<Reply> replies);
  ~ScriptedServer();

  std::string Url() const;
  /// The requests so far, in order of arrival.
  std::vector<Request> Requests() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
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
