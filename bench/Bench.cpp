// Compares the cost of the library and of the tool with a baseline, and prints one table.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Baseline.h"
#include "Import/OTXMLAImportEntry.h"
#include "Measure.h"
#include "Replies.h"
#include "Scale.h"
#include "ServerProcess.h"
#include "Table.h"
#include "Tool.h"
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
  if (measures.size() != expected) throw std::runtime_error("the reply was read with too few rows");
}

// As long as a request of the library.
const std::string kRequest(1100, ' ');

void LargeReply() {
  constexpr std::size_t kRows = 178000;
  const std::string reply = replies::Measures(kRows);
  ServerProcess server([&](std::string_view) -> const std::string& { return reply; });
  const auto size = static_cast<double>(reply.size());

  const std::vector<double> memory = measure::InChild([&] {
    Measures measures;
    const auto agent = MakeAgent(server.Url());
    GetMeasures(*agent, measures, kRows);
    return std::vector<double>{};
  });
  // Both children inherit the server's reply, so it cancels out. The difference is the client's
  // memory, including its own copy of the reply.
  const std::vector<double> idle = measure::InChild([&] {
    const auto agent = MakeAgent(server.Url());
    return std::vector<double>{static_cast<double>(std::count(reply.begin(), reply.end(), '<'))};
  });
  const double peak = memory.back() - idle.back();

  const std::vector<double> times = measure::InChild([&] {
    Baseline baseline(server.Url());
    const auto agent = MakeAgent(server.Url());
    const measure::Pairs pairs = measure::InPairs(
        5, [&] { Baseline::Parse(baseline.Receive(kRequest)); },
        [&] {
          Measures measures;
          GetMeasures(*agent, measures, kRows);
        });
    return std::vector<double>{pairs.baseline, pairs.cost, pairs.ratio};
  });
  Print("reply of 100 MB, 13 columns per row", Format("%.0f ms", times[0] * 1e3),
        Format("%.0f ms", times[1] * 1e3), Format("%.2f x", times[2]), "<= 1.5 x", times[2] <= 1.5);
  Print("its peak memory", Format("%.0f MB", size / 1e6), Format("%.0f MB", peak / 1e6),
        Format("%.2f x", peak / size), "<= 1.8 x", peak <= 1.8 * size);
}

void Allocations() {
  constexpr std::size_t kRows = 20000;
  const std::string reply = replies::Measures(kRows);
  ServerProcess server([&](std::string_view) -> const std::string& { return reply; });
  const std::vector<double> result = measure::InChild([&] {
    const auto agent = MakeAgent(server.Url());
    Measures measures;
    GetMeasures(*agent, measures, kRows);
    measures = Measures();
    return std::vector<double>{
        static_cast<double>(measure::Allocations([&] { GetMeasures(*agent, measures, kRows); }))};
  });
  const double each = result[0] / kRows;
  Print("heap allocations per row of 13 columns", "-", Format("%.1f", each), Format("%.1f", each),
        "<= 8", each <= 8);
}

/// `most` is the target for the ratio; without one the row is only reported.
void SmallReply(const char* what, std::chrono::milliseconds delay, int count,
                std::optional<double> most = {}) {
  const std::string reply = replies::Measures(3);
  std::optional<ServerProcess> server;
  {
    // The server's threads must start on one processor. Otherwise one could be closer to its client
    // than the other.
    const measure::OneProcessor one;
    server.emplace([&](std::string_view) -> const std::string& { return reply; }, delay);
  }
  const std::vector<double> times = measure::InChild([&] {
    Baseline baseline(server->Url());
    const auto agent = MakeAgent(server->Url());
    const measure::Pairs pairs = measure::InPairs(
        count, [&] { Baseline::Parse(baseline.Receive(kRequest)); },
        [&] {
          Measures measures;
          GetMeasures(*agent, measures, 3);
        });
    return std::vector<double>{pairs.baseline, pairs.cost, pairs.ratio};
  });
  Print(what, Format("%.1f us", times[0] * 1e6), Format("%.1f us", times[1] * 1e6),
        Format("%.2f x", times[2]), most ? Format("<= %.1f x", *most) : "no target",
        !most || times[2] <= *most);
}

void SmallReplies() {
  constexpr std::chrono::milliseconds kNone{0};
  SmallReply("reply of 2 KB, connection kept alive", kNone, 5000);
  SmallReply("the same, server delay 1 ms", std::chrono::milliseconds(1), 1000, 1.1);
  {
    const measure::BusyProcessors busy;
    SmallReply("the same, all processors busy", kNone, 3000);
  }
  const measure::OneProcessor one;
  SmallReply("the same, server and client on 1 processor", kNone, 5000);
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

/// Time and memory per hierarchy must not grow with the number of hierarchies. The baseline is the
/// smallest number.
void Growth() {
  constexpr std::size_t kSizes[] = {100, 1000, 10000};
  constexpr std::size_t kMost = 10000;
  std::vector<std::unique_ptr<replies::Provider>> providers;
  std::vector<std::unique_ptr<ServerProcess>> servers;
  for (const std::size_t size : kSizes) {
    const auto& provider = *providers.emplace_back(std::make_unique<replies::Provider>(1, size));
    servers.push_back(std::make_unique<ServerProcess>(
        [&](std::string_view request) -> const std::string& { return provider.Answer(request); }));
  }
  // Interleaves the sizes, so that noise of the machine affects all of them. Each round reads the
  // same total number of hierarchies.
  std::vector<double> times[std::size(kSizes)];
  double bytes[std::size(kSizes)] = {};
  for (int round = 0; round < 3; ++round) {
    for (std::size_t i = 0; i < std::size(kSizes); ++i) {
      const std::vector<double> result = measure::InChild([&] {
        const auto import = MakeImport(servers[i]->Url());
        std::vector<OTXMLAHierarchy> hierarchies;
        const double seconds = measure::Seconds([&] {
          for (std::size_t done = 0; done < kMost; done += kSizes[i])
            ImportHierarchies(*import, hierarchies, kSizes[i]);
        });
        const double held = measure::HeldBytes();
        hierarchies = {};
        return std::vector<double>{seconds / kMost, held - measure::HeldBytes()};
      });
      times[i].push_back(result[0]);
      bytes[i] = result[1] / static_cast<double>(kSizes[i]);
    }
  }
  for (std::size_t i = 0; i < std::size(kSizes); ++i) {
    const double first = measure::Median(times[0]);
    const double time = measure::Median(times[i]);
    const std::string count = std::to_string(kSizes[i]);
    Print((count + " hierarchies, time per hierarchy").c_str(), Format("%.0f us", first * 1e6),
          Format("%.0f us", time * 1e6), Format("%.2f x", time / first), "<= 1.1 x",
          time <= 1.1 * first);
    Print((count + " hierarchies, memory per hierarchy").c_str(), Format("%.0f B", bytes[0]),
          Format("%.0f B", bytes[i]), Format("%.2f x", bytes[i] / bytes[0]), "<= 1.1 x",
          bytes[i] <= 1.1 * bytes[0]);
  }
}

/// The tool's import of 64 cubes with several jobs; the baseline is one job.
void Jobs(const char* what, std::chrono::milliseconds delay, int rounds, int jobs, double target,
          const char* format = "text") {
  const replies::Provider provider(64, 2);
  ServerProcess server(
      [&](std::string_view request) -> const std::string& { return provider.Answer(request); },
      delay);
  const auto import = [&](int count) {
    RunProgram("xmla-import", {"--url", server.Url(), "--quiet", "import", "--format", format,
                               "--jobs", std::to_string(count)});
  };
  const measure::Pairs pairs = measure::InPairs(
      rounds, [&] { import(1); }, [&] { import(jobs); });
  const double gain = 1 / pairs.ratio;
  Print(what, Format("%.0f ms", pairs.baseline * 1e3), Format("%.0f ms", pairs.cost * 1e3),
        Format("%.2f x", gain), Format(">= %.1f x", target), gain >= target);
}

void WaitingJobs() {
  Jobs("import of 64 cubes, 50 ms per reply, 16 jobs", std::chrono::milliseconds(50), 1, 16, 14);
}

void BusyJobs() {
  Jobs("import of 64 cubes, no delay, 2 jobs", {}, 15, 2, 1.6);
  Jobs("the same as JSON", {}, 15, 2, 1.6, "json");
}

/// The sample provider in a process of its own, with the cube "Wide" of 175 hierarchies.
class WideCube {
 public:
  explicit WideCube(int delayMilliseconds)
      : m_provider("xmla-sample-provider",
                   {"--wide-cube", "--latency", std::to_string(delayMilliseconds)}) {}

  /// The arguments of a call that reads it with `jobs` requests at a time.
  std::vector<std::string> Call(int jobs, std::size_t kind = 0) const {
    static const char* const kPlaces[][2] = {{"NORTHQUAY", "Larkspur Retail"},
                                             {"default", "$INFOCUBE"},
                                             {"Provider=Kelvora;Data Source=localhost", "Ferries"}};
    return {"--url",
            m_provider.Lines().at(kind),
            "--format",
            "json",
            "cube",
            "--source",
            kPlaces[kind][0],
            "--catalog",
            kPlaces[kind][1],
            "--cube",
            "Wide",
            "--jobs",
            std::to_string(jobs)};
  }

 private:
  const BackgroundProgram m_provider;
};

/// Read-ahead within one cube; the baseline is one request at a time.
void Ahead(const char* what, int delayMilliseconds, int rounds, int jobs, double target) {
  const WideCube cube(delayMilliseconds);
  const measure::Pairs pairs = measure::InPairs(
      rounds, [&] { RunProgram("xmla-import", cube.Call(1)); },
      [&] { RunProgram("xmla-import", cube.Call(jobs)); });
  const double gain = 1 / pairs.ratio;
  Print(what, Format("%.0f ms", pairs.baseline * 1e3), Format("%.0f ms", pairs.cost * 1e3),
        Format("%.2f x", gain), Format(">= %.2f x", target), gain >= target);
}

/// Requests that were sent ahead and not used, in an import without errors.
void UnusedAhead() {
  static const char* const kNames[] = {"Analysis Services", "SAP BW", "Tamarind"};
  const WideCube cube(1);
  for (std::size_t kind = 0; kind < std::size(kNames); ++kind) {
    std::vector<std::string> call = cube.Call(16, kind);
    call.emplace_back("--verbose");
    const std::string errors = ErrorOutputOf("xmla-import", call);
    const std::size_t line = errors.find("read ahead: ");
    if (line == std::string::npos) throw std::runtime_error("nothing was read ahead");
    unsigned long sent = 0;
    unsigned long used = 0;
    unsigned long repeated = 0;
    unsigned long unused = 0;
    if (std::sscanf(errors.c_str() + line,
                    "read ahead: %lu requests sent, %lu used, %lu failed and sent again, %lu not",
                    &sent, &used, &repeated, &unused) != 4)
      throw std::runtime_error("the line about read-ahead has another form");
    Print((std::string("requests sent ahead, not used: ") + kNames[kind]).c_str(),
          std::to_string(sent), std::to_string(used), std::to_string(unused),
          kind == 0 ? "0" : "no target", kind != 0 || unused == 0);
  }
}

void ReadAhead() {
  Ahead("cube of 175 hierarchies, 50 ms, 16 jobs", 50, 1, 16, 10);
  Ahead("the same, 4 jobs", 50, 1, 4, 3.5);
  Ahead("the same, 5 ms, 4 jobs", 5, 3, 4, 3);
  Ahead("the same, no delay, 2 jobs", 0, 15, 2, 0.95);
  {
    const WideCube cube(50);
    const double one = PeakMemoryOf("xmla-import", cube.Call(1));
    const double many = PeakMemoryOf("xmla-import", cube.Call(16));
    Print("peak memory, 50 ms, 16 jobs", Format("%.1f MB", one / 1e6),
          Format("%.1f MB", many / 1e6), Format("%.2f x", many / one), "<= 1.3 x",
          many <= 1.3 * one);
  }
  UnusedAhead();
}

/// The tool's JSON output for one very large cube.
void LargeCube() {
  constexpr std::size_t kMeasures = 250000;
  const replies::Provider provider(1, 0, kMeasures);
  const std::string& reply = provider.Answer("MDSCHEMA_MEASURES");
  ServerProcess server(
      [&](std::string_view request) -> const std::string& { return provider.Answer(request); });
  const auto size = static_cast<double>(reply.size());
  const std::string request = "MDSCHEMA_MEASURES" + kRequest;
  const std::vector<std::string> call{
      "--url",    server.Url(), "--target",  "analysis-services-2005",
      "--quiet",  "--format",   "json",      "cube",
      "--source", "Local",      "--catalog", "Foodmart",
      "--cube",   "Sales 0"};
  const std::vector<double> times = measure::InChild([&] {
    Baseline baseline(server.Url());
    const measure::Pairs pairs = measure::InPairs(
        5, [&] { Baseline::Parse(baseline.Receive(request)); },
        [&] { RunProgram("xmla-import", call); });
    return std::vector<double>{pairs.baseline, pairs.cost, pairs.ratio};
  });
  const double peak = PeakMemoryOf("xmla-import", call);
  Print("whole process, JSON of 250,000 measures", Format("%.0f ms", times[0] * 1e3),
        Format("%.0f ms", times[1] * 1e3), Format("%.2f x", times[2]), "<= 2.2 x", times[2] <= 2.2);
  Print("its peak memory, relative to the reply", Format("%.0f MB", size / 1e6),
        Format("%.0f MB", peak / 1e6), Format("%.2f x", peak / size), "<= 2.5 x",
        peak <= 2.5 * size);
}

/// The tool's memory must not grow with the number of cubes. The baseline is the smaller number.
void ManyCubes() {
  const std::string file = "/tmp/xmla-bench." + std::to_string(getpid()) + ".json";
  const auto peak = [&](std::size_t cubes) {
    const replies::Provider provider(cubes, 0, 200);
    ServerProcess server(
        [&](std::string_view request) -> const std::string& { return provider.Answer(request); });
    return PeakMemoryOf("xmla-import", {"--url", server.Url(), "--quiet", "--format", "json", "-o",
                                        file, "import"});
  };
  const double few = peak(400);
  const double many = peak(4000);
  unlink(file.c_str());
  Print("peak memory, 4,000 cubes against 400", Format("%.0f MB", few / 1e6),
        Format("%.0f MB", many / 1e6), Format("%.2f x", many / few), "<= 1.3 x", many <= 1.3 * few);
}

void Start() {
  const measure::Pairs pairs = measure::InPairs(
      50, [] { RunProgram("/bin/true", {}); }, [] { RunProgram("xmla-import", {"--version"}); });
  const double more = pairs.cost - pairs.baseline;
  Print("start of xmla-import --version", Format("%.1f ms", pairs.baseline * 1e3),
        Format("%.1f ms", pairs.cost * 1e3), Format("+%.1f ms", more * 1e3), "<= +20 ms",
        more <= 0.020);
}

constexpr struct {
  const char* name;
  void (*measure)();
} kRows[] = {
    {"large", &LargeReply},    {"allocations", &Allocations},
    {"small", &SmallReplies},  {"growth", &Growth},
    {"waiting", &WaitingJobs}, {"jobs", &BusyJobs},
    {"start", &Start},         {"cube", &LargeCube},
    {"cubes", &ManyCubes},     {"ahead", &ReadAhead},
    {"scale", &Scale},
};

}  // namespace

int main(int count, char** arguments) {
  for (int i = 1; i < count; ++i) {
    const auto isName = [&](const auto& row) { return std::strcmp(row.name, arguments[i]) == 0; };
    if (std::any_of(std::begin(kRows), std::end(kRows), isName)) continue;
    std::printf("usage: xmla-bench [NAME...]\nnames:");
    for (const auto& row : kRows) std::printf(" %s", row.name);
    std::printf("\n");
    return std::strcmp(arguments[i], "--help") == 0 ? 0 : 2;
  }
  std::printf("%-44s %14s %14s %10s  %s\n", "row", "baseline", "cost", "result", "target");
  try {
    for (const auto& row : kRows) {
      const bool wanted =
          count == 1 || std::any_of(arguments + 1, arguments + count, [&](const char* name) {
            return std::strcmp(row.name, name) == 0;
          });
      if (wanted) row.measure();
    }
    std::printf("baseline, cost: medians; a result in x: median of the ratios of the pairs\n");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "xmla-bench: %s\n", error.what());
    return 1;
  }
}
