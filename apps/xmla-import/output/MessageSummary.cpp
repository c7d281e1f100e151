#include "output/MessageSummary.h"

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

}  // namespace

MessageSummary::Kind* MessageSummary::Add(List& list, const std::string& key,
                                          const std::string& cube, const std::string& text) {
  ++list.count;
  auto found = list.index.find(key);
  if (found == list.index.end()) {
    if (list.kinds.size() == kMaxKinds) {
      ++list.omitted;
      return nullptr;
    }
    found = list.index.emplace(key, list.kinds.size()).first;
    list.kinds.emplace_back().text = text;
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
  for (const std::string& line : lines) {
    if (kind && line.starts_with(kFailedRequest)) {
      if (kind->detail.empty()) kind->detail = line;
    } else {
      kind = Add(m_errors, line, cube, line);
    }
  }
}

void MessageSummary::AddWarnings(const std::string& cube, const std::vector<std::string>& lines) {
  for (const std::string& line : lines) Add(m_warnings, KindOf(line), cube, line);
}

std::vector<std::string> MessageSummary::ErrorLines() const {
  std::vector<std::string> lines;
  for (const Kind& kind : m_errors.kinds) {
    std::string names;
    for (const std::string& cube : kind.cubes) names += (names.empty() ? "" : ", ") + cube;
    if (kind.cubeCount > kMaxNamedCubes) names += ", ...";
    if (kind.cubeCount > 1) {
      lines.push_back(std::to_string(kind.cubeCount) + " cubes (" + names + "): " + kind.text);
      continue;
    }
    lines.push_back(After(names, kind.text));
    if (!kind.detail.empty()) lines.push_back(After(names, kind.detail));
  }
  if (m_errors.omitted > 0)
    lines.push_back("and " + std::to_string(m_errors.omitted) + " more errors");
  return lines;
}

std::vector<std::string> MessageSummary::WarningLines() const {
  std::vector<std::string> lines;
  for (const Kind& kind : m_warnings.kinds) {
    std::string line = After(kind.cubes.empty() ? std::string() : kind.cubes.front(), kind.text);
    if (kind.count > 1) {
      line += " (first of " + std::to_string(kind.count);
      if (kind.cubeCount > 1) line += " in " + std::to_string(kind.cubeCount) + " cubes";
      line += "; --warnings all shows all)";
    }
    lines.push_back(std::move(line));
  }
  if (m_warnings.omitted > 0)
    lines.push_back("and " + std::to_string(m_warnings.omitted) +
                    " more warnings; --warnings all shows them");
  return lines;
}
