#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
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

/// How many requests may be in progress at the same time. Import objects that share one budget
/// divide it: each has one place for the requests that it needs at once, and uses places that are
/// left to read ahead. Thread-safe.
///
/// A server that answers 429 or 503, or refuses a connection, halves the number for all of them,
/// down to one for each import object.
class XMLAHOST_API HTTPRequestBudget {
 public:
  /// `imports`: number of import objects that work at the same time, at least 1.
  explicit HTTPRequestBudget(unsigned int requests, unsigned int imports = 1) noexcept
      : m_requests(requests), m_imports(imports) {}
  HTTPRequestBudget(const HTTPRequestBudget&) = delete;
  HTTPRequestBudget& operator=(const HTTPRequestBudget&) = delete;

  /// One of the import objects has finished and is destroyed. Others may use its place.
  void EndImport() noexcept;

  /// Most requests that an import object can have ahead.
  unsigned int MostAhead() const noexcept;

  // For HTTP clients:

  /// Called if a place may be free after TryTake has failed. On any thread; must not throw, and
  /// must not call the budget.
  class Listener {
   public:
    virtual void OnPlaceFree() noexcept = 0;

   protected:
    ~Listener() = default;
  };
  void Add(Listener& listener);
  void Remove(Listener& listener) noexcept;
  /// False while the import objects need all places themselves.
  bool HasRoom() const noexcept;
  /// Takes a place for a request that is sent ahead.
  bool TryTake() noexcept;
  void Return() noexcept;
  /// True if an import object may use its own place to send a request ahead.
  bool MaySendOnOwn() const noexcept;
  /// Number of halvings so far.
  unsigned int Halvings() const noexcept;
  /// Halves the number of requests. Does nothing if it was halved since `halvings` was read:
  /// requests that were rejected together halve it once.
  void Halve(unsigned int halvings) noexcept;

 private:
  mutable std::mutex m_mutex;
  // Guarded by m_mutex.
  unsigned int m_requests;
  unsigned int m_imports;
  unsigned int m_ahead = 0;  // places that are taken
  unsigned int m_halvings = 0;
  bool m_isWanted = false;  // TryTake has failed
  std::vector<Listener*> m_listeners;

  void NotifyLocked() noexcept;
};

/// What an import operation has read ahead.
struct HTTPReadAheadInfo {
  std::uint64_t sent = 0;      ///< requests that were sent ahead
  std::uint64_t used = 0;      ///< of these: their reply was used
  std::uint64_t repeated = 0;  ///< of these: failed, and sent again when the import needed them
  std::uint64_t unused = 0;    ///< the others: the import did not need them
};
