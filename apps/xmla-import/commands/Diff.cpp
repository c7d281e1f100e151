#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/Interrupt.h"
#include "base/Text.h"
#include "commands/Commands.h"

namespace {

using Json = nlohmann::json;

constexpr std::string_view kOnlyBreaking = "breaking";

std::size_t IncompleteCubes(const Json& document) {
  if (!document.contains("cubes")) return 0;
  return static_cast<std::size_t>(std::ranges::count_if(
      document["cubes"], [](const Json& cube) { return !cube["errors"].empty(); }));
}

bool IsIncomplete(const Document& document) {
  return IncompleteCubes(*document.content) > 0 || !(*document.content)["errors"].empty();
}

/// Parts that are missing because of an error are not removed on the server.
void WarnIfIncomplete(const Document& document, Messages& messages) {
  if (!IsIncomplete(document)) return;
  const std::size_t cubes = IncompleteCubes(*document.content);
  messages.warnings.push_back(
      document.shown + " is incomplete" +
      (cubes > 0 ? " (" + Counted(cubes, "cube has", "cubes have") + " errors)" : "") +
      ": parts that are missing because of an error are shown as removed or added");
}

/// The documents may be of different servers.
void WarnIfNothingInCommon(const Document& before, const Document& after, DiffResult& result) {
  const auto cubes = std::ranges::find(result.comparison.compared, "cube", &ComparedRecords::kind);
  if (cubes->count == 0 && result.Count(ChangeClass::kBreaking) > 0 &&
      result.Count(ChangeClass::kAddition) > 0)
    result.messages.warnings.push_back(before.shown + " and " + after.shown +
                                       " have no cube in common; check that both are of the same "
                                       "server");
}

/// The errors that happened while the service was read, each with its cube.
void AddErrorsOf(const Document& document, Messages& messages) {
  const Json& content = *document.content;
  for (const Json& line : content["errors"]) messages.errors.push_back(line.get<std::string>());
  if (!content.contains("cubes")) return;
  for (const Json& cube : content["cubes"])
    for (const Json& line : cube["errors"])
      messages.errors.push_back(Listed({cube["cube"].get<std::string>()}) + ": " +
                                line.get<std::string>());
}

ExitStatus CompareDocuments(const Document& before, const Document& after,
                            const Arguments& arguments, DiffResult& result) {
  if (before.kind != after.kind)
    throw UsageError(before.shown + " is a document of " + KindName(before.kind) + ", and " +
                     after.shown + " of " + KindName(after.kind) +
                     "; compare two documents of the same command");
  for (const Document* const each : {&before, &after}) WarnIfIncomplete(*each, result.messages);
  result.before = before.name;
  result.after = after.name;
  result.document = KindName(before.kind);
  result.comparison = Compare(before, after);
  WarnIfNothingInCommon(before, after, result);
  if (IsIncomplete(after)) return ExitStatus::kPartly;
  const bool onlyBreaking = arguments.failOn == kOnlyBreaking;
  const std::size_t failures =
      onlyBreaking ? result.Count(ChangeClass::kBreaking) : result.comparison.changes.size();
  return failures > 0 ? ExitStatus::kDiffers : ExitStatus::kDone;
}

/// Reads from the service what the old document describes.
ExitStatus ReadAgain(Session& session, Arguments arguments, const Document& old,
                     ResultReceiver& receiver, Result& read) {
  switch (old.kind) {
    case Document::Kind::kTree:
      return RunTree(session, arguments, read.emplace<TreeResult>());
    case Document::Kind::kCube: {
      const Json& cube = (*old.content)["cubes"][0];
      arguments.sources = {cube["dataSource"].get<std::string>()};
      arguments.catalogs = {cube["catalog"].get<std::string>()};
      arguments.cubes = {cube["cube"].get<std::string>()};
      return RunCube(session, arguments, read.emplace<CubeResult>());
    }
    default:
      return RunImport(session, arguments, receiver, read.emplace<ImportResult>());
  }
}

}  // namespace

ExitStatus RunDiff(const Arguments& arguments, DiffResult& result) {
  if (arguments.files[0] == "-" && arguments.files[1] == "-")
    throw UsageError("OLD and NEW cannot both be standard input; give a file for one of them");
  const Document before = ReadDocument(arguments.files[0]);
  const Document after = ReadDocument(arguments.files[1]);
  return CompareDocuments(before, after, arguments, result);
}

ExitStatus RunDiff(Session& session, const Arguments& arguments, ResultReceiver& receiver,
                   const std::function<std::string(const Result&)>& document, DiffResult& result) {
  const Document before = ReadDocument(arguments.files[0]);
  Result read;
  const ExitStatus status = ReadAgain(session, arguments, before, receiver, read);
  if (status != ExitStatus::kDone && status != ExitStatus::kPartly) {
    AddMessages(std::move(MessagesOf(read)), result.messages);
    return status;
  }
  if (Interrupt::Happened()) return ExitStatus::kInterrupted;
  const Document after = ParseDocument(document(read), "the service", "the service");
  AddErrorsOf(after, result.messages);
  const ExitStatus comparison = CompareDocuments(before, after, arguments, result);
  return status == ExitStatus::kPartly ? status : comparison;
}
