#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "Utility/Generic/HTTPReadAhead.h"
#include "Utility/Generic/String.h"
#include "http/HTTPTransfer.h"

/// The predicted requests of one import operation: those that are not sent yet, and those that were
/// sent ahead, with their replies. Not thread-safe.
///
/// Requests are ordered by when they will be needed. The place of a request is the path in the tree
/// of predictions: request {2, 1} is the first one that follows from the reply to request {2}, and
/// is needed before {2, 2} and {3}. If the import asks for a request before the prediction has read
/// the reply, the place is {2, 0, 1}, then {2, 0, 2}, ...
class HTTPReadAheadStore {
 public:
  /// If the import asks for more requests before the prediction has read a reply, it is not read.
  static constexpr std::size_t kMaxAsked = 4096;
  using Place = std::vector<std::uint32_t>;
  enum class State { kSent, kReady, kFailed };

  struct Request {
    NarrowString body;
    State state = State::kSent;
    HTTPResponse response;           ///< if kReady
    std::uint64_t limitedBytes = 0;  ///< of the response, see HTTPReceiver
  };

  /// An exchange whose reply is not read by the prediction yet.
  struct Exchange {
    NarrowString request;
    NarrowString reply;
    std::uint32_t asked = 0;  ///< number of requests of the import that may follow from it
  };

  // Predictions:

  void AddExchange(const Place& place, const NarrowString& request, const NarrowString& reply) {
    m_exchanges[place] = {request, reply};
  }
  bool HasExchange() const { return !m_exchanges.empty(); }
  /// The exchange whose requests are needed first. Requires HasExchange.
  const std::pair<const Place, Exchange>& FirstExchange() const { return *m_exchanges.begin(); }
  /// Adds the requests that follow from an exchange, and removes it. Those that the import has
  /// asked for in the meantime are left out.
  void AddRequests(const Place& exchange, HTTPPrediction::Requests requests);

  // Requests that are not sent:

  /// The unsent request that is needed first; nullptr if there is none.
  const NarrowString* FirstUnsent() const {
    return m_unsent.empty() ? nullptr : &m_unsent.begin()->second.body;
  }
  /// True if this is the next request of a group of unsent ones.
  bool IsUnsent(const NarrowString& body) const;
  /// Turns the first unsent request into a sent one.
  Place SendFirst();
  /// The import sends this request itself. Returns its place; for an unpredicted one, a new place
  /// behind all others.
  Place SendAsked(const NarrowString& body);
  /// Turns a sent request into an unsent one.
  void TakeBack(const Place& place);

  // Requests that were sent ahead:

  /// Null if there is none with this place or body.
  Request* At(const Place& place);
  Request* With(const NarrowString& body, Place& place);
  bool Has(const NarrowString& body) const { return m_places.contains(body); }
  void Remove(const Place& place);
  std::size_t Count() const { return m_sent.size(); }
  /// Sum of limitedBytes.
  std::uint64_t LimitedBytes() const;

 private:
  /// A group of requests that are not sent. Its place is that of its next request.
  struct Unsent {
    HTTPPrediction::Requests rest;  // after the next one
    NarrowString body;              // the next one
  };
  using Position = std::map<Place, Unsent>::iterator;

  void Advance(Position position);

  std::map<Place, Exchange> m_exchanges;
  std::unordered_multiset<NarrowString> m_asked;  // may follow from m_exchanges
  std::map<Place, Unsent> m_unsent;
  std::map<Place, Request> m_sent;
  std::unordered_map<NarrowString, Place> m_places;  // of m_sent
  std::uint32_t m_roots = 0;
};
