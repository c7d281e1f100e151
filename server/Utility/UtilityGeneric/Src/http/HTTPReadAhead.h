#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "Utility/Generic/HTTPReadAhead.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/VXExecutionState.h"
#include "Utility/Generic/VXThread.h"
#include "http/HTTPByteLimit.h"
#include "http/HTTPReadAheadStore.h"
#include "http/HTTPTransfer.h"

/// The read-ahead of one HTTP client. It works inside an ImportOperation: after a reply that the
/// client has received for the import, it asks the prediction for the requests that follow, and
/// sends them ahead in the order in which they will be needed, over additional connections and,
/// while the import waits, over the client's own. All additional connections belong to one thread.
///
/// The import gets a reply only if it is complete, usable, and not a fault. Any other reply is
/// dropped. When the import asks for it, the client sends the request again, while no other request
/// is in progress. So failures, retries and their texts are those of a client without read-ahead. A
/// server that cannot answer several requests at a time gets one at a time.
///
/// Log-in: there is nothing to send ahead before the service has answered the client's own request,
/// so a wrong password is sent as often as without read-ahead. After a 401 or 407 to a request that
/// was sent ahead, nothing more is sent ahead.
///
/// Call all functions from the thread of the import. It waits for the other thread only in Take and
/// in the destructor.
class HTTPReadAhead final : private HTTPRequestBudget::Listener {
 public:
  /// Most bytes of replies that the import has not asked for yet.
  static constexpr std::uint64_t kMaxUnreadBytes = std::uint64_t{64} << 20;
  /// Most requests that are ahead of the import.
  static constexpr std::size_t kMaxRequests = 1024;

  /// Converts the body of a complete response to UTF-8. True if the import can use it. Called on
  /// both threads, and must not throw.
  using Check = std::function<bool(HTTPResponse& response)>;

  /// `own` is the client's transfer, and must outlive this object.
  HTTPReadAhead(HTTPTransfer& own, std::shared_ptr<HTTPRequestBudget> budget,
                std::shared_ptr<const HTTPPrediction> prediction, Check isUsable);
  ~HTTPReadAhead();
  HTTPReadAhead(const HTTPReadAhead&) = delete;
  HTTPReadAhead& operator=(const HTTPReadAhead&) = delete;

  /// See HTTPTransfer.
  void SetHeaderLines(const NarrowString& lines);

  enum class Answer {
    kReady,  ///< the reply was read ahead
    kSend,   ///< the client must send the request
    /// The client must send the request again, while no other request is in progress.
    kSendAlone
  };
  /// Looks for the reply to this request, and waits for it if the request was sent ahead. Sets
  /// `response` if the result is kReady. After the other results, the own transfer is free.
  Answer Take(const NarrowString& body, HTTPResponse& response);
  /// Call after each request that the client has sent itself. `isUsable`: the body of the response
  /// is UTF-8, and the import can use it.
  void OnResponse(const NarrowString& body, const HTTPResponse& response, bool isUsable);

 private:
  using Place = HTTPReadAheadStore::Place;

  /// What belongs to one operation. The other thread may still use it after the end.
  struct Operation {
    VXExecutionState state;   // cancelled at the end
    ImportSettings settings;  // only the limits
    bool isServed = false;    // used by the other thread
    HTTPReadAheadStore rest;  // after the end
  };
  /// A transfer of requests that are sent ahead.
  struct Lane {
    HTTPTransfer* transfer = nullptr;
    std::unique_ptr<HTTPTransfer> additional;  // null: the client's own
    std::shared_ptr<Operation> operation;      // null: idle
    NarrowString headerLines;
    NarrowString usedHeaderLines;
    NarrowString body;
    Place place;
    HTTPResponse response;
    HTTPRequestBudget::Permit permit;  // while a request is in progress
  };

  void OnPlaceFree() noexcept override { m_group->Wake(); }

  using Clock = std::chrono::steady_clock;

  // On the thread of the import:
  std::optional<Answer> Look(const NarrowString& body, Clock::time_point begin,
                             HTTPResponse& response);
  bool MustWaitToSend(const NarrowString& body, Clock::time_point begin) const;
  bool BeginOperation();
  void EndOperation() noexcept;
  void StartThread();
  void SendAheadOnOwn();
  void TakeOwnBack() noexcept;

  // On the other thread:
  void Run() noexcept;
  bool Serve(const std::shared_ptr<Operation>& operation) noexcept;
  bool Predict(const std::shared_ptr<Operation>& operation);
  void SendAhead(const std::shared_ptr<Operation>& operation);
  Lane& IdleLane();

  // On both:
  bool HasRequest(const std::shared_ptr<Operation>& operation);
  bool HasRequestLocked(const std::shared_ptr<Operation>& operation);
  bool Choose(Lane& lane, const std::shared_ptr<Operation>& operation,
              HTTPRequestBudget::Permit permit);
  void BeginLane(Lane& lane) noexcept;
  void AdvanceLane(Lane& lane) noexcept;
  void FailLane(Lane& lane) noexcept;
  void Store(Lane& lane, bool isUsable) noexcept;
  void OnRefusalLocked(const HTTPResponse& response) noexcept;
  void Stop() noexcept;

  struct Job;

  const std::shared_ptr<HTTPRequestBudget> m_budget;
  const std::shared_ptr<const HTTPPrediction> m_prediction;
  const Check m_isUsable;
  HTTPByteLimit m_limit{kMaxUnreadBytes};
  Lane m_own;                                     // of the thread of the import
  Place m_ownPlace;                               // of the request that the client sends itself
  bool m_isWaitingForRoom = false;                // with an exchange in the store
  std::unique_ptr<HTTPConnectionGroup> m_group;   // of the lanes
  const std::unique_ptr<HTTPTransfer> m_pattern;  // sends nothing; the lanes are duplicates
  std::vector<std::unique_ptr<Lane>> m_lanes;     // of the other thread
  std::shared_ptr<HTTPReadAhead*> m_self;         // for the end of the operation

  std::mutex m_mutex;
  // Guarded by m_mutex.
  std::shared_ptr<Operation> m_operation;  // null: none
  std::shared_ptr<Operation> m_ended;      // to be freed by the other thread
  HTTPReadAheadStore m_store;
  HTTPReadAheadInfo m_counts;
  HTTPLogInSchemes m_logIn;
  NarrowString m_headerLines;
  NarrowString m_awaited;             // request whose reply the import waits for; empty: none
  bool m_isWaitingForImport = false;  // to use a reply, before more is sent ahead
  bool m_isOff = false;
  bool m_isEnding = false;

  RefCnt<VXThread> m_thread;  // last: it uses the others
};
