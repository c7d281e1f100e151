#include "support/ScriptedServer.h"

#include <utility>

namespace support {

ScriptedServer::ScriptedServer(Handler handler, int port)
    : m_server(
          [handler = std::move(handler)](loopback::Connection& connection, const Request& request) {
            const Reply reply = handler(request);
            connection.Send(loopback::Answer(reply.body, reply.status,
                                             "Content-Type: " + reply.contentType + "\r\n"));
          },
          loopback::Options{.port = port}) {}

ScriptedServer::ScriptedServer(std::vector<Reply> replies)
    : ScriptedServer([replies, next = std::size_t{0}](const Request&) mutable {
        return next < replies.size() ? replies[next++]
                                     : Reply{"no more replies", 500, "text/plain"};
      }) {}

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
