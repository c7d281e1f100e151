#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

#include "Utility/Generic/HTTPClientWrapper.h"

/// Tells on standard error how the import goes: with `verbose` each exchange with its timings, else
/// on a terminal one line that is kept up to date, and nothing with `quiet`; in any case what went
/// wrong. Safe to use from several threads.
class Progress : public HTTPExchangeObserver {
 public:
  Progress(bool quiet, bool verbose);
  ~Progress() override;
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void OnExchange(const HTTPExchangeInfo& info) override;
  /// True once a password went over the network readable by others.
  bool BasicInClear();
  /// From now on the line counts cubes.
  void BeginCubes(std::size_t count);
  void BeginCube(const String& name);
  void EndCube();
  /// Writes a line of its own: an error or a warning. What comes from elsewhere in it cannot act on
  /// a terminal.
  void Tell(const char* kind, const std::string& text);
  /// Does something for which the line must not be on the screen.
  template <class Work>
  void WithoutLine(Work work) {
    const std::lock_guard lock(m_mutex);
    Clear();
    work();
  }

 private:
  enum class Form { kNone, kLine, kExchanges };

  void Show(bool now);
  void ShowLine();
  /// Takes the line away, before something else is written.
  void Clear();

  const Form m_form;
  std::mutex m_mutex;
  std::chrono::steady_clock::time_point m_shown;
  bool m_visible = false;
  std::uint64_t m_requests = 0;
  std::uint64_t m_bytes = 0;
  bool m_basicInClear = false;
  std::size_t m_cubes = 0;
  std::size_t m_cubesDone = 0;
  String m_atWork;
};
