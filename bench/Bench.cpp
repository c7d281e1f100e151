// Prints the table of what the library's work costs beside what no client can do without.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Floor.h"
#include "Import/OTXMLAImportEntry.h"
#include "LoopbackServer.h"
#include "Measure.h"
#include "Replies.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/XMLASAX/XmlADiscoverAgent.h"

namespace {

String Wide(const std::string& ascii) { return String(std::wstring(ascii.begin(), ascii.end())); }

XmlADiscoverAgentHeap MakeAgent(const std::string& url) {
  return XmlADiscoverAgent::Create(Wide(url), String(), String(), ServerInfo::kAnalysisServices2005,
                                   ServerInfo::kCLIXMLA, false);
}

using Measures = std::vector<RefCnt<XmlAMeasure>>;

void GetMeasures(XmlADiscoverAgent& agent, Measures& measures, std::size_t expected) {
  agent.GetMeasuresOnCatalogCube(measures, L"Foodmart", L"Sales", L"Local");
  if (measures.size() != expected) throw std::runtime_error("rows are missing");
}

/// One line of the table. `met` tells whether `figure` is within what is to be reached.
void Print(const char* what, const std::string& floor, const std::string& ours,
           const std::string& figure, const std::string& reach, bool met) {
  std::printf("%-44s %14s %14s %10s  %-14s %s\n", what, floor.c_str(), ours.c_str(), figure.c_str(),
              reach.c_str(), met ? "met" : "NOT MET");
  std::fflush(stdout);
}

template <class... Arguments>
std::string Format(const char* format, Arguments... arguments) {
  char text[64];
  std::snprintf(text, sizeof text, format, arguments...);
  return text;
}

// A request of the size that the library sends.
const std::string kRequest(1100, ' ');

void LargeReply() {
  constexpr std::size_t kRows = 178000;
  const std::string reply = replies::Measures(kRows);
  LoopbackServer server([&](std::string_view) -> const std::string& { return reply; });
  const auto size = static_cast<double>(reply.size());

  const std::vector<double> memory = measure::InChild([&] {
    Measures measures;
    const auto agent = MakeAgent(server.Url());
    GetMeasures(*agent, measures, kRows);
    return std::vector<double>{};
  });
  // The child has the server's reply in its own memory, being the server's brother.
  const std::vector<double> idle = measure::InChild([&] {
    const auto agent = MakeAgent(server.Url());
    return std::vector<double>{static_cast<double>(std::count(reply.begin(), reply.end(), '<'))};
  });
  const double peak = memory.back() - idle.back() + size;

  const std::vector<double> times = measure::InChild([&] {
    Floor floor(server.Url());
    const auto agent = MakeAgent(server.Url());
    const measure::Pairs pairs = measure::InPairs(
        5, [&] { Floor::Parse(floor.Receive(kRequest)); },
        [&] {
          Measures measures;
          GetMeasures(*agent, measures, kRows);
        });
    return std::vector<double>{pairs.floor, pairs.ours, pairs.ratio};
  });
  Print("reply of 100 MB, 13 columns a row", Format("%.0f ms", times[0] * 1e3),
        Format("%.0f ms", times[1] * 1e3), Format("%.2f x", times[2]), "<= 2.5 x", times[2] <= 2.5);
  Print("its peak memory", Format("%.0f MB", size / 1e6), Format("%.0f MB", peak / 1e6),
        Format("%.2f x", peak / size), "<= 6 x", peak <= 6 * size);
}

void Allocations() {
  constexpr std::size_t kRows = 20000;
  const std::string reply = replies::Measures(kRows);
  LoopbackServer server([&](std::string_view) -> const std::string& { return reply; });
  const std::vector<double> result = measure::InChild([&] {
    const auto agent = MakeAgent(server.Url());
    Measures measures;
    GetMeasures(*agent, measures, kRows);
    measures = Measures();
    return std::vector<double>{
        static_cast<double>(measure::Allocations([&] { GetMeasures(*agent, measures, kRows); }))};
  });
  const double each = result[0] / kRows;
  Print("heap allocations a row of 13 columns", "-", Format("%.1f", each), Format("%.1f", each),
        "<= 15", each <= 15);
}

void SmallReply() {
  const std::string reply = replies::Measures(3);
  LoopbackServer server([&](std::string_view) -> const std::string& { return reply; });
  const std::vector<double> times = measure::InChild([&] {
    Floor floor(server.Url());
    const auto agent = MakeAgent(server.Url());
    const measure::Pairs pairs = measure::InPairs(
        5000, [&] { Floor::Parse(floor.Receive(kRequest)); },
        [&] {
          Measures measures;
          GetMeasures(*agent, measures, 3);
        });
    return std::vector<double>{pairs.floor, pairs.ours, pairs.ratio};
  });
  Print("reply of 2 KB, connection kept alive", Format("%.1f us", times[0] * 1e6),
        Format("%.1f us", times[1] * 1e6), Format("%.2f x", times[2]), "<= 1.5 x", times[2] <= 1.5);
}

std::unique_ptr<OTXMLAImportAPI> MakeImport(const std::string& url) {
  std::unique_ptr<OTXMLAImportAPI> import(OTXMLACreateImport());
  import->SetupConnInfo(Wide(url), String(), String(), ServerInfo::kAnalysisServices2005,
                        ServerInfo::kCLIXMLA);
  import->SetImportChoiceInfo(L"Local", L"Foodmart", L"Sales");
  return import;
}

void ImportHierarchies(OTXMLAImportAPI& import, std::vector<OTXMLAHierarchy>& hierarchies,
                       std::size_t expected) {
  String errors;
  String warnings;
  import.GetHierarchies(hierarchies, errors, warnings);
  if (hierarchies.size() != expected || !errors.empty() || !warnings.empty())
    throw std::runtime_error("the import failed");
}

/// Time and memory of each hierarchy must not grow with their number.
void Growth() {
  struct Size {
    std::size_t hierarchies;
    int rounds;
  };
  constexpr Size kSizes[] = {{100, 25}, {1000, 5}, {10000, 1}};
  double firstTime = 0;
  double firstBytes = 0;
  for (const Size& size : kSizes) {
    const replies::Cube cube(size.hierarchies);
    LoopbackServer server(
        [&](std::string_view request) -> const std::string& { return cube.Answer(request); });
    const std::vector<double> result = measure::InChild([&] {
      const auto import = MakeImport(server.Url());
      std::vector<OTXMLAHierarchy> hierarchies;
      ImportHierarchies(*import, hierarchies, size.hierarchies);
      hierarchies = {};
      std::vector<double> times;
      const double before = measure::HeldBytes();
      double bytes = 0;
      for (int i = 0; i < size.rounds; ++i) {
        hierarchies = {};
        times.push_back(
            measure::Seconds([&] { ImportHierarchies(*import, hierarchies, size.hierarchies); }));
        bytes = measure::HeldBytes() - before;
      }
      return std::vector<double>{measure::Median(times), bytes};
    });
    const double time = result[0] / static_cast<double>(size.hierarchies);
    const double bytes = result[1] / static_cast<double>(size.hierarchies);
    if (firstTime == 0) firstTime = time;
    if (firstBytes == 0) firstBytes = bytes;
    const std::string count = std::to_string(size.hierarchies);
    Print((count + " hierarchies, time of each").c_str(), Format("%.0f us", firstTime * 1e6),
          Format("%.0f us", time * 1e6), Format("%.2f x", time / firstTime), "within 10 %",
          time <= 1.1 * firstTime);
    Print((count + " hierarchies, memory of each").c_str(), Format("%.0f B", firstBytes),
          Format("%.0f B", bytes), Format("%.2f x", bytes / firstBytes), "within 10 %",
          bytes <= 1.1 * firstBytes);
  }
}

/// Imports that many cubes, each with an import object of its own, in that many threads.
void ImportCubes(const std::string& url, int cubes, int threads) {
  std::vector<std::thread> workers;
  std::atomic<int> next{0};
  for (int i = 0; i < threads; ++i) {
    workers.emplace_back([&] {
      const auto import = MakeImport(url);
      while (next++ < cubes) {
        std::vector<OTXMLAHierarchy> hierarchies;
        ImportHierarchies(*import, hierarchies, 1);
      }
    });
  }
  for (std::thread& worker : workers) worker.join();
}

void Jobs(const char* what, std::chrono::milliseconds delay, int rounds, int cubes, int jobs,
          double reach) {
  const replies::Cube cube(1);
  LoopbackServer server(
      [&](std::string_view request) -> const std::string& { return cube.Answer(request); }, delay);
  const std::vector<double> times = measure::InChild([&] {
    const measure::Pairs pairs = measure::InPairs(
        rounds, [&] { ImportCubes(server.Url(), cubes, 1); },
        [&] { ImportCubes(server.Url(), cubes, jobs); });
    return std::vector<double>{pairs.floor, pairs.ours, pairs.ratio};
  });
  const double gain = 1 / times[2];
  Print(what, Format("%.0f ms", times[0] * 1e3), Format("%.0f ms", times[1] * 1e3),
        Format("%.2f x", gain), Format(">= %.1f x", reach), gain >= reach);
}

constexpr struct {
  const char* name;
  void (*measure)();
} kRows[] = {
    {"large", &LargeReply},
    {"allocations", &Allocations},
    {"small", &SmallReply},
    {"growth", &Growth},
    {"waiting",
     [] {
       Jobs("64 cubes, server waits 50 ms, 16 threads", std::chrono::milliseconds(50), 1, 64, 16,
            14);
     }},
    {"jobs", [] { Jobs("64 cubes, 2 threads", {}, 9, 64, 2, 1.6); }},
};

}  // namespace

int main(int count, char** arguments) {
  for (int i = 1; i < count; ++i) {
    const auto isName = [&](const auto& row) { return std::strcmp(row.name, arguments[i]) == 0; };
    if (std::any_of(std::begin(kRows), std::end(kRows), isName)) continue;
    std::printf("usage: xmla-bench [ROW...]\nrows:");
    for (const auto& row : kRows) std::printf(" %s", row.name);
    std::printf("\n");
    return std::strcmp(arguments[i], "--help") == 0 ? 0 : 2;
  }
  std::printf("%-44s %14s %14s %10s  %s\n", "what", "floor", "ours", "figure", "reach");
  try {
    for (const auto& row : kRows) {
      const bool wanted =
          count == 1 || std::any_of(arguments + 1, arguments + count, [&](const char* name) {
            return std::strcmp(row.name, name) == 0;
          });
      if (wanted) row.measure();
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "xmla-bench: %s\n", error.what());
    return 1;
  }
}
