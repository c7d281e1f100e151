#include "ReadAheadSupport.h"

#include <chrono>
#include <memory>
#include <regex>
#include <stdexcept>
#include <thread>

#include "DiscoverService.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/HTTPReadAhead.h"
#include "Utility/XMLASAX/OTXMLAAnaTamImportAPI.h"
#include "support/FailingAllocation.h"
#include "support/Operations.h"
#include "support/TempDir.h"
#include "support/Text.h"

namespace readahead {

using support::Narrow;

Server::Server(Answer answer, std::size_t requestsKept)
    : m_answer(std::move(answer)),
      m_server([this](loopback::Connection& connection,
                      const loopback::Request& request) { Serve(connection, request); },
               {.requestsKept = requestsKept, .onThread = &FailingAllocation::ExemptThisThread}) {}

void Server::Serve(loopback::Connection& connection, const loopback::Request& request) {
  ++m_count;
  const int now = ++m_inProgress;
  int most = m_most;
  while (now > most && !m_most.compare_exchange_weak(most, now)) continue;
  if (maxDelay > 0) {
    std::unique_lock lock(m_mutex);
    const auto delay = std::uniform_int_distribution<int>(0, maxDelay)(m_random);
    lock.unlock();
    m_server.Stop().Sleep(std::chrono::milliseconds(delay / 1000));
    std::this_thread::sleep_for(std::chrono::microseconds(delay % 1000));
  }
  --m_inProgress;  // the client may send the next request as soon as it has the reply
  m_answer(connection, request);
}

namespace {

/// Of a reply without an end, chance decides where it was cut off.
std::string Bytes(std::uint64_t count) {
  return count < 1 << 20 ? std::to_string(count) + " bytes" : std::to_string(count >> 20) + " MiB";
}

class Recorder : public HTTPExchangeObserver {
 public:
  void OnExchange(const HTTPExchangeInfo& info) override {
    exchanges.push_back(Narrow(info.subject) + ": " + std::to_string(info.status) + ", " +
                        Bytes(info.replyBytes) + ", " + std::to_string(info.retries) + " retries" +
                        (info.ok ? "" : ", " + Narrow(info.error)));
  }
  void OnReadAhead(const HTTPReadAheadInfo& info) override { ahead = info; }

  std::vector<std::string> exchanges;
  HTTPReadAheadInfo ahead;
};

/// The logs without times and without the port of the server.
std::map<std::string, std::string> LogsIn(const support::TempDir& directory) {
  static const std::regex kTimes(
      R"(\d{4}[-_/]\d{2}[-_/]\d{2}[ T_]\d{2}[:_]\d{2}[:_]\d{2}([.,:]\d+)?|\d+:\d{2}:\d{2}([.:]\d+)?|\d+(\.\d+)? (ms|s|seconds|milliseconds))");
  std::map<std::string, std::string> logs;
  int number = 0;
  for (const auto& file : directory.Files())
    logs["log " + std::to_string(++number)] =
        std::regex_replace(support::ReadFile(directory.Path() / file), kTimes, "TIME");
  return logs;
}

}  // namespace

std::string Difference(const Outcome& a, const Outcome& b) {
  const auto lists = [](const char* what, const std::vector<std::string>& x,
                        const std::vector<std::string>& y) -> std::string {
    for (std::size_t i = 0; i < std::max(x.size(), y.size()); ++i) {
      const std::string one = i < x.size() ? x[i] : "nothing";
      const std::string other = i < y.size() ? y[i] : "nothing";
      if (one != other)
        return std::string(what) + " " + std::to_string(i) + ": " + one + "\ninstead of: " + other;
    }
    return {};
  };
  const auto texts = [](const char* what, const std::string& x, const std::string& y) {
    return x == y ? std::string() : std::string(what) + ": " + x + "\ninstead of: " + y;
  };
  for (const std::string& difference :
       {texts("errors", a.errors, b.errors), texts("warnings", a.warnings, b.warnings),
        texts("thrown", a.thrown, b.thrown), lists("exchange", a.exchanges, b.exchanges),
        lists("record", a.records, b.records)})
    if (!difference.empty()) return difference;
  if (a.logs != b.logs) {
    for (const auto& [name, text] : a.logs)
      if (b.logs.count(name) == 0 || b.logs.at(name) != text) return "another log: " + name + text;
    return "another number of logs";
  }
  return {};
}

Outcome Import(const std::string& url, const Cube& cube, const Way& way) {
  const support::TempDir logs;
  Recorder recorder;
  ImportSettings settings;
  settings.http = way.http;
  settings.http.proxy = String();
  settings.limits = way.limits;
  settings.exchangeObserver = &recorder;
  if (way.requests > 1)
    settings.http.requestBudget = std::make_shared<HTTPRequestBudget>(way.requests);
  if (way.isLogged) settings.logDirectory = support::Wide(logs.Path().string());
  settings.onLogicError = [](const String&, int, const String&) {
    throw std::logic_error("logic error");
  };
  const ImportSettings::Scope scope(settings);
  Outcome outcome;
  support::Outputs outputs;
  const auto begin = std::chrono::steady_clock::now();
  {
    OTXMLAAnaTamImportAPI import;
    import.SetupConnInfo(support::Wide(url), way.user, way.password, cube.target,
                         ServerInfo::kCLIXMLA);
    import.SetImportChoiceInfo(cube.source, cube.catalog, cube.cube);
    try {
      import.GetHierarchies(outputs.hierarchies, outputs.errors, outputs.warnings);
      outcome.seconds =
          std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
      import.GetMeasuresAndCalcMembers(outputs.units, outputs.errors, outputs.warnings);
    } catch (const std::logic_error& error) {
      outcome.thrown = error.what();
    }
  }
  outcome.records = outputs.Records();
  outcome.errors = Narrow(outputs.errors);
  outcome.warnings = Narrow(outputs.warnings);
  outcome.exchanges = std::move(recorder.exchanges);
  outcome.ahead = recorder.ahead;
  if (way.isLogged) outcome.logs = LogsIn(logs);
  return outcome;
}

const SampleCube kSampleCubes[3] = {
    {"/analysis-services",
     {ServerInfo::kAnalysisServices2005, L"NORTHQUAY", L"Larkspur Retail", L"Sales"}},
    {"/sap-bw", {ServerInfo::kSAP_BW35, L"default", L"ZVSALES", L"ZVSALES/ZVSALES_Q001"}},
    {"/tamarind",
     {ServerInfo::kTamarind7, L"Provider=Kelvora;Data Source=archive", L"Steamers", L"Log"}},
};

std::string SampleReply(const SampleCube& cube, const std::string& body) {
  return sample::Answer(*sample::KindFromName(cube.path + 1), body).body;
}

}  // namespace readahead
