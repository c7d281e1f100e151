#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

// Read-ahead: an HTTP client sends requests that an import will need, before the import asks for
// them.

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
/// A server that refuses a request for its load (429, 503, or no connection) while others are in
/// progress halves the number for all, down to one. A refused request is repeated when no other one
/// is in progress, so a failure that is reported happened to a request that was alone.
class XMLAHOST_API HTTPRequestBudget {
 public:
  /// `imports`: number of import objects that work at the same time, at least 1.
  explicit HTTPRequestBudget(unsigned int requests, unsigned int imports = 1) noexcept;
  HTTPRequestBudget(const HTTPRequestBudget&) = delete;
  HTTPRequestBudget& operator=(const HTTPRequestBudget&) = delete;

  /// One of the import objects has finished and is destroyed. Others may use its place.
  void EndImport() noexcept;

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
    /// Returns it after a request that has ended. Does nothing if this is none.
    void Return() noexcept;
    /// Returns it after a request that was cancelled: the server may still work on it.
    void Abandon() noexcept;
    /// Call when the server has refused the request for its load. True if it must be repeated
    /// alone: others were in progress. Then halves the budget, once for requests that were in
    /// progress together.
    bool Refuse() noexcept;

   private:
    friend class HTTPRequestBudget;
    HTTPRequestBudget* m_budget = nullptr;
    unsigned int* m_count = nullptr;  // of the budget, in which this permit counts
    std::uint64_t m_number = 0;       // of all permits
    unsigned int m_halvings = 0;      // of the budget before this permit
    bool m_wasFirst = false;          // nothing else was in progress at its beginning
  };

  /// Called if a place may be free after TryTakeAhead has failed. On any thread; must not throw,
  /// and must not call the budget.
  class Listener {
   public:
    /// See Listener.
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
  /// Most requests that an import object can have ahead.
  unsigned int MostAhead() const noexcept;
  /// False while the import objects need all places themselves.
  bool HasRoom() const noexcept;

  /// Waits for a place; `isAlone`: until no other request is in progress, and keeps them away. None
  /// if IsThreadToStop.
  Permit Take(bool isAlone);
  /// For a request that is sent ahead over the connection of the import object: in its own place.
  Permit TryTakeOwn() noexcept;
  /// The same for an additional connection.
  Permit TryTakeAhead() noexcept;

 private:
  Permit PermitLocked(unsigned int& count) noexcept;
  bool IsFreeLocked() const noexcept;
  bool IsQuietLocked() const noexcept;
  void NotifyLocked() noexcept;

  const int m_process;  // number
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  // Guarded by m_mutex.
  unsigned int m_requests;
  unsigned int m_imports;
  unsigned int m_own = 0;           // permits of requests that import objects send themselves
  unsigned int m_ahead = 0;         // permits of the others
  unsigned int m_waiting = 0;       // calls of Take
  unsigned int m_waitingAlone = 0;  // of these: to be alone
  bool m_isAlone = false;           // the only permit keeps others away
  std::uint64_t m_permits = 0;      // so far
  unsigned int m_halvings = 0;
  bool m_isWanted = false;                            // TryTakeAhead has failed
  std::chrono::steady_clock::time_point m_abandoned;  // when the latest request was cancelled
  std::vector<Listener*> m_listeners;
};

/// What an import operation has read ahead.
struct HTTPReadAheadInfo {
  std::uint64_t sent = 0;      ///< requests that were sent ahead
  std::uint64_t used = 0;      ///< of these: their reply was used
  std::uint64_t repeated = 0;  ///< of these: failed, and sent again when the import needed them
  std::uint64_t unused = 0;    ///< the others: the import did not need them
};
