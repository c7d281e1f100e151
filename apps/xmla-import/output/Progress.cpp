#include "output/Progress.h"

#include <fmt/format.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <system_error>

#include "Utility/Generic/ImportSettings.h"
#include "base/Style.h"
#include "base/TerminalText.h"
#include "base/Text.h"
#include "call/SettingAdvice.h"
#include "output/ExchangeLines.h"
#include "output/StreamWriting.h"

namespace {

// Minimum time between updates, to avoid flicker. Short calls show no line.
constexpr std::chrono::milliseconds kBetweenLines{100};
constexpr std::chrono::milliseconds kTick{250};
// Shorter waits are normal and not shown during the import of cubes.
constexpr std::chrono::seconds kLongWait{2};
constexpr double kEstimateAfterSeconds = 2;

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

/// Host and port of a URL.
std::string Authority(const String& url) {
  const std::string text = Utf8(url);
  const std::size_t begin = text.find("://");
  if (begin == std::string::npos) return text;
  return text.substr(begin + 3, text.find('/', begin + 3) - begin - 3);
}

/// What precedes host and port of the service; null while a reply is awaited.
const char* TextOfStep(HTTPStep step) {
  switch (step) {
    case HTTPStep::kNameResolution:
      return "resolving the name of ";
    case HTTPStep::kProxy:
      return "connecting through the proxy to ";
    case HTTPStep::kTLS:
      return "TLS handshake with ";
    case HTTPStep::kLogIn:
      return "logging in to ";
    case HTTPStep::kResponse:
      return nullptr;
    default:
      return "connecting to ";
  }
}

std::string Duration(double seconds) {
  return seconds < 100 ? fmt::format("{:.0f} s", seconds) : fmt::format("{:.0f} min", seconds / 60);
}

}  // namespace

Progress::Progress(bool quiet, bool verbose, bool hasColors)
    : m_form(verbose                                ? Form::kExchanges
             : !quiet && isatty(STDERR_FILENO) == 1 ? Form::kLine
                                                    : Form::kNone),
      m_hasColors(hasColors) {
  if (m_form == Form::kNone) return;
  // Signals must interrupt the threads that import.
  sigset_t all;
  sigset_t former;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &former);
  try {
    m_ticker = std::jthread([this](const std::stop_token& stop) { Tick(stop); });
  } catch (const std::system_error&) {
    // Thread limit reached: updates come only with exchanges.
  }
  pthread_sigmask(SIG_SETMASK, &former, nullptr);
}

Progress::~Progress() {
  m_ticker = {};  // ends the thread
  Clear();
}

void Progress::OnBegin(const HTTPExchangeStart& start) {
  if (m_form == Form::kExchanges) {
    const std::lock_guard lock(m_mutex);
    const auto& budget = ImportSettings::Current().http.requestBudget;
    if (budget && m_budget.lock() != budget) {
      m_budget = budget;
      m_mostAhead = budget->MostAhead();
      m_pausedUntil = budget->PausedUntil();
    }
  }
  if (m_form != Form::kLine) return;
  const std::lock_guard lock(m_mutex);
  try {
    m_waiting[std::this_thread::get_id()] = {.url = start.url,
                                             .subject = start.subject,
                                             .timeoutSeconds = start.timeoutSeconds,
                                             .since = Clock::now()};
  } catch (const std::bad_alloc&) {
    // Out of memory: the line does not show the request.
  }
  Show(false);
}

void Progress::OnStep(HTTPStep step, const HTTPConnectionDetails&) {
  if (m_form != Form::kLine) return;
  const std::lock_guard lock(m_mutex);
  const auto waiting = m_waiting.find(std::this_thread::get_id());
  if (waiting != m_waiting.end()) waiting->second.step = step;
  Show(false);
}

void Progress::OnRetry(const HTTPRetry& retry) {
  const std::lock_guard lock(m_mutex);
  ++m_retries;
  try {
    if (m_form == Form::kExchanges) WriteToStandardError(RetryLine(retry));
    if (m_form == Form::kLine)
      m_waiting[std::this_thread::get_id()] = {
          .url = retry.url,
          .subject = retry.subject,
          .timeoutSeconds = 0,
          .since = Clock::now(),
          .retry = fmt::format("retry {} of {}", retry.number, retry.maxRetries),
          .retryAfter = retry.waitSeconds};
  } catch (const std::bad_alloc&) {
    // Out of memory: skip the line.
  }
  Show(true);
}

void Progress::OnExchange(const HTTPExchangeInfo& info) {
  const std::lock_guard lock(m_mutex);
  ++m_requests;
  m_bytes += info.replyBytes;
  m_basicInClear |= info.basicInClear;
  m_hasForeignResponse |= MayBeFromProxy(info);
  m_waiting.erase(std::this_thread::get_id());
  try {
    if (info.setting != HTTPSetting::kNone) m_failedSettings.insert(info.setting);
    if (m_form == Form::kExchanges) WriteToStandardError(ExchangeLine(info));
    ShowLoad();
  } catch (const std::bad_alloc&) {
    // Out of memory: skip the line, the import may still succeed.
  }
  Show(false);
}

void Progress::OnReadAhead(const HTTPReadAheadInfo& info) {
  if (m_form != Form::kExchanges) return;
  const std::lock_guard lock(m_mutex);
  try {
    WriteToStandardError(ReadAheadLine(info));
  } catch (const std::bad_alloc&) {
    // Out of memory: skip the line.
  }
}

void Progress::OnFailure(const String& subject, const String& error) {
  if (m_form != Form::kExchanges) return;
  const std::lock_guard lock(m_mutex);
  try {
    WriteToStandardError(FailureLine(subject, error));
  } catch (const std::bad_alloc&) {
    // Out of memory: skip the line.
  }
}

bool Progress::BasicInClear() {
  const std::lock_guard lock(m_mutex);
  return m_basicInClear;
}

Progress::Traffic Progress::TrafficSoFar() {
  const std::lock_guard lock(m_mutex);
  return {m_requests, m_retries, m_bytes,
          std::chrono::duration<double>(Clock::now() - m_begin).count()};
}

std::set<HTTPSetting> Progress::FailedSettings() {
  const std::lock_guard lock(m_mutex);
  return m_failedSettings;
}

bool Progress::HasForeignResponse() {
  const std::lock_guard lock(m_mutex);
  return m_hasForeignResponse;
}

void Progress::BeginCubes(std::size_t count) {
  const std::lock_guard lock(m_mutex);
  m_cubes = count;
  m_cubesBegin = Clock::now();
  Show(true);
}

void Progress::BeginCube(const String& name) {
  const std::lock_guard lock(m_mutex);
  m_currentCubes[std::this_thread::get_id()] = name;
  Show(true);
}

void Progress::EndCube() {
  const std::lock_guard lock(m_mutex);
  ++m_cubesDone;
  Show(true);
  m_currentCubes.erase(std::this_thread::get_id());
}

std::string Progress::Label(std::string_view kind) const {
  if (!m_hasColors) return std::string(kind);
  const Style style = kind == "error"     ? Style::kBad
                      : kind == "warning" ? Style::kCaution
                                          : Style::kFaint;
  return std::string(BeginOf(style)).append(kind).append(kEndOfStyle);
}

void Progress::ShowMessage(const char* kind, const std::string& text) {
  const std::string line = "xmla-import: " + Label(kind) + ": " + EscapedForTerminal(text) + "\n";
  const std::lock_guard lock(m_mutex);
  Clear();
  WriteToStandardError(line);
}

void Progress::ShowClosingLine(const std::string& text) {
  if (m_form == Form::kNone || isatty(STDERR_FILENO) != 1) return;
  const std::lock_guard lock(m_mutex);
  Clear();
  WriteToStandardError("xmla-import: " + EscapedForTerminal(text) + "\n");
}

void Progress::EndLine() {
  const std::lock_guard lock(m_mutex);
  Clear();
  m_hasEnded = true;
}

void Progress::Clear() {
  if (m_visible) WriteToStandardError("\r\x1b[K");
  m_visible = false;
}

void Progress::Tick(const std::stop_token& stop) {
  std::unique_lock lock(m_mutex);
  while (!m_ended.wait_for(lock, stop, kTick, [] { return false; }) && !stop.stop_requested()) {
    ShowLoad();
    if (!m_waiting.empty()) Show(true);
  }
}

void Progress::ShowLoad() {
  const auto budget = m_budget.lock();
  if (!budget) return;
  const unsigned int mostAhead = budget->MostAhead();
  const Clock::time_point pausedUntil = budget->PausedUntil();
  try {
    if (mostAhead != m_mostAhead)
      WriteToStandardError(LoadLine(mostAhead < m_mostAhead, mostAhead + 1));
    if (pausedUntil != m_pausedUntil)
      WriteToStandardError(
          PauseLine(std::chrono::duration<double>(pausedUntil - Clock::now()).count()));
  } catch (const std::bad_alloc&) {
    // Out of memory: skip the line.
  }
  m_mostAhead = mostAhead;
  m_pausedUntil = pausedUntil;
}

void Progress::Show(bool now) {
  const Clock::time_point time = Clock::now();
  if (m_form != Form::kLine || m_hasEnded || (!now && time - m_shown < kBetweenLines)) return;
  m_shown = time;
  try {
    ShowLine(time);
  } catch (const std::bad_alloc&) {
    // Out of memory: skip the line.
  }
}

std::string Progress::WaitingText(const Waiting& waiting, Clock::time_point now) const {
  const auto seconds =
      std::chrono::duration_cast<std::chrono::seconds>(now - waiting.since).count();
  const double untilRetry =
      waiting.retryAfter - std::chrono::duration<double>(now - waiting.since).count();
  if (untilRetry > 0)
    return fmt::format("{} in {:.1f} s for {}", waiting.retry, untilRetry,
                       Utf8(Shortened(waiting.subject)));
  const std::string limit =
      waiting.timeoutSeconds > 0 ? fmt::format(" of {} s", waiting.timeoutSeconds) : std::string();
  if (const char* const text = TextOfStep(waiting.step))
    return text + Authority(waiting.url) + fmt::format(", {} s{}", seconds, limit);
  return fmt::format("waiting {} s{} for {}", seconds, limit, Utf8(Shortened(waiting.subject)));
}

void Progress::ShowLine(Clock::time_point now) {
  std::string line;
  const auto add = [&line](const std::string& part) { line += (line.empty() ? "" : ", ") + part; };
  if (m_cubes > 0) {
    add(fmt::format("{} of {} cubes", m_cubesDone, m_cubes));
    const double elapsed = std::chrono::duration<double>(now - m_cubesBegin).count();
    if (m_cubesDone > 1 && elapsed > kEstimateAfterSeconds)
      add("about " +
          Duration(elapsed / static_cast<double>(m_cubesDone) *
                   static_cast<double>(m_cubes - m_cubesDone)) +
          " left");
  }
  const auto longest =
      std::ranges::min_element(m_waiting, {}, [](const auto& each) { return each.second.since; });
  if (longest != m_waiting.end() &&
      (m_cubes == 0 || !longest->second.retry.empty() || now - longest->second.since > kLongWait))
    add(WaitingText(longest->second, now));
  if (m_requests > 0) add(fmt::format("{} requests, {}", m_requests, SizeText(m_bytes)));
  std::string names;
  for (const auto& [thread, name] : m_currentCubes)
    names += (names.empty() ? "reading " : ", ") + Utf8(Shortened(name));
  if (!names.empty()) add(names);
  line = Utf8(CutToColumns(Wide(EscapedForTerminal(OneLine(line))), TerminalColumns() - 1));
  WriteToStandardError("\r\x1b[K" + line);
  m_visible = true;
}
