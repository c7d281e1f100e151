#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace login {

/// A server program. It ends with this object, and also if this process is killed.
class ServerProcess {
 public:
  /// Runs a command (the first word is a path) with additional environment variables. Its output
  /// goes to the file `output`.
  ServerProcess(std::vector<std::string> command,
                const std::map<std::string, std::string>& environment, const std::string& output);
  ~ServerProcess();
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  bool HasEnded();
  /// Waits until the server is ready. False if it has ended. Throws std::runtime_error with its
  /// output after ten seconds.
  bool Await(const std::function<bool()>& isReady);

 private:
  const std::string m_output;
  pid_t m_keeper = 0;   // a process that ends the server
  int m_lifeline = -1;  // the keeper sees its end
};

/// Returns the contents of the file, or an empty text if the file does not exist.
std::string FileText(const std::string& path);

}  // namespace login
