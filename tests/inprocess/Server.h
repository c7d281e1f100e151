#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

/// Replaces the network by a function, and the end of the process by an exception.
namespace inprocess {

/// A response of the server.
struct Answer {
  std::string body;
  long status = 200;
  std::string contentType = "text/xml";
};

/// Answers one request, on the thread that sends it.
using Server = std::function<Answer(std::string_view request)>;

/// From now on, every HTTP client of the process talks to this server.
void SetServer(Server server);

/// The URL of that server.
inline constexpr const wchar_t* kUrl = L"http://inprocess.test/xmla";

/// Thrown by this program's VXAssert::handleLogicError, which otherwise ends the process.
class LogicError : public std::logic_error {
 public:
  LogicError(std::string file, int line, const std::string& message)
      : std::logic_error(message), m_file(std::move(file)), m_line(line) {}
  /// True for two levels with the same number, the only logic error that a reply can cause.
  bool IsOfLevelNumbers() const { return m_file == "SUXMLASAXAnaTamImport" && m_line == 506; }
  std::string Where() const { return m_file + ":" + std::to_string(m_line); }

 private:
  std::string m_file;
  int m_line;
};

}  // namespace inprocess
