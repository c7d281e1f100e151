#include "output/Progress.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <new>

#include "base/TerminalText.h"
#include "base/Text.h"
#include "output/StreamWriting.h"

namespace {

// Minimum time between updates, to avoid flicker. Short calls show no line.
constexpr std::chrono::milliseconds kBetweenLines{100};

std::size_t TerminalColumns() {
  winsize size{};
  const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
  return known ? size.ws_col : 80;
}

/// Truncates a line to the width of the terminal. Characters from U+1100 on count as two columns;
/// some are narrower, which only makes the line shorter.
String CutToColumns(const String& line, std::size_t columns) {
  std::size_t length = 0;
  for (; length < line.size(); ++length) {
    const std::size_t width = line[length] < 0x1100 ? 1 : 2;
    if (width > columns) break;
    columns -= width;
  }
  return line.substr(0, length);
}

std::string Size(std::uint64_t bytes) {
  if (bytes < 10'000) return fmt::format("{} bytes", bytes);
  if (bytes < 10'000'000) return fmt::format("{} kB", bytes / 1000);
  return fmt::format("{} MB", bytes / 1'000'000);
}

std::string Described(const HTTPExchangeInfo& info) {
  const auto milliseconds = [](double seconds) { return fmt::format("{:.1f} ms", seconds * 1e3); };
  std::string text =
      fmt::format("{} from {}: status {}, sent {} bytes, received {} bytes ({} on the wire), ",
                  Utf8(Shortened(info.subject)), Utf8(info.url), info.status, info.request.size(),
                  info.replyBytes, info.wireBytes);
  text += info.connectSeconds > 0 ? "connected in " + milliseconds(info.connectSeconds)
          : info.status > 0       ? std::string("connection kept")
                                  : std::string("not connected");
  text += ", first byte after " + milliseconds(info.firstByteSeconds) + ", done after " +
          milliseconds(info.totalSeconds);
  if (!info.ok) text += ", failed: " + Utf8(info.error);
  return EscapedForTerminal(OneLine(text)) + '\n';
}

}  // namespace

Progress::Progress(bool quiet, bool verbose)
    : m_form(verbose                                ? Form::kExchanges
             : !quiet && isatty(STDERR_FILENO) == 1 ? Form::kLine
                                                    : Form::kNone),
      m_shown(std::chrono::steady_clock::now()) {}

Progress::~Progress() { Clear(); }

void Progress::OnExchange(const HTTPExchangeInfo& info) {
  const std::lock_guard lock(m_mutex);
  ++m_requests;
  m_bytes += info.replyBytes;
  m_basicInClear |= info.basicInClear;
  try {
    if (m_form == Form::kExchanges) WriteToStandardError(Described(info));
  } catch (const std::bad_alloc&) {
    // Out of memory: skip the line, the import may still succeed.
  }
  Show(false);
}

bool Progress::BasicInClear() {
  const std::lock_guard lock(m_mutex);
  return m_basicInClear;
}

void Progress::BeginCubes(std::size_t count) {
  const std::lock_guard lock(m_mutex);
  m_cubes = count;
  Show(true);
}

void Progress::BeginCube(const String& name) {
  const std::lock_guard lock(m_mutex);
  m_currentCube = name;
  Show(true);
}

void Progress::EndCube() {
  const std::lock_guard lock(m_mutex);
  ++m_cubesDone;
  Show(true);
}

void Progress::ShowMessage(const char* kind, const std::string& text) {
  const std::string line =
      "xmla-import: " + std::string(kind) + ": " + EscapedForTerminal(text) + "\n";
  const std::lock_guard lock(m_mutex);
  Clear();
  WriteToStandardError(line);
}

void Progress::Clear() {
  if (m_visible) WriteToStandardError("\r\x1b[K");
  m_visible = false;
}

void Progress::Show(bool now) {
  const auto time = std::chrono::steady_clock::now();
  if (m_form != Form::kLine || (!now && time - m_shown < kBetweenLines)) return;
  m_shown = time;
  try {
    ShowLine();
  } catch (const std::bad_alloc&) {
    // Out of memory: skip the line.
  }
}

void Progress::ShowLine() {
  std::string line = fmt::format("{} requests, {}", m_requests, Size(m_bytes));
  if (m_cubes > 0) line = fmt::format("{} of {} cubes, ", m_cubesDone, m_cubes) + line;
  if (!m_currentCube.empty())
    line += ", reading " + EscapedForTerminal(OneLine(Utf8(Shortened(m_currentCube))));
  line = Utf8(CutToColumns(Wide(line), TerminalColumns() - 1));
  WriteToStandardError("\r\x1b[K" + line);
  m_visible = true;
}
