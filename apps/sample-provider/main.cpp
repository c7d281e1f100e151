#include <signal.h>

#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>

#include "SampleProvider.h"

namespace {

/// The first line of the file, without byte-order mark and carriage return.
std::string ReadPassword(const std::string& file) {
  std::ifstream in(file);
  std::string line;
  if (!std::getline(in, line) && !in.eof())
    throw std::runtime_error("Cannot read the password file " + file + ".");
  if (!line.empty() && line.back() == '\r') line.pop_back();
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (line.starts_with(kByteOrderMark)) line.erase(0, kByteOrderMark.size());
  return line;
}

/// Blocks SIGINT and SIGTERM in this thread and in the threads it starts, so that main can wait for
/// them.
sigset_t HoldSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

}  // namespace

int main(int argc, char** argv) {
  sample::Options options;
  int latency = 0;
  std::string passwordFile;
  CLI::App app(
      "Serves sample cubes like three kinds of XMLA server on the loopback interface, until it "
      "is interrupted.",
      "xmla-sample-provider");
  app.add_option("--port", options.port, "the port to listen on (0: any free port)")
      ->check(CLI::Range(0, 65535));
  app.add_option("--latency", latency, "milliseconds to wait before every reply")
      ->check(CLI::Range(0, 3'600'000));
  app.add_flag("--compress", options.compress, "compress replies for clients that accept it");
  app.add_flag("--wide-cube", options.wideCube,
               "add a cube with 175 hierarchies, named Wide, to the first catalog");
  auto* user = app.add_option("--user", options.user, "require the credentials of this user");
  auto* file = app.add_option("--password-file", passwordFile,
                              "the user's password: the first line of this file");
  user->needs(file);
  file->needs(user);
  app.add_option(
      "--mood", options.mood,
      "misbehave: NAME[:NUMBER][@REQUEST_TYPE][/NTH]; with a type only for requests of that "
      "type, such as MDSCHEMA_CUBES, and with NTH only for the NTH of them");
  app.footer("Moods:\n" + sample::MoodHelp());
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }

  const sigset_t signals = HoldSignals();
  try {
    options.latency = std::chrono::milliseconds(latency);
    if (!passwordFile.empty()) options.password = ReadPassword(passwordFile);
    const sample::Provider provider(options);
    for (const char* kind : {"analysis-services", "sap-bw", "tamarind"})
      std::cout << provider.Url(*sample::KindFromName(kind)) << '\n';
    std::cout << std::flush;
    int received = 0;
    while (sigwait(&signals, &received) != 0) continue;
  } catch (const std::exception& error) {
    std::cerr << "xmla-sample-provider: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
