#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/String.h"
#include "base/Messages.h"

/// One operation of the library, from before it is called until its texts are taken. Knows which
/// request each of its failures is about: an operation runs its exchanges on the calling thread.
/// One at a time on a thread.
class Operation {
 public:
  Operation();
  ~Operation();
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  /// The operation in progress on the calling thread, or null.
  static Operation* Current();
  /// To be called after each exchange.
  void OnExchange(const HTTPExchangeInfo& info);
  /// What the latest request asked for; empty when there was none.
  const String& Subject() const { return m_subject; }
  /// The failure is not that of a request.
  void ForgetSubject() { m_subject.clear(); }

  /// Adds the texts to the messages. What a failed request asked for is an error of its own behind
  /// them, or part of the warning. True when there was no error.
  bool End(Messages& messages);

  // For the library.
  String errors;
  String warnings;

 private:
  void NoteWarnings();

  String m_subject;
  std::size_t m_known = 0;  ///< length of the warnings that are noted
  /// Ends of parts of the warnings, and the subject of the request before each.
  std::vector<std::pair<std::size_t, String>> m_parts;
};

/// Lets the operations know of their exchanges, and another observer as well.
class OperationObserver : public HTTPExchangeObserver {
 public:
  explicit OperationObserver(HTTPExchangeObserver& next) : m_next(next) {}
  void OnExchange(const HTTPExchangeInfo& info) override;

 private:
  HTTPExchangeObserver& m_next;
};
