#include "output/ExchangeLines.h"

#include <fmt/format.h>

#include <chrono>
#include <ctime>

#include "base/TerminalText.h"
#include "base/Text.h"

namespace {

std::string TimeOfDay(double secondsFromNow = 0) {
  const auto now = std::chrono::system_clock::now() +
                   std::chrono::milliseconds(static_cast<std::int64_t>(secondsFromNow * 1e3));
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm local{};
  localtime_r(&seconds, &local);
  return fmt::format("{:02}:{:02}:{:02}.{:03}", local.tm_hour, local.tm_min, local.tm_sec,
                     milliseconds);
}

std::string Line(const std::string& text) {
  return TimeOfDay() + ' ' + EscapedForTerminal(OneLine(text)) + '\n';
}

constexpr const char* kFailed = "FAILED ";

}  // namespace

std::string SizeText(std::uint64_t bytes) {
  if (bytes < 10'000) return fmt::format("{} bytes", bytes);
  if (bytes < 10'000'000) return fmt::format("{} kB", bytes / 1000);
  return fmt::format("{} MB", bytes / 1'000'000);
}

std::string ExchangeLine(const HTTPExchangeInfo& info) {
  const auto milliseconds = [](double seconds) { return fmt::format("{:.1f} ms", seconds * 1e3); };
  const bool isSent = info.ok || info.failedStep == HTTPStep::kNone ||
                      info.failedStep >= HTTPStep::kLogIn || info.status != 0;
  std::string text = info.ok ? "" : kFailed;
  text += fmt::format("{} from {}: status {}, sent {} bytes, received {} bytes ({} on the wire), ",
                      Utf8(Shortened(info.subject)), Utf8(info.url), info.status,
                      isSent ? info.request.size() : 0, info.replyBytes, info.wireBytes);
  text += info.wasReadAhead         ? std::string("read ahead")
          : info.connectSeconds > 0 ? "connected in " + milliseconds(info.connectSeconds)
          : info.status > 0         ? std::string("connection reused")
                                    : std::string("not connected");
  text += ", first byte after " + milliseconds(info.firstByteSeconds) + ", done after " +
          milliseconds(info.totalSeconds);
  if (!info.ok) text += ": " + Utf8(info.error);
  return Line(text);
}

std::string RetryLine(const HTTPRetry& retry) {
  return Line(fmt::format("retry {} of {} in {:.1f} s of {}: {}", retry.number, retry.maxRetries,
                          retry.waitSeconds, Utf8(Shortened(retry.subject)),
                          Utf8(Shortened(retry.error))));
}

std::string LoadLine(bool isOverload, unsigned int requests) {
  return Line(std::string(isOverload ? "the server seems overloaded" : "no sign of overload") +
              ": from now on, at most " + Counted(requests, "request", "requests") + " at a time");
}

std::string PauseLine(double seconds) {
  return Line("the server is busy: no request is sent before " + TimeOfDay(seconds));
}

std::string ReadAheadLine(const HTTPReadAheadInfo& info) {
  return Line(
      fmt::format("read ahead: {} requests sent, {} used, {} failed and sent again, {} not used",
                  info.sent, info.used, info.repeated, info.unused));
}

std::string FailureLine(const String& subject, const String& error) {
  return Line(kFailed + Utf8(Shortened(subject)) + ": " + Utf8(Shortened(error)));
}
