#include "Scale.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "Measure.h"
#include "Replies.h"
#include "ServerProcess.h"
#include "Table.h"
#include "Tool.h"

namespace {

constexpr std::size_t kCubes = 1000;
constexpr std::size_t kHierarchies = 10;
constexpr std::size_t kMeasures = 50;

struct Traffic {
  unsigned long requests = 0;
  double sent = 0;
  double received = 0;
};

/// Adds up the lines of --verbose, one per exchange.
Traffic TrafficOf(const std::string& lines) {
  Traffic traffic;
  for (std::size_t at = 0; (at = lines.find(", sent ", at)) != std::string::npos; ++at) {
    unsigned long sent = 0;
    unsigned long received = 0;
    if (std::sscanf(lines.c_str() + at, ", sent %lu bytes, received %lu bytes", &sent, &received) !=
        2)
      throw std::runtime_error("the line of an exchange has another form");
    ++traffic.requests;
    traffic.sent += static_cast<double>(sent);
    traffic.received += static_cast<double>(received);
  }
  return traffic;
}

void Report(const std::string& what, const std::string& cost) {
  Print(what.c_str(), "", cost, "", "no target", true);
}

/// The server waits this long before each reply, like a server in the same building.
constexpr std::chrono::milliseconds kDelay(1);

}  // namespace

void Scale() {
  const replies::Provider provider(kCubes, kHierarchies, kMeasures);
  ServerProcess server(
      [&](std::string_view request) -> const std::string& { return provider.Answer(request); },
      kDelay);
  const std::string file = "/tmp/xmla-bench." + std::to_string(getpid()) + ".result";
  const auto call = [&](const std::string& format, int jobs, const char* output) {
    return std::vector<std::string>{"--url", server.Url(), output, "import", "--format",
                                    format,  "-o",         file,   "--jobs", std::to_string(jobs)};
  };
  const Traffic traffic = TrafficOf(ErrorOutputOf("xmla-import", call("ndjson", 8, "--verbose")));
  Report("1,000 cubes of 10 hierarchies: requests", std::to_string(traffic.requests));
  Report("  sent", Format("%.0f MB", traffic.sent / 1e6));
  Report("  received", Format("%.0f MB", traffic.received / 1e6));
  for (const int jobs : {1, 8}) {
    const double seconds =
        measure::Seconds([&] { RunProgram("xmla-import", call("ndjson", jobs, "--quiet")); });
    Report("  time with --jobs " + std::to_string(jobs) + ", 1 ms per reply",
           Format("%.0f s", seconds));
  }
  for (const char* format : {"ndjson", "json", "csv", "xlsx", "html"})
    Report(std::string("  peak memory, ") + format,
           Format("%.0f MB", PeakMemoryOf("xmla-import", call(format, 8, "--quiet")) / 1e6));
  unlink(file.c_str());
}
