#include <algorithm>
#include <atomic>
#include <exception>
#include <new>
#include <optional>
#include <system_error>
#include <thread>

#include "Choices.h"
#include "Commands.h"
#include "CubeReading.h"
#include "TargetNames.h"
#include "Text.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/VXExecutionState.h"

namespace {

/// A filter of the call: an option and its names; without names everything passes.
struct Filter {
  const char* kind;
  const char* option;
  std::vector<String> names;
  std::vector<String> seen;

  Filter(const char* k, const char* o, const std::vector<std::string>& values)
      : kind(k), option(o) {
    for (const std::string& value : values) names.push_back(Wide(value));
  }
  bool Passes(const String& name) {
    if (std::find(seen.begin(), seen.end(), name) == seen.end()) seen.push_back(name);
    return names.empty() || std::find(names.begin(), names.end(), name) != names.end();
  }
  /// Every name that was never seen is an error that lists those that were.
  ExitStatus CheckSeen(Messages& messages) const {
    ExitStatus status = ExitStatus::kDone;
    for (String name : names)
      if (Choose({kind, option, ""}, seen, name, messages) != ExitStatus::kDone)
        status = ExitStatus::kWrongCall;
    return status;
  }
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
  for (const std::string& source : sources) {
    String name = Wide(source);
    const ExitStatus status = Choose({"data source", "--source", ""}, *names, name, messages);
    if (status != ExitStatus::kDone) return status;
  }
  for (const String& name : *names) {
    const auto isName = [&name](const std::string& source) { return Wide(source) == name; };
    if (std::none_of(sources.begin(), sources.end(), isName)) continue;
    std::vector<OTDataSource> one;
    Messages said;
    plan.whole = DataSourceTree(import, name, one, said) && plan.whole;
    tree.insert(tree.end(), one.begin(), one.end());
    for (std::string& error : said.errors) messages.errors.push_back(std::move(error));
    // Each reading warns again of a kind that disagrees.
    for (std::string& warning : said.warnings)
      if (std::find(messages.warnings.begin(), messages.warnings.end(), warning) ==
          messages.warnings.end())
        messages.warnings.push_back(std::move(warning));
  }
  return ExitStatus::kDone;
}

ExitStatus MakePlan(OTXMLAImportAPI& import, const Arguments& arguments, Plan& plan,
                    Messages& messages) {
  std::vector<OTDataSource> tree;
  const ExitStatus status = ReadTrees(import, arguments.sources, tree, plan, messages);
  if (status != ExitStatus::kDone) return status;
  Filter catalogs("catalog", "--catalog", arguments.catalogs);
  Filter cubes("cube", "--cube", arguments.cubes);
  for (const OTDataSource& source : tree)
    for (const OTCatalog& catalog : source.m_catalogs) {
      if (!catalogs.Passes(catalog.m_catalogName)) continue;
      for (const OTCube& cube : catalog.m_cubes) {
        if (!cubes.Passes(cube.first)) continue;
        CubeResult& planned = plan.cubes.emplace_back();
        planned.dataSource = source.m_dataSourceName;
        planned.catalog = catalog.m_catalogName;
        planned.cube = cube.first;
      }
    }
  // What is missing from half a tree may well exist.
  if (!plan.whole) return ExitStatus::kDone;
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
  const auto interrupted = [state] { return state && state->IsCancellationRequested(); };
  const ImportSettings& settings = ImportSettings::Current();
  const auto work = [&] {
    const ImportSettings::Scope settingsScope(settings);
    std::optional<VXExecutionState::Scope> scope;
    if (state) scope.emplace(*state);
    for (std::size_t i = next++; i < cubes.size() && !interrupted(); i = next++) {
      CubeResult& cube = cubes[i];
      bool whole = false;
      try {
        progress.BeginCube(Utf8(cube.cube));
        const auto import = session.Import(cube.messages, "cube-" + std::to_string(i + 1));
        whole = import && ReadCube(session, *import, cube);
      } catch (const std::exception& error) {
        // Memory, as a rule: the other cubes may be smaller, and those that were read stay.
        Tell(cube.messages, error);
      }
      if (whole)
        fates[i] = CubeFate::kRead;
      else if (!interrupted())
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
