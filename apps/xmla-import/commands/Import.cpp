#include <algorithm>
#include <atomic>
#include <exception>
#include <iterator>
#include <new>
#include <optional>
#include <system_error>
#include <thread>
#include <unordered_set>

#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/VXExecutionState.h"
#include "base/Interrupt.h"
#include "base/Text.h"
#include "call/TargetNames.h"
#include "commands/Choices.h"
#include "commands/Commands.h"
#include "commands/CubeOrder.h"
#include "commands/CubeReading.h"
#include "commands/RequestBudget.h"
#include "commands/Sorting.h"

namespace {

using Names = std::unordered_set<String>;

/// A filter option and its names. Without names, everything passes. Uses hash sets, since a
/// provider may have very many names.
class Filter {
 public:
  /// `owner` is what the names belong to, as in ChoiceOf.
  Filter(const char* kind, const char* option, const std::vector<std::string>& values,
         std::string owner = {})
      : m_kind(kind), m_option(option), m_owner(std::move(owner)) {
    for (const std::string& value : values) {
      m_names.push_back(Wide(value));
      m_wanted.insert(m_names.back());
    }
  }
  bool Matches(const String& name) {
    if (m_names.empty()) return true;
    if (m_existingSet.insert(name).second) m_existing.push_back(name);
    return m_wanted.contains(name);
  }
  /// Adds an error for each filter name that the provider does not have, with a list of existing
  /// names. Many such names are only counted. True if there is one.
  bool ReportUnknownNames(Messages& messages) const {
    constexpr std::size_t kMaxReported = 20;
    std::size_t unknown = 0;
    for (const String& name : m_names) {
      if (m_existingSet.contains(name) || ++unknown > kMaxReported) continue;
      std::optional<String> missing = name;
      Choose({m_kind, m_option, m_owner}, m_existing, missing, messages);
    }
    if (unknown > kMaxReported)
      messages.errors.push_back(std::to_string(unknown - kMaxReported) + " more names of " +
                                m_option + " do not exist; see xmla-import tree");
    return unknown > 0;
  }

 private:
  const char* m_kind;
  const char* m_option;
  const std::string m_owner;
  std::vector<String> m_names;
  Names m_wanted;
  std::vector<String> m_existing;  ///< existing names, in the provider's order
  Names m_existingSet;             ///< the same names
};

struct Choice {
  String dataSource;
  String catalog;
  String cube;
};

/// The cubes to read, in the provider's order.
struct Plan {
  std::vector<Choice> cubes;
  bool isTreeComplete = true;  ///< the whole tree was read
  bool hasUnknownNames = false;
};

/// Reads the trees of the named data sources, or of all.
void ReadTrees(OTXMLAImportAPI& import, const std::vector<std::string>& sources,
               std::vector<OTDataSource>& tree, Plan& plan, Messages& messages) {
  if (sources.empty()) {
    plan.isTreeComplete = DataSourceTree(import, std::nullopt, tree, messages);
    return;
  }
  const auto names = DataSourceNames(import, messages);
  plan.isTreeComplete = names.has_value();
  if (!names) return;
  Filter filter("data source", "--source", sources);
  std::vector<String> wanted;
  for (const String& name : *names)
    if (filter.Matches(name)) wanted.push_back(name);
  plan.hasUnknownNames = filter.ReportUnknownNames(messages);
  // Each operation repeats the warning about the target kind. Keep it once.
  std::unordered_set<std::string> known(messages.warnings.begin(), messages.warnings.end());
  for (const String& name : wanted) {
    std::vector<OTDataSource> one;
    Messages messagesOfOne;
    plan.isTreeComplete &= DataSourceTree(import, name, one, messagesOfOne);
    const bool isUnreachable = messagesOfOne.isUnreachable;
    std::move(one.begin(), one.end(), std::back_inserter(tree));
    std::move(messagesOfOne.errors.begin(), messagesOfOne.errors.end(),
              std::back_inserter(messages.errors));
    for (std::string& warning : messagesOfOne.warnings)
      if (known.insert(warning).second) messages.warnings.push_back(std::move(warning));
    if (isUnreachable) break;
  }
}

/// Adds the cubes that pass both filters. Stops early after an interruption.
void AddCubes(const std::vector<OTDataSource>& tree, Filter& catalogs, Filter& cubes, Plan& plan) {
  for (const OTDataSource& source : tree)
    for (const OTCatalog& catalog : source.m_catalogs) {
      if (!catalogs.Matches(catalog.m_catalogName)) continue;
      for (const OTCube& cube : catalog.m_cubes) {
        if (MustStop()) return;
        if (!cubes.Matches(cube.first)) continue;
        plan.cubes.push_back({source.m_dataSourceName, catalog.m_catalogName, cube.first});
      }
    }
}

/// Determines the cubes to read, and reports filter names that the provider does not have.
Plan MakePlan(OTXMLAImportAPI& import, const Arguments& arguments, Messages& messages) {
  Plan plan;
  std::vector<OTDataSource> tree;
  ReadTrees(import, arguments.sources, tree, plan, messages);
  if (arguments.sort) Sort(tree);
  Filter catalogs("catalog", "--catalog", arguments.catalogs,
                  arguments.sources.empty() ? "" : "the chosen data sources");
  Filter cubes("cube", "--cube", arguments.cubes,
               !arguments.catalogs.empty() ? "the chosen catalogs"
               : arguments.sources.empty() ? ""
                                           : "the chosen data sources");
  AddCubes(tree, catalogs, cubes, plan);
  // Without the whole tree, a missing name may still exist.
  if (!plan.isTreeComplete || MustStop() || tree.empty()) return plan;
  plan.hasUnknownNames |= catalogs.ReportUnknownNames(messages);
  plan.hasUnknownNames |= cubes.ReportUnknownNames(messages);
  return plan;
}

/// Adds an error for an exception that the server did not cause.
void AddError(Messages& messages, const std::exception& error) noexcept {
  const bool isMemory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr;
  try {
    messages.errors.push_back(isMemory ? "there is not enough memory" : OneLine(error.what()));
  } catch (const std::bad_alloc&) {
    // The cube counts as failed even without a message.
  }
}

/// Reads the planned cubes with `jobs` requests at a time: on up to so many threads, each with its
/// own import object, and with read-ahead if there are fewer cubes than that.
class Reading {
 public:
  Reading(Session& session, const std::vector<Choice>& cubes, const Arguments& arguments,
          ResultReceiver& receiver)
      : m_session(session),
        m_cubes(cubes),
        m_jobs(std::min(static_cast<std::size_t>(arguments.jobs), cubes.size())),
        m_isSorted(arguments.sort),
        m_receiver(receiver),
        m_settings(SettingsForRequests(arguments.jobs, m_jobs)),
        m_order(
            cubes.size(), kReadAhead * m_jobs, [this](const CubeResult& cube) { Take(cube); },
            [this] { Stop(); }) {}

  /// Throws what the receiver throws.
  void Run() {
    std::vector<std::jthread> others;
    try {
      for (std::size_t i = 1; i < m_jobs; ++i) others.emplace_back([this] { Work(); });
    } catch (const std::system_error&) {
      // Thread limit reached. Continue with the threads that were started.
      for (std::size_t i = others.size() + 1; i < m_jobs; ++i) LeaveRequestsToOthers();
    }
    Work();
    others.clear();  // waits for them
    m_order.Finish();
  }

  /// Number of complete cubes.
  std::size_t Complete() const { return m_complete; }
  /// Number of complete cubes, and of incomplete ones that are not empty.
  std::size_t WithContent() const { return m_withContent; }
  /// Number of cubes that are not in the result, and why.
  std::size_t Missing() const { return m_missing; }
  const char* Reason() const {
    return MustStop()        ? "interrupted"
           : m_isUnreachable ? "the server cannot be reached"
                             : "there is not enough memory";
  }

 private:
  static constexpr std::size_t kReadAhead = 4;  // cubes per thread

  void Work() {
    const ImportSettings::Scope settingsScope(m_settings);
    std::optional<VXExecutionState::Scope> scope;
    if (m_state) scope.emplace(*m_state);
    for (std::size_t i = m_next++; i < m_cubes.size() && !m_isUnreachable && AwaitTurn(i);
         i = m_next++)
      m_order.Put(i, Read(i));
    LeaveRequestsToOthers();
  }

  void LeaveRequestsToOthers() {
    if (m_settings.http.requestBudget) m_settings.http.requestBudget->EndImport();
  }

  /// While the thread waits, others may use its place to read ahead.
  bool AwaitTurn(std::size_t number) {
    const bool mustWait = m_settings.http.requestBudget && m_order.MustWait(number);
    if (mustWait) LeaveRequestsToOthers();
    const bool mayGoOn = m_order.AwaitTurn(number);
    if (mustWait) m_settings.http.requestBudget->BeginImport();
    return mayGoOn;
  }

  /// Null if memory is exhausted.
  std::unique_ptr<CubeResult> Read(std::size_t number) {
    std::unique_ptr<CubeResult> cube;
    try {
      cube = std::make_unique<CubeResult>();
      cube->dataSource = m_cubes[number].dataSource;
      cube->catalog = m_cubes[number].catalog;
      cube->cube = m_cubes[number].cube;
      m_receiver.BeginCube(cube->cube);
      const auto import = m_session.Import(cube->messages, "cube-" + std::to_string(number + 1));
      cube->isComplete = import && ReadCube(m_session, *import, *cube);
      if (m_isSorted) Sort(*cube);
      m_session.ExplainTarget(cube->messages);
      if (!cube->isComplete && cube->messages.errors.empty())
        cube->messages.errors.emplace_back("interrupted: the cube is incomplete");
    } catch (const std::exception& error) {
      // Usually out of memory. Other cubes may be smaller, so the import continues.
      if (cube) AddError(cube->messages, error);
    }
    m_receiver.EndCube();
    if (cube && cube->messages.isUnreachable) m_isUnreachable = true;
    return cube;
  }

  void Take(const CubeResult& cube) {
    if (!m_receiver.Take(cube)) return;
    --m_missing;
    if (cube.isComplete) ++m_complete;
    if (cube.isComplete || !cube.IsEmpty()) ++m_withContent;
  }

  void Stop() {
    if (m_state) m_state->RequestCancellation(VXExecutionState::kCancelReasonHost);
  }

  Session& m_session;
  const std::vector<Choice>& m_cubes;
  const std::size_t m_jobs;
  const bool m_isSorted;
  ResultReceiver& m_receiver;
  const ImportSettings m_settings;
  CubeOrder m_order;
  VXExecutionState* const m_state = VXExecutionState::Current();
  std::atomic<std::size_t> m_next{0};
  std::atomic<bool> m_isUnreachable{false};
  // Changed only by Take, which runs on one thread at a time.
  std::size_t m_missing = m_cubes.size();
  std::size_t m_complete = 0;
  std::size_t m_withContent = 0;
};

/// The status of an import without cubes, whose reason may have been reported already.
ExitStatus WithoutCubes(const Plan& plan, const Arguments& arguments, Messages& messages) {
  std::string filters;
  const auto add = [&filters](const char* option, const std::vector<std::string>& names) {
    if (!names.empty()) filters += (filters.empty() ? "" : ", ") + (option + Listed(names));
  };
  add("--source ", arguments.sources);
  add("--catalog ", arguments.catalogs);
  add("--cube ", arguments.cubes);
  if (MustStop())
    messages.errors.emplace_back("interrupted: no cube was read");
  else if (plan.hasUnknownNames)
    return ExitStatus::kWrongCall;
  else if (plan.isTreeComplete)
    messages.errors.push_back(filters.empty() ? "the provider has no cubes to import"
                                              : "no cube matches " + filters);
  return ExitStatus::kFailed;
}

}  // namespace

ExitStatus RunImport(Session& session, const Arguments& arguments, ResultReceiver& receiver,
                     ImportResult& result) {
  if (session.Target()) result.target = TargetName(*session.Target());
  if (!session.Identify(result.messages)) return ExitStatus::kFailed;
  session.ReadIdentity();
  result.providerName = session.Identity().name;
  result.providerVersion = session.Identity().version;
  result.target = TargetName(*session.Target());

  Plan plan;
  {
    const auto import = session.Import(result.messages);
    if (!import) return ExitStatus::kFailed;
    plan = MakePlan(*import, arguments, result.messages);
  }
  session.ExplainTarget(result.messages);
  if (plan.cubes.empty()) return WithoutCubes(plan, arguments, result.messages);
  result.cubeCount = plan.cubes.size();
  receiver.BeginCubes(result, result.cubeCount);
  Reading reading(session, plan.cubes, arguments, receiver);
  reading.Run();
  const std::size_t count = result.cubeCount;
  if (reading.WithContent() == 0 && MustStop())
    result.messages.errors.emplace_back("interrupted: no cube was read completely");
  else if (reading.Missing() > 0)
    result.messages.errors.push_back(
        std::string(reading.Reason()) + ": " + std::to_string(reading.Missing()) + " of " +
        std::to_string(count) + (reading.Missing() == 1 ? " cubes is" : " cubes are") +
        " not in the result");
  result.cubesWithContent = reading.WithContent();
  if (result.cubesWithContent == 0) return ExitStatus::kFailed;
  const bool isComplete =
      plan.isTreeComplete && !plan.hasUnknownNames && reading.Complete() == count;
  return isComplete ? ExitStatus::kDone : ExitStatus::kPartly;
}
