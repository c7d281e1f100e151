#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/String.h"
#include "base/Messages.h"

/// Also observes requests that failed after their exchange, because of a fault or a malformed
/// reply.
class RequestObserver : public HTTPExchangeObserver {
 public:
  /// Called on the thread of the request. Must not throw.
  virtual void OnFailure(const String& subject, const String& error) = 0;
};

/// Collects errors and warnings of one library operation, and the request that was sent last before
/// each of them. Construct before the call, and call End after it, on the same thread. At most one
/// object per thread.
class Operation {
 public:
  Operation();
  ~Operation();
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  /// The object of the calling thread, or null.
  static Operation* Current();
  /// Called after each exchange. `observer` must outlive this object.
  void OnExchange(const HTTPExchangeInfo& info, RequestObserver& observer);
  /// Completes the message of the last exchange. See ImportSettings::onFaultDetail.
  void AddFaultDetail(const String& detail) { m_faultDetails.push_back(detail); }
  /// The subject of the last request; empty if there was none.
  const String& Subject() const { return m_subject; }
  /// Call if the error does not come from a request.
  void ClearSubject() { m_subject.clear(); }

  /// Adds errors and warnings to `messages`. Details of a fault follow its message. After errors,
  /// adds one that names the failed request, except after an interruption. The warning about a
  /// failed default-member look-up says what is missing in the result, and for which hierarchy.
  /// True if there was no error.
  bool End(Messages& messages);

  // Output parameters of the library call.
  String errors;
  String warnings;

 private:
  void RecordWarnings();

  String m_subject;
  bool m_isUnreachable = false;
  bool m_wasReceived = false;  ///< the last exchange has a reply, which may be a fault
  RequestObserver* m_observer = nullptr;
  std::size_t m_recorded = 0;          ///< length of the warnings that m_parts covers
  std::vector<String> m_faultDetails;  ///< of the last exchange
  /// A part of the warnings, and what belongs to it.
  struct Part {
    std::size_t end;
    String subject;  ///< of the request before
    std::vector<String> faultDetails;
  };
  std::vector<Part> m_parts;
};

/// The hierarchy in the subject of a request, quoted; "unknown" if there is none.
String HierarchyOfSubject(const String& subject);

/// Forwards exchanges to the current Operation and to another observer.
class OperationObserver : public HTTPExchangeObserver {
 public:
  explicit OperationObserver(RequestObserver& next) : m_next(next) {}
  void OnBegin(const HTTPExchangeStart& start) override { m_next.OnBegin(start); }
  void OnStep(HTTPStep step, const HTTPConnectionDetails& connection) override {
    m_next.OnStep(step, connection);
  }
  void OnRetry(const HTTPRetry& retry) override { m_next.OnRetry(retry); }
  void OnExchange(const HTTPExchangeInfo& info) override;
  void OnReadAhead(const HTTPReadAheadInfo& info) override { m_next.OnReadAhead(info); }

 private:
  RequestObserver& m_next;
};
