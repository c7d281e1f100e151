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

namespace {

using Names = std::unordered_set<String, TextHash>;

/// A filter of the call: an option and its names; without names everything passes. A provider may
/// have very many names, so none is compared with all others.
class Filter {
 public:
  Filter(const char* kind, const char* option, const std::vector<std::string>& values)
      : m_kind(kind), m_option(option) {
    for (const std::string& value : values) {
      m_names.push_back(Wide(value));
      m_wanted.insert(m_names.back());
    }
  }
  bool Passes(const String& name) {
    if (m_names.empty()) return true;
    if (m_known.insert(name).second) m_seen.push_back(name);
    return m_wanted.contains(name);
  }
  /// Every name that was never seen is an error that lists those that were.
  ExitStatus CheckSeen(Messages& messages) const {
    ExitStatus status = ExitStatus::kDone;
    for (const String& name : m_names) {
      std::optional<String> missing = name;
      if (!m_known.contains(name))
        status = Choose({m_kind, m_option, ""}, m_seen, missing, messages);
    }
    return status;
  }

 private:
  const char* m_kind;
  const char* m_option;
  std::vector<String> m_names;
  Names m_wanted;
  std::vector<String> m_seen;  ///< in the provider's order
  Names m_known;               ///< the same
};

struct Choice {
  String dataSource;
  String catalog;
  String cube;
};

/// The cubes to read, in the provider's order, and whether the tree they come from is whole.
struct Plan {
  std::vector<Choice> cubes;
  bool whole = true;
};

/// The trees of the named sources, or of all.
ExitStatus ReadTrees(OTXMLAImportAPI& import, const std::vector<std::string>& sources,
                     std::vector<OTDataSource>& tree, Plan& plan, Messages& messages) {
  if (sources.empty()) {
    plan.whole = DataSourceTree(import, std::nullopt, tree, messages);
    return ExitStatus::kDone;
  }
  const auto names = DataSourceNames(import, messages);
  if (!names) return ExitStatus::kFailed;
  Filter filter("data source", "--source", sources);
  std::vector<String> wanted;
  for (const String& name : *names)
    if (filter.Passes(name)) wanted.push_back(name);
  if (const ExitStatus status = filter.CheckSeen(messages); status != ExitStatus::kDone)
    return status;
  // Each reading warns again of a kind that disagrees.
  std::unordered_set<std::string> told(messages.warnings.begin(), messages.warnings.end());
  for (const String& name : wanted) {
    std::vector<OTDataSource> one;
    Messages said;
    plan.whole = DataSourceTree(import, name, one, said) && plan.whole;
    std::move(one.begin(), one.end(), std::back_inserter(tree));
    std::move(said.errors.begin(), said.errors.end(), std::back_inserter(messages.errors));
    for (std::string& warning : said.warnings)
      if (told.insert(warning).second) messages.warnings.push_back(std::move(warning));
  }
  return ExitStatus::kDone;
}

/// Adds the cubes that pass. An interruption ends it early.
void AddCubes(const std::vector<OTDataSource>& tree, Filter& catalogs, Filter& cubes, Plan& plan) {
  for (const OTDataSource& source : tree)
    for (const OTCatalog& catalog : source.m_catalogs) {
      if (!catalogs.Passes(catalog.m_catalogName)) continue;
      for (const OTCube& cube : catalog.m_cubes) {
        if (IsToStop()) return;
        if (!cubes.Passes(cube.first)) continue;
        plan.cubes.push_back({source.m_dataSourceName, catalog.m_catalogName, cube.first});
      }
    }
}

/// Finds out what is to be read, and which names of the call the provider does not have.
ExitStatus MakePlan(OTXMLAImportAPI& import, const Arguments& arguments, Plan& plan,
                    Messages& messages) {
  std::vector<OTDataSource> tree;
  const ExitStatus status = ReadTrees(import, arguments.sources, tree, plan, messages);
  if (status != ExitStatus::kDone) return status;
  Filter catalogs("catalog", "--catalog", arguments.catalogs);
  Filter cubes("cube", "--cube", arguments.cubes);
  AddCubes(tree, catalogs, cubes, plan);
  // What is missing from half a tree may well exist.
  if (!plan.whole || IsToStop()) return ExitStatus::kDone;
  const ExitStatus catalogStatus = catalogs.CheckSeen(messages);
  return catalogStatus != ExitStatus::kDone ? catalogStatus : cubes.CheckSeen(messages);
}

/// What kept a cube from being read, other than its server.
void Tell(Messages& messages, const std::exception& error) noexcept {
  const bool isMemory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr;
  try {
    messages.errors.push_back(isMemory ? "there is not enough memory" : OneLine(error.what()));
  } catch (const std::bad_alloc&) {
    // Not even for that; the cube is still counted as failed.
  }
}

/// Reads the planned cubes, so many at a time; each worker has an import object of its own for each
/// cube.
class Reading {
 public:
  Reading(Session& session, const std::vector<Choice>& cubes, int jobs, CubeReceiver& receiver)
      : m_session(session),
        m_cubes(cubes),
        m_jobs(std::min(static_cast<std::size_t>(jobs), cubes.size())),
        m_receiver(receiver),
        m_order(
            cubes.size(), kAhead * m_jobs, [this](const CubeResult& cube) { Take(cube); },
            [this] { Stop(); }) {}

  /// Throws what the receiver throws.
  void Run() {
    std::vector<std::jthread> others;
    try {
      for (std::size_t i = 1; i < m_jobs; ++i) others.emplace_back([this] { Work(); });
    } catch (const std::system_error&) {
      // No thread is left: those that there are do the work.
    }
    Work();
    others.clear();  // waits for them
    m_order.Finish();
  }

  /// Cubes that were read as a whole, and cubes that are not in the result.
  std::size_t Whole() const { return m_whole; }
  std::size_t Missing() const { return m_missing; }

 private:
  static constexpr std::size_t kAhead = 4;  // cubes for each worker

  void Work() {
    const ImportSettings::Scope settingsScope(m_settings);
    std::optional<VXExecutionState::Scope> scope;
    if (m_state) scope.emplace(*m_state);
    for (std::size_t i = m_next++; i < m_cubes.size() && m_order.AwaitTurn(i); i = m_next++)
      m_order.Put(i, Read(i));
  }

  /// Null for a cube that is left out: the import was interrupted, or there is no memory at all.
  std::unique_ptr<CubeResult> Read(std::size_t number) {
    std::unique_ptr<CubeResult> cube;
    try {
      cube = std::make_unique<CubeResult>();
      cube->dataSource = m_cubes[number].dataSource;
      cube->catalog = m_cubes[number].catalog;
      cube->cube = m_cubes[number].cube;
      m_receiver.BeginCube(cube->cube);
      const auto import = m_session.Import(cube->messages, "cube-" + std::to_string(number + 1));
      cube->isWhole = import && ReadCube(m_session, *import, *cube);
    } catch (const std::exception& error) {
      // Memory, as a rule: the other cubes may be smaller, and those that were read stay.
      if (cube) Tell(cube->messages, error);
    }
    if (IsToStop() && !(cube && cube->isWhole)) return nullptr;
    m_receiver.EndCube();
    return cube;
  }

  void Take(const CubeResult& cube) {
    if (!m_receiver.Take(cube)) return;
    --m_missing;
    if (cube.isWhole) ++m_whole;
  }

  void Stop() {
    if (m_state) m_state->RequestCancellation(VXExecutionState::kCancelReasonHost);
  }

  Session& m_session;
  const std::vector<Choice>& m_cubes;
  const std::size_t m_jobs;
  CubeReceiver& m_receiver;
  CubeOrder m_order;
  VXExecutionState* const m_state = VXExecutionState::Current();
  const ImportSettings& m_settings = ImportSettings::Current();
  std::atomic<std::size_t> m_next{0};
  // Counted while cubes are taken, one at a time.
  std::size_t m_missing = m_cubes.size();
  std::size_t m_whole = 0;
};

}  // namespace

ExitStatus RunImport(Session& session, const Arguments& arguments, CubeReceiver& receiver,
                     ImportResult& result) {
  if (session.Target()) result.target = TargetName(*session.Target());
  if (!session.Identify(result.messages)) return ExitStatus::kFailed;
  session.LearnIdentity();
  result.providerName = session.Identity().name;
  result.providerVersion = session.Identity().version;
  result.target = TargetName(*session.Target());

  Plan plan;
  {
    const auto import = session.Import(result.messages);
    if (!import) return ExitStatus::kFailed;
    const ExitStatus status = MakePlan(*import, arguments, plan, result.messages);
    if (status != ExitStatus::kDone) return status;
  }
  if (plan.cubes.empty()) {
    const bool filtered = !(arguments.sources.empty() && arguments.catalogs.empty());
    if (IsToStop())
      result.messages.errors.push_back("interrupted before the first cube was read");
    else if (plan.whole)
      result.messages.errors.push_back(filtered ? "what was named has no cubes to import"
                                                : "the provider has no cubes to import");
    return ExitStatus::kFailed;
  }
  receiver.BeginCubes(result, plan.cubes.size());
  Reading reading(session, plan.cubes, arguments.jobs, receiver);
  reading.Run();
  const std::size_t count = plan.cubes.size();
  if (reading.Missing() > 0)
    result.messages.errors.push_back(
        (IsToStop() ? "interrupted; " : "there is not enough memory; ") +
        std::to_string(reading.Missing()) + " of " + std::to_string(count) +
        " cubes are not in the result");
  if (reading.Whole() == 0) return ExitStatus::kFailed;
  return plan.whole && reading.Whole() == count ? ExitStatus::kDone : ExitStatus::kPartly;
}
