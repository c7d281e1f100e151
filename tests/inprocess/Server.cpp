#include "inprocess/Server.h"

#include <utility>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/VXAssert.h"
#include "http/HTTPConnection.h"
#include "http/HTTPReceiver.h"

namespace {

inprocess::Server& TheServer() {
  static inprocess::Server server = [](std::string_view) {
    return inprocess::Answer{"", 503, "text/plain"};
  };
  return server;
}

}  // namespace

void inprocess::SetServer(Server server) { TheServer() = std::move(server); }

namespace {

/// A request ends when it begins, so there is nothing to wait for.
class InProcessGroup final : public HTTPConnectionGroup {
 public:
  void Wait(int) override {}
  void Wake() noexcept override {}
};

class InProcessConnection final : public HTTPConnection {
 public:
  explicit InProcessConnection(HTTPReceiver& receiver) : m_receiver(receiver) {}

  std::unique_ptr<HTTPConnection> Duplicate(HTTPConnectionGroup&,
                                            HTTPReceiver& receiver) const override {
    return std::make_unique<InProcessConnection>(receiver);
  }
  void SetHeaderLines(const NarrowString&) override {}
  void Begin(const HTTPRequest& request) override {
    const inprocess::Answer given = TheServer()(request.body.view());
    m_info = {};
    m_info.status = given.status;
    m_info.contentType = given.contentType;
    m_info.wireBytes = given.body.size();
    m_receiver.OnBody(given.body, 0, m_info.wireBytes);
  }
  bool IsBusy() const noexcept override { return false; }
  void Cancel() noexcept override {}
  HTTPFailure Failure() const override { return m_receiver.Failure(); }
  HTTPRequestInfo Info() const override { return m_info; }
  String FailureReason() const override { return String(); }

 private:
  HTTPReceiver& m_receiver;
  HTTPRequestInfo m_info;
};

}  // namespace

std::unique_ptr<HTTPConnection> HTTPConnection::Create(const NarrowString&, const NarrowString&,
                                                       const NarrowString&,
                                                       const HTTPClientOptions&,
                                                       HTTPConnectionGroup&,
                                                       HTTPReceiver& receiver) {
  return std::make_unique<InProcessConnection>(receiver);
}

std::unique_ptr<HTTPConnectionGroup> HTTPConnectionGroup::Create(std::size_t) {
  return std::make_unique<InProcessGroup>();
}

std::optional<std::int64_t> SecondsUntilHTTPDate(const std::string&) { return std::nullopt; }

void VXAssert::handleLogicError(const String& file, int line, const String& message) {
  const auto narrow = [](const String& text) {
    return std::string(BaseStringUtil::ToUTF8(text).view());
  };
  throw inprocess::LogicError(narrow(file), line, narrow(message));
}
