#pragma once

/// \file
/// Read-ahead: an HTTP client sends requests that an import will need, before the import asks for
/// them.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// Predicts requests. The client calls it on its own threads, so it must not use data that change.
class XMLAHOST_API HTTPPrediction {
 public:
  /// Returns the next body and true, or false at the end. Called by one thread at a time.
  using Requests = std::function<bool(NarrowString& body)>;

  virtual ~HTTPPrediction();
  /// True if requests may follow from a reply to this request. Cheap.
  virtual bool IsFollowed(const NarrowString& request) const = 0;
  /// False if the import would reject this reply. Such a reply is requested again. `reply` is
  /// UTF-8.
  virtual bool IsAccepted(NarrowString reply) const = 0;
  /// The bodies of the requests that will be sent because of this reply, in the order in which they
  /// will be needed. `reply` is UTF-8. Empty if there are none, and if IsThreadToStop.
  virtual Requests RequestsAfter(const NarrowString& request, NarrowString reply) const = 0;
};

/// How many requests may be in progress at the same time, over all import objects that share the
/// budget. Each has a place for the requests that it needs at once, and uses places that are left
/// to read ahead. Thread-safe.
///
/// A request that fails while others are in progress is repeated when no other one is in progress.
/// The failure is reported only if it happens then, too. If load looks like the reason (429, 502,
/// 503 or 504, no or a lost connection, or a time-out), the number is halved for all import
/// objects, down to one. After a lost connection, which can have another reason, it doubles again
/// after every 32 requests without such a failure. After the others, it stays low as long as the
/// budget exists, so give each import a budget of its own.
class XMLAHOST_API HTTPRequestBudget {
 public:
  /// `imports`: number of import objects that work at the same time, at least 1.
  explicit HTTPRequestBudget(unsigned int requests, unsigned int imports = 1) noexcept;
  HTTPRequestBudget(const HTTPRequestBudget&) = delete;
  HTTPRequestBudget& operator=(const HTTPRequestBudget&) = delete;

  /// One of the import objects has finished and is destroyed. Others may use its place.
  void EndImport() noexcept;
  /// Another import object begins to work. Call it only after EndImport.
  void BeginImport() noexcept;

  // For HTTP clients:

  /// Permission to have one request in progress.
  class XMLAHOST_API Permit {
   public:
    Permit() noexcept = default;  ///< none
    /// Moves the permission. The assignment returns the one that this object had.
    /// @{
    Permit(Permit&& other) noexcept { *this = std::move(other); }
    Permit& operator=(Permit&& other) noexcept;
    /// @}
    ~Permit() { Return(); }

    /// True if this is a permission.
    explicit operator bool() const noexcept { return m_budget != nullptr; }
    /// Call after a request that has ended. Does nothing without a permission.
    void Return() noexcept;
    /// Call instead of Return after a request that was cancelled. The server may still work on it.
    void Abandon() noexcept;
    /// True if other requests were in progress since this permission was given. If the request has
    /// failed, it must be repeated with a permission of Take(true).
    bool IsBesideOthers() const noexcept;
    /// Call when the request has failed, and load looks like the reason. If other requests were in
    /// progress, halves the number of requests at a time that was valid when the permission was
    /// given. `isLasting`: the number does not grow beyond that again.
    void Refuse(bool isLasting) noexcept;

   private:
    friend class HTTPRequestBudget;
    bool IsBesideOthersLocked() const noexcept;

    HTTPRequestBudget* m_budget = nullptr;
    unsigned int* m_count = nullptr;  // counter of the budget that includes this permit
    std::uint64_t m_number = 0;       // permits are numbered in their order
    unsigned int m_requests = 0;      // of the budget when it gave this permit
    bool m_wasFirst = false;          // no other request was in progress then
  };

  /// Called if a place may be free after TryTakeAhead has failed. On any thread; must not throw,
  /// and must not call the budget.
  class Listener {
   public:
    /// A place may be free.
    virtual void OnPlaceFree() noexcept = 0;

   protected:
    ~Listener() = default;
  };
  /// Adds a listener, which must outlive its removal. A listener may be added once.
  void Add(Listener& listener);
  /// Removes a listener. It is not called after this returns.
  void Remove(Listener& listener) noexcept;
  /// False in a forked child, where the budget must not be used: other threads of the parent may
  /// have been changing it.
  bool IsOfThisProcess() const noexcept;
  /// Most requests that an import object can have ahead at the moment.
  unsigned int MostAhead() const noexcept;
  /// Most requests at a time that the budget can grow to.
  unsigned int Limit() const noexcept;
  /// When the latest pause ends. A time in the past if nothing is paused. Also for observers.
  std::chrono::steady_clock::time_point PausedUntil() const noexcept;
  /// False while the import objects need all places themselves.
  bool HasRoom() const noexcept;

  /// Gives no permission for `seconds` from now. Does not end a longer pause.
  void Pause(double seconds);
  /// Waits for a place. With `isAlone`, waits until no other request is in progress, and lets none
  /// begin before the permission is returned. Without permission if IsThreadToStop.
  Permit Take(bool isAlone);
  /// For a request that is sent ahead over the client's own connection. It uses the place that the
  /// import object has for its own requests. Without permission if that is not free.
  Permit TryTakeOwn() noexcept;
  /// For a request that is sent ahead over an additional connection. Without permission if no place
  /// is left.
  Permit TryTakeAhead() noexcept;

 private:
  Permit PermitLocked(unsigned int& count) noexcept;
  bool IsFreeLocked() const noexcept;
  bool IsQuietLocked() const noexcept;
  bool IsPausedLocked() const noexcept;
  void NotifyLocked() noexcept;

  const int m_process;      // id
  const bool m_hasOnlyOne;  // one request at a time from the beginning
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  // Guarded by m_mutex.
  unsigned int m_requests;
  unsigned int m_mostRequests;  // m_requests may grow to
  unsigned int m_imports;
  unsigned int m_own = 0;           // permits of requests that import objects send themselves
  unsigned int m_ahead = 0;         // permits of the others
  unsigned int m_waiting = 0;       // calls of Take
  unsigned int m_waitingAlone = 0;  // of these: with isAlone
  bool m_isAlone = false;           // the only permit was taken with isAlone
  std::uint64_t m_permits = 0;      // given so far
  unsigned int m_sinceRefusal = 0;  // permits given since m_requests grew or one was refused
  bool m_isWanted = false;          // TryTakeAhead has failed
  std::chrono::steady_clock::time_point m_abandoned;  // when the latest request was cancelled
  std::chrono::steady_clock::time_point m_pausedUntil;
  std::vector<Listener*> m_listeners;
};

/// What an import operation has read ahead.
struct HTTPReadAheadInfo {
  std::uint64_t sent = 0;      ///< requests that were sent ahead
  std::uint64_t used = 0;      ///< of these: their reply was used
  std::uint64_t repeated = 0;  ///< of these: failed, and sent again when the import needed them
  std::uint64_t unused = 0;    ///< the others: the import did not need them
};
