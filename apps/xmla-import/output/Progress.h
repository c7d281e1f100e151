#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>

#include "connection/Operation.h"

/// Shows progress on standard error: each exchange with timings (`verbose`), one line that is
/// updated (on a terminal), or nothing (`quiet`). Errors and warnings are always shown.
/// Thread-safe.
class Progress : public RequestObserver {
 public:
  /// What the call has transferred.
  struct Traffic {
    std::uint64_t requests = 0;
    std::uint64_t retries = 0;
    std::uint64_t bytes = 0;  ///< of the decoded replies
    double seconds = 0;       ///< since the begin of the call
  };

  Progress(bool quiet, bool verbose, bool hasColors = false);
  ~Progress() override;
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void OnBegin(const HTTPExchangeStart& start) override;
  void OnStep(HTTPStep step, const HTTPConnectionDetails& connection) override;
  void OnRetry(const HTTPRetry& retry) override;
  void OnExchange(const HTTPExchangeInfo& info) override;
  void OnReadAhead(const HTTPReadAheadInfo& info) override;
  void OnFailure(const String& subject, const String& error) override;

  /// True after a password was sent in clear text over the network.
  bool BasicInClear();
  Traffic TrafficSoFar();
  /// Which settings may help the requests that failed.
  std::set<HTTPSetting> FailedSettings();
  /// True if a response over plain http had no XML. A proxy may have sent it.
  bool HasForeignResponse();
  /// From now on the line shows the number of cubes.
  void BeginCubes(std::size_t count);
  /// The calling thread begins to read a cube, or ends it.
  void BeginCube(const String& name);
  void EndCube();
  /// Removes the progress line. It does not come back.
  void EndLine();
  /// Writes an error, warning or note line. Control characters are escaped.
  void ShowMessage(const char* kind, const std::string& text);
  /// Writes a line that is neither, if the progress line is in use.
  void ShowClosingLine(const std::string& text);
  /// Removes the progress line and runs `work`.
  template <class Work>
  void WithoutLine(Work work) {
    const std::lock_guard lock(m_mutex);
    Clear();
    work();
  }

 private:
  using Clock = std::chrono::steady_clock;
  enum class Form { kNone, kLine, kExchanges };
  /// A request that has no reply yet.
  struct Waiting {
    String url;
    String subject;
    std::uint32_t timeoutSeconds;
    Clock::time_point since;
    std::string retry{};    ///< such as "retry 1 of 3"; empty: the first try
    double retryAfter = 0;  ///< seconds from `since`
    HTTPStep step = HTTPStep::kNone;
  };

  std::string Label(std::string_view kind) const;
  void Show(bool now);
  /// Shows, once for each change, that the server gets fewer requests.
  void ShowLoad();
  void ShowLine(Clock::time_point now);
  std::string WaitingText(const Waiting& waiting, Clock::time_point now) const;
  /// Removes the progress line.
  void Clear();
  /// Updates the line while a request waits, or looks at the load. Runs on its own thread.
  void Tick(const std::stop_token& stop);

  const Form m_form;
  const bool m_hasColors;
  const Clock::time_point m_begin = Clock::now();
  std::mutex m_mutex;  // guards the members below
  Clock::time_point m_shown = m_begin;
  bool m_visible = false;
  bool m_hasEnded = false;  // the line is not shown any more
  std::uint64_t m_requests = 0;
  std::uint64_t m_retries = 0;
  std::uint64_t m_bytes = 0;
  bool m_basicInClear = false;
  bool m_hasForeignResponse = false;
  std::set<HTTPSetting> m_failedSettings;
  std::size_t m_cubes = 0;
  std::size_t m_cubesDone = 0;
  Clock::time_point m_cubesBegin;
  std::weak_ptr<HTTPRequestBudget> m_budget;  // of the exchanges, with --verbose
  unsigned int m_mostAhead = 0;               // of the budget, as shown
  Clock::time_point m_pausedUntil;            // the same
  std::map<std::thread::id, Waiting> m_waiting;
  std::map<std::thread::id, String> m_currentCubes;
  std::condition_variable_any m_ended;
  std::jthread m_ticker;
};
