#include "Progress.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "LastRequest.h"
#include "TerminalText.h"
#include "Text.h"

namespace {

// A line that changes more often only flickers, and the first moments need none.
constexpr std::chrono::milliseconds kBetweenLines{100};

std::size_t TerminalColumns() {
  winsize size{};
  const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
  return known ? size.ws_col : 80;
}

std::string Size(std::uint64_t bytes) {
  if (bytes < 10'000) return fmt::format("{} bytes", bytes);
  if (bytes < 10'000'000) return fmt::format("{} kB", bytes / 1000);
  return fmt::format("{} MB", bytes / 1'000'000);
}

std::string Described(const HTTPExchangeInfo& info) {
  const auto milliseconds = [](double seconds) { return fmt::format("{:.1f} ms", seconds * 1e3); };
  std::string text = fmt::format(
      "exchange with {}: status {}, sent {} bytes, received {} bytes ({} on the wire), ",
      Utf8(info.url), info.status, info.request.size(), info.replyBytes, info.wireBytes);
  text += info.connectSeconds > 0 ? "connected in " + milliseconds(info.connectSeconds)
                                  : std::string("connection kept");
  text += ", first byte after " + milliseconds(info.firstByteSeconds) + ", done after " +
          milliseconds(info.totalSeconds);
  if (!info.ok) text += ", failed: " + Utf8(info.error);
  return HarmlessOnTerminal(OneLine(text)) + '\n';
}

}  // namespace

Progress::Progress(bool quiet, bool verbose)
    : m_form(verbose                                ? Form::kExchanges
             : !quiet && isatty(STDERR_FILENO) == 1 ? Form::kLine
                                                    : Form::kNone),
      m_former(HTTPClientWrapper::SetExchangeObserver(this)),
      m_shown(std::chrono::steady_clock::now()) {}

Progress::~Progress() {
  HTTPClientWrapper::SetExchangeObserver(m_former);
  Clear();
}

void Progress::OnExchange(const HTTPExchangeInfo& info) {
  RememberRequest(info.request);
  const std::lock_guard lock(m_mutex);
  ++m_requests;
  m_bytes += info.replyBytes;
  if (m_form == Form::kExchanges) std::fputs(Described(info).c_str(), stderr);
  Show(false);
}

void Progress::BeginCubes(std::size_t count) {
  const std::lock_guard lock(m_mutex);
  m_cubes = count;
  Show(true);
}

void Progress::BeginCube(const std::string& name) {
  const std::lock_guard lock(m_mutex);
  m_atWork = name;
  Show(true);
}

void Progress::EndCube() {
  const std::lock_guard lock(m_mutex);
  ++m_cubesDone;
  Show(true);
}

void Progress::Clear() {
  const std::lock_guard lock(m_mutex);
  if (m_visible) std::fputs("\r\x1b[K", stderr);
  m_visible = false;
}

void Progress::Show(bool now) {
  const auto time = std::chrono::steady_clock::now();
  if (m_form != Form::kLine || (!now && time - m_shown < kBetweenLines)) return;
  m_shown = time;
  std::string line = fmt::format("{} requests, {}", m_requests, Size(m_bytes));
  if (m_cubes > 0) line = fmt::format("{} of {} cubes, ", m_cubesDone, m_cubes) + line;
  if (!m_atWork.empty()) line += ", reading " + HarmlessOnTerminal(OneLine(m_atWork));
  // Characters may be two columns wide: half the width holds any of them.
  const String wide = Wide(line);
  const std::size_t columns = TerminalColumns() - 1;
  const bool narrow = wide.size() == line.size();
  line = Utf8(wide.substr(0, narrow ? columns : std::max<std::size_t>(columns / 2, 1)));
  std::fputs(("\r\x1b[K" + line).c_str(), stderr);
  m_visible = true;
}
