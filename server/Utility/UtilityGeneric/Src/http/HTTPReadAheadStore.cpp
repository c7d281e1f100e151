#include "http/HTTPReadAheadStore.h"

#include <algorithm>
#include <utility>

void HTTPReadAheadStore::AddRequests(const Place& exchange, HTTPPrediction::Requests requests) {
  if (m_exchanges.erase(exchange) == 0) return;
  Unsent unsent;
  unsent.rest = std::move(requests);
  Place place = exchange;
  place.push_back(1);
  bool isMore = unsent.rest && unsent.rest(unsent.body);
  while (isMore) {
    const auto asked = m_asked.find(unsent.body);
    if (asked == m_asked.end()) break;
    m_asked.erase(asked);
    ++place.back();
    isMore = unsent.rest(unsent.body);
  }
  if (isMore) m_unsent.emplace(std::move(place), std::move(unsent));
  if (m_exchanges.empty()) m_asked.clear();
}

void HTTPReadAheadStore::Advance(Position position) {
  auto node = m_unsent.extract(position);
  Unsent& unsent = node.mapped();
  if (!unsent.rest || !unsent.rest(unsent.body)) return;
  ++node.key().back();
  m_unsent.insert(std::move(node));
}

bool HTTPReadAheadStore::IsUnsent(const NarrowString& body) const {
  return std::ranges::any_of(m_unsent,
                             [&](const auto& entry) { return entry.second.body == body; });
}

HTTPReadAheadStore::Place HTTPReadAheadStore::SendFirst() {
  const Position first = m_unsent.begin();
  Place place = first->first;
  Request& request = m_sent[place];
  try {
    request.body = first->second.body;
    m_places.emplace(request.body, place);
    Advance(first);
  } catch (...) {
    // If the request counted as sent, the import would wait for its reply forever.
    Remove(place);
    throw;
  }
  return place;
}

HTTPReadAheadStore::Place HTTPReadAheadStore::SendAsked(const NarrowString& body) {
  for (Position position = m_unsent.begin(); position != m_unsent.end(); ++position) {
    if (!(position->second.body == body)) continue;
    Place place = position->first;
    Advance(position);
    return place;
  }
  if (m_asked.size() >= kMaxAsked) {
    m_exchanges.clear();
    m_asked.clear();
  }
  if (!m_exchanges.empty()) {  // it may follow from one of these replies
    auto& [exchange, first] = *m_exchanges.begin();
    m_asked.insert(body);
    Place place = exchange;
    place.insert(place.end(), {0, ++first.asked});
    return place;
  }
  return {m_roots++};
}

void HTTPReadAheadStore::TakeBack(const Place& place) {
  const auto found = m_sent.find(place);
  if (found == m_sent.end()) return;
  const NarrowString body = found->second.body;
  Remove(place);
  m_unsent.emplace(place, Unsent{{}, body});
}

HTTPReadAheadStore::Request* HTTPReadAheadStore::At(const Place& place) {
  const auto found = m_sent.find(place);
  return found == m_sent.end() ? nullptr : &found->second;
}

HTTPReadAheadStore::Request* HTTPReadAheadStore::With(const NarrowString& body, Place& place) {
  const auto found = m_places.find(body);
  if (found == m_places.end()) return nullptr;
  place = found->second;
  return At(place);
}

void HTTPReadAheadStore::Remove(const Place& place) {
  const auto found = m_sent.find(place);
  if (found == m_sent.end()) return;
  m_places.erase(found->second.body);
  m_sent.erase(found);
}

std::uint64_t HTTPReadAheadStore::LimitedBytes() const {
  std::uint64_t sum = 0;
  for (const auto& [place, request] : m_sent) sum += request.limitedBytes;
  return sum;
}
