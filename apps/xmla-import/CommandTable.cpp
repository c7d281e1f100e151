#include "CommandTable.h"

#include <algorithm>
#include <array>

#include "call/Arguments.h"
#include "call/CommonOptions.h"
#include "call/Completion.h"
#include "commands/Sorting.h"
#include "results/Formats.h"
#include "results/JsonRecorder.h"

namespace {

constexpr CommandOption kTreeOptions[] = {
    {.name = "--source", .help = "only this data source", .value = &Arguments::sources},
};
constexpr CommandOption kJobs = {.name = "--jobs",
                                 .help = "number of requests at a time, 1 to 64",
                                 .value = &Arguments::jobs,
                                 .placeholder = "N",
                                 .max = 64};
constexpr CommandOption kCubeSource = {
    .name = "--source", .help = "its data source", .value = &Arguments::sources};
constexpr CommandOption kCubeCatalog = {
    .name = "--catalog", .help = "its catalog", .value = &Arguments::catalogs};
constexpr CommandOption kCubeName = {
    .name = "--cube", .help = "its name", .value = &Arguments::cubes};
constexpr CommandOption kCubeOptions[] = {kCubeSource, kCubeCatalog, kCubeName, kJobs};
constexpr CommandOption kCheckOptions[] = {kCubeSource, kCubeCatalog, kCubeName};
constexpr CommandOption kImportOptions[] = {
    {.name = "--source",
     .help = "cubes of this data source; may be repeated",
     .value = &Arguments::sources,
     .mayRepeat = true},
    {.name = "--catalog",
     .help = "cubes of this catalog; may be repeated",
     .value = &Arguments::catalogs,
     .mayRepeat = true},
    {.name = "--cube",
     .help = "cubes of this name; may be repeated",
     .value = &Arguments::cubes,
     .mayRepeat = true},
    kJobs,
};
constexpr CommandOption kFailOn = {.name = "--fail-on",
                                   .help = "changes that give status 4: any (default) or breaking",
                                   .value = &Arguments::failOn,
                                   .placeholder = "WHICH",
                                   .values = [] {
                                     return std::vector<std::string>{"any", "breaking"};
                                   }};
// Those of import are for a comparison with the service.
constexpr auto kDiffOptions = [] {
  std::array<CommandOption, std::size(kImportOptions) + 1> options{kFailOn};
  std::ranges::copy(kImportOptions, options.begin() + 1);
  for (CommandOption& option : std::span(options).subspan(1)) option.part = OptionPart::kReading;
  return options;
}();

template <class Type>
Result Empty() {
  return Type();
}

template <class Type>
void Render(Form& form, const Result& result) {
  form.Write(std::get<Type>(result));
}

void RenderImport(Form& form, const Result& result) {
  form.EndImport(std::get<ImportResult>(result));
}

void RenderSteps(Form& form, const Result& result) { form.EndSteps(std::get<CheckResult>(result)); }

using Run = ExitStatus(Session&, const Arguments&, ResultReceiver&, Result&);
constexpr Run* kSources = [](Session& session, const Arguments&, ResultReceiver&, Result& result) {
  return RunSources(session, std::get<SourcesResult>(result));
};
constexpr Run* kTree = [](Session& session, const Arguments& arguments, ResultReceiver&,
                          Result& result) {
  auto& tree = std::get<TreeResult>(result);
  const ExitStatus status = RunTree(session, arguments, tree);
  if (arguments.sort) Sort(tree.dataSources);
  return status;
};
constexpr Run* kCube = [](Session& session, const Arguments& arguments, ResultReceiver&,
                          Result& result) {
  auto& cube = std::get<CubeResult>(result);
  const ExitStatus status = RunCube(session, arguments, cube);
  if (arguments.sort) Sort(cube);
  return status;
};
constexpr Run* kImport = [](Session& session, const Arguments& arguments, ResultReceiver& receiver,
                            Result& result) {
  return RunImport(session, arguments, receiver, std::get<ImportResult>(result));
};

constexpr Run* kCheck = [](Session& session, const Arguments& arguments, ResultReceiver& receiver,
                           Result& result) {
  return RunCheck(session, arguments, receiver, std::get<CheckResult>(result));
};
constexpr auto* kServers =
    +[](const Arguments&, Result& result) { return RunServers(std::get<ServersResult>(result)); };

constexpr Run* kDiff = [](Session& session, const Arguments& arguments, ResultReceiver& receiver,
                          Result& result) {
  JsonRecorder recorder(receiver);
  const auto document = [&recorder](const Result& read) { return recorder.Finish(read); };
  return RunDiff(session, arguments, recorder, document, std::get<DiffResult>(result));
};
constexpr auto* kDiffOfFiles = +[](const Arguments& arguments, Result& result) {
  return RunDiff(arguments, std::get<DiffResult>(result));
};

constexpr auto* kCompletion = +[](const Arguments& arguments, Result& result) {
  const std::vector<CommandForm> forms = CommandForms();
  std::get<CompletionResult>(result).script =
      CompletionScript({forms, CommonOptions(), Formats(), {}}, arguments.files.front());
  return ExitStatus::kDone;
};

constexpr Command kCommands[] = {
    {{"sources", "the provider's data sources", {}},
     &Empty<SourcesResult>,
     kSources,
     &Render<SourcesResult>},
    {{"tree", "data sources, catalogs and cubes", kTreeOptions},
     &Empty<TreeResult>,
     kTree,
     &Render<TreeResult>},
    {{"cube", "one complete cube", kCubeOptions}, &Empty<CubeResult>, kCube, &Render<CubeResult>},
    {{"import", "every cube, or the cubes that match the filters", kImportOptions},
     &Empty<ImportResult>,
     kImport,
     &RenderImport},
    {{"check", "tests the connection step by step, and says what to do if one fails",
      kCheckOptions},
     &Empty<CheckResult>,
     kCheck,
     &RenderSteps},
    {{.name = "diff",
      .help = "compares two JSON documents of import, cube or tree; or one with the service",
      .options = kDiffOptions,
      .wordsWithoutConnection = 2,
      .words = "OLD [NEW]",
      .minWords = 1,
      .maxWords = 2},
     &Empty<DiffResult>,
     kDiff,
     &Render<DiffResult>,
     kDiffOfFiles},
    {{.name = "servers",
      .help = "names and URLs of the services in the server file",
      .options = {},
      .wordsWithoutConnection = 0},
     &Empty<ServersResult>,
     nullptr,
     &Render<ServersResult>,
     kServers},
    {{.name = "completion",
      .help = "a script that completes calls in a shell: bash, zsh or fish",
      .options = {},
      .wordsWithoutConnection = 0,
      .words = "SHELL",
      .minWords = 1,
      .maxWords = 1,
      .word = "shell",
      .wordValues = &CompletionShells},
     &Empty<CompletionResult>,
     nullptr,
     &Render<CompletionResult>,
     kCompletion},
};

constexpr Command kNone{{}, &Empty<NoResult>, nullptr, &Render<NoResult>};

}  // namespace

const Command& CommandNamed(std::string_view name) {
  for (const Command& command : kCommands)
    if (name == command.form.name) return command;
  return kNone;
}

std::vector<CommandForm> CommandForms() {
  std::vector<CommandForm> forms;
  for (const Command& command : kCommands) forms.push_back(command.form);
  return forms;
}
