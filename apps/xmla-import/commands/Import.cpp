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
    for (String name : m_names)
      if (!m_known.contains(name)) status = Choose({m_kind, m_option, ""}, m_seen, name, messages);
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

/// The cubes to read, in the provider's order, and whether the tree they come from is whole.
struct Plan {
  std::vector<CubeResult> cubes;
  bool whole = true;
};

/// The trees of the named sources, or of all.
ExitStatus ReadTrees(OTXMLAImportAPI& import, const std::vector<std::string>& sources,
                     std::vector<OTDataSource>& tree, Plan& plan, Messages& messages) {
  if (sources.empty()) {
    plan.whole = DataSourceTree(import, String(), tree, messages);
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
        CubeResult& planned = plan.cubes.emplace_back();
        planned.dataSource = source.m_dataSourceName;
        planned.catalog = catalog.m_catalogName;
        planned.cube = cube.first;
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

enum class CubeFate { kUnread, kRead, kFailed };

/// Reads the planned cubes, so many at a time; each worker has an import object of its own.
std::vector<CubeFate> ReadCubes(Session& session, std::vector<CubeResult>& cubes, int jobs,
                                Progress& progress) {
  std::vector<CubeFate> fates(cubes.size(), CubeFate::kUnread);
  std::atomic<std::size_t> next{0};
  VXExecutionState* const state = VXExecutionState::Current();
  const ImportSettings& settings = ImportSettings::Current();
  const auto work = [&] {
    const ImportSettings::Scope settingsScope(settings);
    std::optional<VXExecutionState::Scope> scope;
    if (state) scope.emplace(*state);
    for (std::size_t i = next++; i < cubes.size() && !IsToStop(); i = next++) {
      CubeResult& cube = cubes[i];
      bool whole = false;
      try {
        progress.BeginCube(Utf8(Shortened(cube.cube)));
        const auto import = session.Import(cube.messages, "cube-" + std::to_string(i + 1));
        whole = import && ReadCube(session, *import, cube);
      } catch (const std::exception& error) {
        // Memory, as a rule: the other cubes may be smaller, and those that were read stay.
        Tell(cube.messages, error);
      }
      if (whole)
        fates[i] = CubeFate::kRead;
      else if (!IsToStop())
        fates[i] = CubeFate::kFailed;
      progress.EndCube();
    }
  };
  const std::size_t workers = std::min(static_cast<std::size_t>(jobs), cubes.size());
  std::vector<std::jthread> others;
  try {
    for (std::size_t i = 1; i < workers; ++i) others.emplace_back(work);
  } catch (const std::system_error&) {
    // No thread is left: those that there are do the work.
  }
  work();
  others.clear();  // waits for them
  return fates;
}

}  // namespace

ExitStatus RunImport(Session& session, const Arguments& arguments, Progress& progress,
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
    if (plan.whole)
      result.messages.errors.push_back(filtered ? "what was named has no cubes to import"
                                                : "the provider has no cubes to import");
    return ExitStatus::kFailed;
  }
  progress.BeginCubes(plan.cubes.size());
  const std::vector<CubeFate> fates = ReadCubes(session, plan.cubes, arguments.jobs, progress);
  for (std::size_t i = 0; i < fates.size(); ++i)
    if (fates[i] != CubeFate::kUnread) result.cubes.push_back(std::move(plan.cubes[i]));

  const auto count = std::count(fates.begin(), fates.end(), CubeFate::kRead);
  const auto unread = std::count(fates.begin(), fates.end(), CubeFate::kUnread);
  if (unread > 0)
    result.messages.errors.push_back("interrupted; " + std::to_string(unread) + " of " +
                                     std::to_string(fates.size()) + " cubes are not in the result");
  if (count == 0) return ExitStatus::kFailed;
  return plan.whole && count == std::ssize(fates) ? ExitStatus::kDone : ExitStatus::kPartly;
}
