#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

/// What stands in the place of the network, and of what would end the process.
namespace inprocess {

/// What a server answers.
struct Answer {
  std::string body;
  long status = 200;
  std::string contentType = "text/xml";
};

/// Answers one request, on the thread that sent it.
using Server = std::function<Answer(std::string_view request)>;

/// Every HTTP client of the process talks to this server from now on.
void SetServer(Server server);

/// Where that server is, as far as URLs are concerned.
inline constexpr const wchar_t* kUrl = L"http://inprocess.test/xmla";

/// What VXAssert::handleLogicError throws here instead of ending the process.
class LogicError : public std::logic_error {
 public:
  LogicError(std::string file, int line, const std::string& message)
      : std::logic_error(message), m_file(std::move(file)), m_line(line) {}
  /// True for two levels with one number: the only logic error that a reply can bring about.
  bool IsOfLevelNumbers() const { return m_file == "SUXMLASAXAnaTamImport" && m_line == 506; }
  std::string Where() const { return m_file + ":" + std::to_string(m_line); }

 private:
  std::string m_file;
  int m_line;
};

}  // namespace inprocess
