#include "output/MessageSummary.h"

#include <algorithm>

namespace {

constexpr std::size_t kMaxKinds = 1000;
constexpr std::size_t kMaxNamedCubes = 3;

/// The number in brackets at the begin of the line, or else the line.
std::string KindOf(const std::string& line) {
  const std::size_t end = line.starts_with('[') ? line.find("] ") : std::string::npos;
  return line.substr(0, end);
}

std::string After(const std::string& place, const std::string& text) {
  return place.empty() ? text : place + ": " + text;
}

/// Removes the first message from `lines`: one line and those that complete it.
std::span<const std::string> TakeMessage(std::span<const std::string>& lines) {
  std::size_t count = 1;
  while (count < lines.size() && lines[count].starts_with(kFaultDetail)) ++count;
  const auto message = lines.first(count);
  lines = lines.subspan(count);
  return message;
}

std::string Joined(std::span<const std::string> lines) {
  std::string text;
  for (const std::string& line : lines) text += line + '\n';
  return text;
}

/// "the failed request was TYPE", without the object of the request.
std::string WithoutObject(const std::string& line) {
  return line.substr(0, line.find(' ', std::string_view(kFailedRequest).size()));
}

}  // namespace

MessageSummary::Kind* MessageSummary::Add(List& list, const std::string& key,
                                          const std::string& cube,
                                          std::span<const std::string> message) {
  ++list.count;
  auto found = list.index.find(key);
  if (found == list.index.end()) {
    if (list.kinds.size() == kMaxKinds) {
      ++list.omitted;
      return nullptr;
    }
    found = list.index.emplace(key, list.kinds.size()).first;
    Kind& added = list.kinds.emplace_back();
    added.text = message.front();
    added.details.assign(message.begin() + 1, message.end());
  }
  Kind& kind = list.kinds[found->second];
  ++kind.count;
  if (cube.empty() || (!kind.cubes.empty() && kind.lastCube == cube)) return &kind;
  kind.lastCube = cube;
  ++kind.cubeCount;
  if (kind.cubes.size() < kMaxNamedCubes) kind.cubes.push_back(cube);
  return &kind;
}

void MessageSummary::AddErrors(const std::string& cube, const std::vector<std::string>& lines) {
  Kind* kind = nullptr;
  for (std::span<const std::string> rest = lines; !rest.empty();) {
    const auto message = TakeMessage(rest);
    const std::string& line = message.front();
    if (kind && line.starts_with(kFailedRequest)) {
      if (kind->request.empty()) kind->request = line;
      kind->areRequestsAlike &= WithoutObject(kind->request) == WithoutObject(line);
    } else {
      kind = Add(m_errors, Joined(message), cube, message);
    }
  }
}

void MessageSummary::AddWarnings(const std::string& cube, const std::vector<std::string>& lines) {
  for (std::span<const std::string> rest = lines; !rest.empty();) {
    const auto message = TakeMessage(rest);
    Add(m_warnings, KindOf(message.front()), cube, message);
  }
}

std::vector<MessageSummary::Line> MessageSummary::ErrorLines() const {
  std::vector<Line> lines;
  for (const Kind& kind : m_errors.kinds) {
    std::string names;
    for (const std::string& cube : kind.cubes) names += (names.empty() ? "" : ", ") + cube;
    if (kind.cubeCount > kMaxNamedCubes) names += ", ...";
    if (kind.cubeCount > 1) names = std::to_string(kind.cubeCount) + " cubes (" + names + ")";
    lines.push_back({After(names, kind.text), CompletesAnError(kind.text)});
    for (const std::string& detail : kind.details) lines.push_back({After(names, detail), true});
    if (kind.request.empty() || !kind.areRequestsAlike) continue;
    lines.push_back(
        {After(names, kind.cubeCount > 1 ? WithoutObject(kind.request) : kind.request), true});
  }
  if (m_errors.omitted > 0)
    lines.push_back({"and " + std::to_string(m_errors.omitted) + " more errors", false});
  return lines;
}

std::size_t MessageSummary::WarningCount() const {
  std::size_t count = m_warnings.count;
  for (const Kind& kind : m_warnings.kinds)
    if (NeedsNoAction(kind.text)) count -= kind.count;
  return count;
}

std::size_t MessageSummary::WarningKinds() const {
  return static_cast<std::size_t>(std::ranges::count_if(
      m_warnings.kinds, [](const Kind& kind) { return !NeedsNoAction(kind.text); }));
}

std::vector<MessageSummary::Line> MessageSummary::WarningLines() const {
  std::vector<Line> lines;
  for (const Kind& kind : m_warnings.kinds) {
    const std::string cube = kind.cubes.empty() ? std::string() : kind.cubes.front();
    std::string line = After(cube, kind.text);
    if (kind.count > 1) {
      line += " (first of " + std::to_string(kind.count);
      if (kind.cubeCount > 1) line += " in " + std::to_string(kind.cubeCount) + " cubes";
      line += "; --warnings all shows all)";
    }
    const bool isNote = NeedsNoAction(kind.text);
    lines.push_back({std::move(line), isNote});
    for (const std::string& detail : kind.details) lines.push_back({After(cube, detail), isNote});
  }
  if (m_warnings.omitted > 0)
    lines.push_back(
        {"and " + std::to_string(m_warnings.omitted) + " more warnings; --warnings all shows them",
         false});
  return lines;
}
