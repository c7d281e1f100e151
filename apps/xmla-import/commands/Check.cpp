#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/MessageNumbers.h"
#include "base/Interrupt.h"
#include "base/Text.h"
#include "call/SettingAdvice.h"
#include "call/TargetNames.h"
#include "commands/Choices.h"
#include "commands/Commands.h"
#include "commands/ConnectionSteps.h"
#include "commands/CubeReading.h"
#include "commands/DiscoverReply.h"

namespace {

using Status = CheckStep::Status;
using Clock = std::chrono::steady_clock;

/// Records the exchanges of a check and passes them on. Reports the steps of the first one, and
/// its end, at once.
class Recorder : public HTTPExchangeObserver {
 public:
  using StepHandler = std::function<void(HTTPStep, const HTTPConnectionDetails&)>;
  Recorder(HTTPExchangeObserver* next, StepHandler onStep,
           std::function<void(const HTTPExchangeInfo&)> onFirst)
      : m_next(next), m_onStep(std::move(onStep)), m_onFirst(std::move(onFirst)) {}

  void OnBegin(const HTTPExchangeStart& start) override {
    if (m_next) m_next->OnBegin(start);
    m_subject = start.subject;
  }
  void OnStep(HTTPStep step, const HTTPConnectionDetails& connection) override {
    if (m_next) m_next->OnStep(step, connection);
    if (m_hasFirst || m_error) return;
    try {
      m_onStep(step, connection);
    } catch (...) {
      m_error = std::current_exception();
    }
  }
  void OnRetry(const HTTPRetry& retry) override {
    if (m_next) m_next->OnRetry(retry);
  }
  void OnExchange(const HTTPExchangeInfo& info) override {
    if (m_next) m_next->OnExchange(info);
    try {
      if (!m_hasFirst) m_isDiscoverReply = IsDiscoverReply(info.reply);
      m_last = info;
      m_last.request = NarrowString();
      m_last.reply = NarrowString();
      m_isReused |= info.connection.isReused;
      if (info.ok) m_seconds.push_back(info.totalSeconds);
      if (!std::exchange(m_hasFirst, true)) m_onFirst(m_first = m_last);
    } catch (...) {
      m_error = std::current_exception();
    }
  }

  /// Throws what a handler has thrown.
  void Rethrow() {
    if (m_error) std::rethrow_exception(std::exchange(m_error, nullptr));
  }
  bool HasFirst() const { return m_hasFirst; }
  const HTTPExchangeInfo& First() const { return m_first; }
  const HTTPExchangeInfo& Last() const { return m_last; }
  /// Of the last exchange that has begun.
  const String& Subject() const { return m_subject; }
  bool IsReused() const { return m_isReused; }
  /// About the reply of the first exchange.
  bool HasDiscoverReply() const { return m_isDiscoverReply; }
  /// Durations of the exchanges that succeeded.
  std::vector<double>& Seconds() { return m_seconds; }

 private:
  HTTPExchangeObserver* const m_next;
  const StepHandler m_onStep;
  const std::function<void(const HTTPExchangeInfo&)> m_onFirst;
  HTTPExchangeInfo m_first;
  HTTPExchangeInfo m_last;
  String m_subject;
  bool m_hasFirst = false;
  bool m_isReused = false;
  bool m_isDiscoverReply = false;
  std::vector<double> m_seconds;
  std::exception_ptr m_error;
};

constexpr const char* kAnswered = "answered, but not counted, because a later step failed";

/// The step to which a failed request belongs.
struct StepOfRequest {
  std::string_view request;
  const char* step;
};
constexpr StepOfRequest kStepsOfRequests[] = {
    {"DISCOVER_DATASOURCES", "data sources"},
    {"DBSCHEMA_CATALOGS", "catalogs"},
    {"MDSCHEMA_CUBES", "cubes"},
    {"MDSCHEMA_DIMENSIONS", "hierarchies"},
    {"MDSCHEMA_HIERARCHIES", "hierarchies"},
    {"MDSCHEMA_LEVELS", "levels"},
    {"MDSCHEMA_PROPERTIES", "levels"},
    {"MDSCHEMA_MEASURES", "measures"},
    {"SAP_VARIABLES", "variables"},
};

/// What to do if a request of a step fails, if its message does not say it.
const char* AdviceFor(std::string_view step) {
  if (step == "TLS") return "correct the setting that the text names";
  if (step == "protocol")
    return "check that the URL leads to an XML for Analysis service; if it does, look at its log";
  if (step == "identity")
    return "check that the URL leads to an XML for Analysis service, and the user's rights";
  if (step == "data sources") return "check the name, and the user's rights on the server";
  if (step == "catalogs" || step == "cubes")
    return "check the names, and the user's rights on the data source and its catalogs";
  return "check that the cube is processed, and the user's rights on it";
}

/// Such as `2 catalogs: "A", "B"`.
std::string ListedInPart(const std::vector<String>& names, const char* one, const char* many,
                         const std::string& owner = {}) {
  constexpr std::size_t kMax = 3;
  std::vector<std::string> shown;
  for (std::size_t i = 0; i < std::min(names.size(), kMax); ++i)
    shown.push_back(Utf8(Shortened(names[i])));
  return Counted(names.size(), one, many) + owner + (names.empty() ? "" : ": ") + Listed(shown) +
         (names.size() > kMax ? ", ..." : "");
}

const std::string kParseError = "[" + std::to_string(kMessageParseError) + "] ";

/// Catalogs and cubes of other data sources are not read.
std::string OfSource(const CubeResult& cube) {
  return " of the data source " + Listed({Utf8(Shortened(cube.dataSource))});
}

std::string WithoutFullStop(std::string text) {
  if (text.ends_with('.')) text.pop_back();
  return text;
}

class ServiceCheck {
 public:
  ServiceCheck(Session& session, const Arguments& arguments, ResultReceiver& receiver,
               CheckResult& result)
      : m_session(session),
        m_arguments(arguments),
        m_receiver(receiver),
        m_result(result),
        m_recorder(
            ImportSettings::Current().exchangeObserver,
            [this](HTTPStep step, const HTTPConnectionDetails& connection) {
              BeginConnectionStep(step, connection);
            },
            [this](const HTTPExchangeInfo& first) { TakeConnection(first); }),
        m_settings(ImportSettings::Current()) {
    m_settings.exchangeObserver = &m_recorder;
    m_settings.http.wantsConnectionDetails = true;
  }

  ExitStatus Run() {
    const ImportSettings::Scope scope(m_settings);
    const auto& target = m_session.Service().target;
    m_result.url = Utf8(m_session.Service().url);
    m_result.target = target ? TargetName(*target) : std::string(kAutoTarget);
    m_receiver.BeginSteps(m_result);
    Take({.name = "address", .found = m_result.url});
    if (Identify()) ReadMetadata();
    if (MustStop()) NameInterruptedStep();
    SkipUntil("");
    m_result.isComplete = !MustStop();
    return m_failed.empty() ? ExitStatus::kDone : ExitStatus::kFailed;
  }

 private:
  /// Passes a step on, after those before it that were not done.
  void Take(CheckStep step) {
    SkipUntil(step.name);
    ++m_next;
    if (step.status == Status::kFailed) {
      if (m_failed.empty()) m_failed = step.name;
      m_result.messages.errors.push_back(step.name + ": " + WithoutFullStop(step.found) +
                                         (step.advice.empty() ? "" : "; " + step.advice));
    }
    m_receiver.Take(step);
  }

  void SkipUntil(std::string_view name) {
    for (; m_next < std::size(kCheckSteps) && kCheckSteps[m_next] != name; ++m_next) {
      const std::string skipped = kCheckSteps[m_next];
      if (!IsStepOfKind(skipped)) continue;
      m_receiver.Take({.name = skipped,
                       .status = Status::kSkipped,
                       .found = skipped == m_interrupted ? "interrupted in this step"
                                : MustStop()             ? "interrupted"
                                : m_failed.empty()       ? "not needed"
                                                         : "needs the step " + Listed({m_failed})});
    }
  }

  bool IsStepOfKind(std::string_view step) const {
    return step != "variables" || m_session.IsSapBw();
  }

  bool IsTaken(std::string_view step) const {
    const auto* const end = kCheckSteps + m_next;
    return std::find(kCheckSteps, end, step) != end;
  }

  /// The step of the last request, or else the next one.
  void NameInterruptedStep() {
    if (m_next == std::size(kCheckSteps)) return;
    m_interrupted = IsTaken("log-in") ? StepOfSubject(Utf8(m_recorder.Subject()))
                                      : NameOfStep(m_connectionStep);
    if (m_interrupted.empty() || IsTaken(m_interrupted))
      m_interrupted = *std::find_if(kCheckSteps + m_next, std::end(kCheckSteps) - 1,
                                    [&](const char* step) { return IsStepOfKind(step); });
    m_result.messages.errors.push_back("interrupted in the step " + Listed({m_interrupted}));
  }

  /// Shows the steps before the one that begins. Their time is measured here, because libcurl knows
  /// some of it only later.
  void BeginConnectionStep(HTTPStep step, const HTTPConnectionDetails& connection) {
    const auto now = Clock::now();
    const double seconds = std::chrono::duration<double>(now - m_stepBegin).count();
    m_stepBegin = now;
    m_connectionStep = step;
    if (MustStop()) return;
    HTTPExchangeInfo info;
    info.url = m_session.Service().url;
    info.connection = connection;
    // Without a tunnel, the proxy's refusal comes in place of the reply.
    const bool isProxyInDoubt = !connection.proxy.empty() && info.url.view().starts_with(L"http:");
    const HTTPStep end = std::min(step, isProxyInDoubt ? HTTPStep::kProxy : HTTPStep::kLogIn);
    TakeConnectionSteps(info, m_session.Service(), end, [&](CheckStep done) {
      if (IsTaken(done.name)) return;
      const bool isTimed = done.name != "proxy" && done.found.find("not used") == std::string::npos;
      if (isTimed && !done.seconds) done.seconds = seconds;
      Take(std::move(done));
    });
  }

  /// A step that was shown may fail later, such as the connection for the second round of a log-in.
  /// The next step then fails.
  void TakeConnection(const HTTPExchangeInfo& first) {
    if (MustStop()) return;
    TakeConnectionSteps(first, m_session.Service(), HTTPStep::kResponse, [this](CheckStep step) {
      if (IsTaken(step.name) && step.status != Status::kFailed) return;
      if (IsTaken(step.name)) step.name = kCheckSteps[m_next];
      Take(std::move(step));
    });
  }

  bool Identify() {
    Messages messages;
    const auto begin = Clock::now();
    const bool isIdentified = m_session.AskIdentity(messages);
    const double seconds = SecondsSince(begin);
    m_recorder.Rethrow();
    if (MustStop() || !m_failed.empty()) return false;
    if (!m_recorder.HasFirst()) {  // a setting cannot be used, such as the client certificate
      Take(Failure("TLS", messages.errors));
      return false;
    }
    const HTTPExchangeInfo& first = m_recorder.First();
    const HTTPStep failed = isIdentified || IsFault(messages.errors.front())
                                ? HTTPStep::kNone
                                : m_recorder.Last().failedStep;
    if (failed == HTTPStep::kResponse && first.failedStep == failed) {
      Take(Failure("response", messages.errors));
      return false;
    }
    std::optional<bool> isReused;
    if (m_recorder.IsReused() || isIdentified) isReused = m_recorder.IsReused();
    Take(ResponseStep(first, isReused));
    if (!isIdentified && !IsFault(messages.errors.front())) {
      Take(Failure("protocol", messages.errors));
      return false;
    }
    m_isIdentified = isIdentified;
    if (isIdentified && m_session.Identity().name.empty() && !m_recorder.HasDiscoverReply()) {
      Take({.name = "protocol",
            .status = Status::kFailed,
            .found = "the server sent XML that is no reply to Discover: it is no SOAP envelope "
                     "with a DiscoverResponse or a fault",
            .advice = "check that the URL leads to an XML for Analysis service; " +
                      SettingAdvice(HTTPSetting::kURL, m_session.Service().origins)});
      return false;
    }
    Take({.name = "protocol", .found = isIdentified ? "XML for Analysis" : "a SOAP fault"});
    CheckStep step = isIdentified ? IdentityStep() : Failure("identity", messages.errors);
    step.seconds = seconds;
    Take(std::move(step));
    return isIdentified && m_session.Identify(messages);
  }

  CheckStep IdentityStep() const {
    const OTXMLAProviderIdentity& identity = m_session.Identity();
    const std::string detected = TargetName(identity.target);
    CheckStep step{.name = "identity",
                   .found = Listed({Utf8(Shortened(identity.name))}) + ", version " +
                            Listed({Utf8(Shortened(identity.version))}) + ", kind " +
                            ExplainedTarget(detected)};
    if (identity.name.empty()) {
      step.status = Status::kWarning;
      step.advice = "check that the URL leads to an XML for Analysis service";
    }
    const auto& configured = m_session.Service().target;
    if (!configured || *configured == identity.target) return step;
    const std::string& setting = m_session.Service().targetSetting;
    step.found += ", but " + setting + " is " + TargetName(*configured);
    step.status = Status::kWarning;
    step.advice = "leave out " + setting + ", or use --target " + detected;
    return step;
  }

  void ReadMetadata() {
    Messages messages;
    const auto import = m_session.Import(messages);
    if (!import) return Take(Failure("data sources", messages.errors));
    std::optional<String> source;
    if (!ReadDataSources(*import, source)) return;
    CubeResult cube;
    cube.dataSource = *source;
    if (ReadTree(*import, cube)) ReadOneCube(*import, cube);
    if (!MustStop() && !m_isUnreachable) MeasureRoundTrip(*import);
  }

  bool ReadDataSources(OTXMLAImportAPI& import, std::optional<String>& source) {
    Messages messages;
    const auto begin = Clock::now();
    const auto names = DataSourceNames(import, messages);
    if (!names) return Finish({{"data sources", {}}}, messages, begin);
    if (!m_arguments.sources.empty())
      source = Wide(m_arguments.sources.front());
    else if (!names->empty())
      source = names->front();
    Choose({"data source", "--source", ""}, *names, source, messages);
    return Finish({{"data sources", ListedInPart(*names, "data source", "data sources")}}, messages,
                  begin);
  }

  /// Reads the tree, and chooses the cube.
  bool ReadTree(OTXMLAImportAPI& import, CubeResult& cube) {
    Messages messages;
    const auto begin = Clock::now();
    std::vector<OTDataSource> tree;
    const bool isComplete = DataSourceTree(import, cube.dataSource, tree, messages);
    if (!isComplete) return Finish({{"catalogs", {}}, {"cubes", {}}}, messages, begin);
    const OTDataSource& source = tree.front();
    const std::vector<String> names = CatalogNames(source);
    std::optional<String> catalog;
    if (!m_arguments.catalogs.empty()) {
      catalog = Wide(m_arguments.catalogs.front());
      Choose({"catalog", "--catalog", ""}, names, catalog, messages);
    }
    return Finish({{"catalogs", ListedInPart(names, "catalog", "catalogs", OfSource(cube))}},
                  messages, begin) &&
           TakeCubes(source, catalog, cube);
  }

  /// Chooses the named cube, or the first one, of the catalog or of all.
  bool TakeCubes(const OTDataSource& source, const std::optional<String>& catalogName,
                 CubeResult& cube) {
    Messages messages;
    std::optional<String> cubeName;
    if (!m_arguments.cubes.empty()) cubeName = Wide(m_arguments.cubes.front());
    std::size_t count = 0;
    std::vector<String> names;
    for (const OTCatalog& catalog : source.m_catalogs) {
      count += catalog.m_cubes.size();
      if (catalogName && !(catalog.m_catalogName == *catalogName)) continue;
      for (const OTCube& each : catalog.m_cubes) {
        names.push_back(each.first);
        const bool isWanted = !cubeName || each.first == *cubeName;
        if (!isWanted || !cube.cube.empty()) continue;
        cube.catalog = catalog.m_catalogName;
        cube.cube = each.first;
      }
    }
    if (cube.cube.empty()) {
      const std::string owner =
          catalogName ? "the catalog " + Listed({Utf8(*catalogName)}) : std::string();
      Choose({"cube", "--cube", owner}, names, cubeName, messages);
    }
    return Finish({{"cubes", Counted(count, "cube", "cubes") + OfSource(cube)}}, messages,
                  std::nullopt);
  }

  void ReadOneCube(OTXMLAImportAPI& import, CubeResult& cube) {
    const auto begin = Clock::now();
    ReadCube(m_session, import, cube);
    std::size_t levels = 0;
    for (const OTXMLAHierarchy& hierarchy : cube.hierarchies) levels += hierarchy.m_levels.size();
    std::vector<Done> done{
        {"hierarchies", cube.hierarchies.empty() && !cube.messages.errors.empty()
                            ? std::string()
                            : Counted(cube.hierarchies.size(), "hierarchy", "hierarchies") +
                                  " (of the cube " + Listed({Utf8(Shortened(cube.cube))}) +
                                  (m_arguments.cubes.empty() ? "; check reads one cube)" : ")")},
        {"levels", Counted(levels, "level", "levels")},
        {"measures", Counted(cube.measures.size(), "measure", "measures")},
    };
    if (m_session.IsSapBw())
      done.push_back({"variables", Counted(cube.sapVariables.size(), "variable", "variables")});
    Finish(done, cube.messages, begin);
  }

  void MeasureRoundTrip(OTXMLAImportAPI& import) {
    constexpr std::size_t kRequests = 10;
    Messages messages;
    std::vector<double>& seconds = m_recorder.Seconds();
    seconds.clear();
    const auto begin = Clock::now();
    while (seconds.size() < kRequests && messages.errors.empty() && !MustStop()) {
      const std::size_t before = seconds.size();
      DataSourceNames(import, messages);
      if (seconds.size() == before) break;
    }
    if (MustStop()) return;
    if (!messages.errors.empty()) {
      Finish({{"round trip", {}}}, messages, begin);
      return;
    }
    seconds.resize(std::min(seconds.size(), kRequests));
    std::ranges::sort(seconds);
    const std::size_t middle = seconds.size() / 2;
    const double median =
        seconds.size() % 2 != 0 ? seconds[middle] : (seconds[middle - 1] + seconds[middle]) / 2;
    Take({.name = "round trip",
          .found =
              fmt::format("median {:.1f} ms ({:.1f} ms to {:.1f} ms) in {} requests", median * 1e3,
                          seconds.front() * 1e3, seconds.back() * 1e3, seconds.size())});
  }

  /// A step, and what was found if it has not failed. Without a text: it was read, but a later step
  /// of the operation failed, which then has returned nothing.
  struct Done {
    std::string_view step;
    std::string found;
  };

  static double SecondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
  }

  static bool IsFault(const std::string& line) {
    return line.starts_with("[" + std::to_string(kMessageSoapFault) + "] ");
  }

  /// A failed step with the error lines of an operation: messages, details of a fault, and the
  /// name of the request.
  CheckStep Failure(std::string name, const std::vector<std::string>& errors) const {
    const std::string& error = errors.front();
    CheckStep step;
    if (m_recorder.HasFirst() && Utf8(m_recorder.Last().error) == error) {
      step = FailedExchange(std::move(name), m_recorder.Last(), m_session.Service());
    } else {
      step = {.name = std::move(name), .status = Status::kFailed, .found = error};
      // The advice of the catalogue is general. Other texts end with theirs.
      const bool isCatalogue = error.starts_with('[');
      const std::size_t end = isCatalogue ? error.rfind(". Check ") : error.find("; ");
      if (end != std::string::npos) step.found.resize(end);
      if (!isCatalogue && end != std::string::npos) step.advice = error.substr(end + 2);
    }
    step.found = WithoutFullStop(std::move(step.found));
    // The URL is right if the server has answered other requests.
    if (m_isIdentified && error.starts_with(kParseError))
      step.advice =
          "look for errors in the server's own log; an import with --log DIR writes the "
          "reply to a file";
    if (step.advice.empty()) step.advice = AdviceFor(step.name);
    for (const std::string& line : std::span(errors).subspan(1)) {
      if (!line.starts_with(kFailedRequest))
        step.found += "; " + WithoutFullStop(line);
      else if (m_isIdentified)
        step.found += " (request " + line.substr(std::string_view(kFailedRequest).size()) + ")";
    }
    return step;
  }

  /// The step of the request that the line names; else empty.
  static std::string_view StepOf(std::string_view line) {
    return StepOfSubject(line.substr(std::string_view(kFailedRequest).size()));
  }

  static std::string_view StepOfSubject(std::string_view subject) {
    for (const StepOfRequest& each : kStepsOfRequests)
      if (subject.starts_with(each.request)) return each.step;
    return {};
  }

  /// Takes the steps of an operation that has begun at `begin`. Errors go to the step whose request
  /// they name, else to the first step. Returns false if one failed.
  bool Finish(const std::vector<Done>& steps, const Messages& messages,
              std::optional<Clock::time_point> begin) {
    m_isUnreachable |= messages.isUnreachable;
    std::map<std::string_view, std::vector<std::string>> errors;
    std::vector<std::string> group;
    for (const std::string& line : messages.errors) {
      group.push_back(line);
      if (!line.starts_with(kFailedRequest)) continue;
      const auto failed = std::ranges::find(steps, StepOf(line), &Done::step);
      auto& place = errors[failed == steps.end() ? steps.front().step : failed->step];
      std::ranges::move(group, std::back_inserter(place));
      group.clear();
    }
    if (!group.empty()) errors[steps.front().step] = group;
    for (const std::string& line : messages.warnings)
      if (IsFault(line) || line.starts_with(kFaultDetail))
        m_result.messages.warnings.push_back(line);
    if (MustStop()) return false;
    std::optional<double> seconds;
    if (begin) seconds = SecondsSince(*begin);
    bool isComplete = true;
    for (const auto& [name, found] : steps) {
      const auto failed = errors.find(name);
      const bool hasFailed = failed != errors.end();
      if (!hasFailed && errors.contains(NeededBy(name))) continue;  // is skipped
      CheckStep step =
          hasFailed ? Failure(std::string(name), failed->second) : Success(name, found, messages);
      step.seconds = std::exchange(seconds, std::nullopt);
      Take(std::move(step));
      isComplete &= !hasFailed;
      if (hasFailed && messages.isUnreachable) break;
    }
    return isComplete;
  }

  /// Another step of the same operation whose result the step needs; else empty.
  static std::string_view NeededBy(std::string_view step) {
    return step == "cubes" ? "catalogs" : step == "levels" ? "hierarchies" : "";
  }

  /// A failed look-up of a default member is a warning.
  static CheckStep Success(std::string_view name, const std::string& found,
                           const Messages& messages) {
    CheckStep step{.name = std::string(name), .found = found.empty() ? kAnswered : found};
    if (step.name != "hierarchies") return step;
    const auto count = std::ranges::count_if(messages.warnings, &IsFault);
    if (count == 0) return step;
    step.status = Status::kWarning;
    step.found += "; look-ups of default members that failed: " + std::to_string(count);
    step.advice = "see the warnings for the server's reasons";
    return step;
  }

  Session& m_session;
  const Arguments& m_arguments;
  ResultReceiver& m_receiver;
  CheckResult& m_result;
  Recorder m_recorder;
  ImportSettings m_settings;
  std::size_t m_next = 0;  // index of the next step
  std::string m_failed;    // the first failed step; empty: none
  std::string m_interrupted;
  HTTPStep m_connectionStep = HTTPStep::kNameResolution;  // in progress
  Clock::time_point m_stepBegin = Clock::now();
  bool m_isIdentified = false;
  bool m_isUnreachable = false;
};

}  // namespace

ExitStatus RunCheck(Session& session, const Arguments& arguments, ResultReceiver& receiver,
                    CheckResult& result) {
  return ServiceCheck(session, arguments, receiver, result).Run();
}
