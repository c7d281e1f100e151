#include <signal.h>

#include <iostream>
#include <optional>

#include "BuildVersion.h"
#include "CommandLine.h"

namespace {

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
  sample::CommandLine call(XMLA_BUILD_VERSION);
  std::optional<sample::Options> options;
  try {
    int status = 0;
    options = call.Read(argc, argv, status);
    if (!options) return status;
  } catch (const std::exception& error) {
    std::cerr << "xmla-sample-provider: error: " << error.what() << '\n';
    return 2;
  }

  const sigset_t signals = HoldSignals();
  try {
    const sample::Provider provider(*options);
    for (const char* kind : {"analysis-services", "sap-bw", "tamarind"})
      std::cout << provider.Url(*sample::KindFromName(kind)) << '\n';
    std::cout << std::flush;
    int received = 0;
    while (sigwait(&signals, &received) != 0) continue;
  } catch (const std::exception& error) {
    std::cerr << "xmla-sample-provider: error: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
