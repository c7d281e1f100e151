#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

#include "Utility/Generic/HTTPClientWrapper.h"

/// Shows progress on standard error: each exchange with timings (`verbose`), one line that is
/// updated (on a terminal), or nothing (`quiet`). Errors and warnings are always shown.
/// Thread-safe.
class Progress : public HTTPExchangeObserver {
 public:
  Progress(bool quiet, bool verbose);
  ~Progress() override;
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void OnExchange(const HTTPExchangeInfo& info) override;
  /// True after a password was sent in clear text over the network.
  bool BasicInClear();
  /// From now on the line shows the number of cubes.
  void BeginCubes(std::size_t count);
  void BeginCube(const String& name);
  void EndCube();
  /// Writes an error or warning line. Control characters are escaped.
  void ShowMessage(const char* kind, const std::string& text);
  /// Removes the progress line and runs `work`.
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
  /// Removes the progress line.
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
  String m_currentCube;
};
