#include "inprocess/Server.h"

#include <utility>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/VXAssert.h"
#include "http/HTTPTransfer.h"

namespace {

inprocess::Server& TheServer() {
  static inprocess::Server server = [](std::string_view) {
    return inprocess::Answer{"", 503, "text/plain"};
  };
  return server;
}

}  // namespace

void inprocess::SetServer(Server server) { TheServer() = std::move(server); }

class HTTPTransfer::Session {};

HTTPTransfer::HTTPTransfer(const NarrowString&, const NarrowString&, const NarrowString&,
                           std::uint32_t, const HTTPClientOptions&) {}
HTTPTransfer::~HTTPTransfer() = default;
void HTTPTransfer::SetHeaderLines(const NarrowString&) {}

void HTTPTransfer::Post(const NarrowString& body, HTTPAnswer& answer) {
  const inprocess::Answer given = TheServer()(body.view());
  answer.status = given.status;
  answer.contentType = given.contentType;
  answer.body = NarrowString(std::string_view(given.body));
  answer.wireBytes = given.body.size();
}

void VXAssert::handleLogicError(const String& file, int line, const String& message) {
  const auto narrow = [](const String& text) {
    return std::string(
        BaseStringUtil::StringToStdString(text, BaseStringUtil::kCodePageUTF8).view());
  };
  throw inprocess::LogicError(narrow(file), line, narrow(message));
}
