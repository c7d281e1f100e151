#include "http/HTTPReadAhead.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

#include "Utility/Generic/Cancellation.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportOperation.h"
#include "http/HTTPRetries.h"

namespace {

/// With more unread bytes, no further request is sent ahead. The rest of the limit is for replies
/// that are being received.
constexpr std::uint64_t kMaxBytesBeforeSending = HTTPReadAhead::kMaxUnreadBytes / 2;
const HTTPStepHandler kNoSteps;
constexpr int kIdleMilliseconds = 10'000;
constexpr std::chrono::milliseconds kMaxWaitForPrediction{100};

}  // namespace

/// What the other thread runs.
struct HTTPReadAhead::Job {
  HTTPReadAhead* owner;

  void Announce() {}
  void operator()() const noexcept { owner->Run(); }
  void Cancel() const noexcept { owner->Stop(); }
};

HTTPReadAhead::HTTPReadAhead(HTTPTransfer& own, std::shared_ptr<HTTPRequestBudget> budget,
                             std::shared_ptr<const HTTPPrediction> prediction, Check isUsable)
    : m_budget(std::move(budget)),
      m_prediction(std::move(prediction)),
      m_isUsable(std::move(isUsable)),
      m_group(HTTPConnectionGroup::Create(m_budget->Limit() - 1)),
      m_pattern(own.Duplicate(*m_group, {})),
      m_self(std::make_shared<HTTPReadAhead*>(this)) {
  m_own.transfer = &own;
  m_budget->Add(*this);
}

HTTPReadAhead::~HTTPReadAhead() {
  // In a forked child, the other thread does not exist and may have held the mutex.
  if (m_budget->IsOfThisProcess()) {
    EndOperation();
    m_budget->Remove(*this);
    Stop();
  }
  m_thread = {};
  for (const auto& lane : m_lanes) lane->transfer->Cancel();
  m_group.reset();  // closes the connections, for which libcurl may need their handles
}

void HTTPReadAhead::SetHeaderLines(const NarrowString& lines) {
  const std::lock_guard lock(m_mutex);
  m_headerLines = lines;
}

// The thread of the import.

/// False if nothing can be read ahead.
bool HTTPReadAhead::BeginOperation() {
  ::ImportOperation* const current = ::ImportOperation::Current();
  if (!current) return false;
  if (m_operation) return true;
  auto operation = std::make_shared<Operation>();
  operation->settings.limits = ImportSettings::Current().limits;
  current->AtEnd([self = std::weak_ptr(m_self)] {
    if (const auto readAhead = self.lock()) (*readAhead)->EndOperation();
  });
  const std::lock_guard lock(m_mutex);
  m_operation = std::move(operation);
  m_counts = {};
  return true;
}

void HTTPReadAhead::EndOperation() noexcept {
  if (!m_operation) return;
  m_isWaitingForRoom = false;
  TakeOwnBack();
  HTTPReadAheadInfo counts;
  {
    const std::lock_guard lock(m_mutex);
    m_operation->state.RequestCancellation(VXExecutionState::kCancelReasonUnknown);
    m_limit.Subtract(m_store.LimitedBytes());
    // The other thread frees what is left: a million rows would delay the end of the operation.
    m_operation->rest = std::exchange(m_store, HTTPReadAheadStore());
    m_ended = std::exchange(m_operation, nullptr);
    counts = m_counts;
  }
  m_group->Wake();
  if (counts.sent == 0) return;
  counts.unused = counts.sent - counts.used - counts.repeated;
  if (HTTPExchangeObserver* const observer = ImportSettings::Current().exchangeObserver)
    observer->OnReadAhead(counts);
}

HTTPReadAhead::Answer HTTPReadAhead::Take(const NarrowString& body, HTTPResponse& response) {
  if (!BeginOperation()) return Answer::kSend;
  if (m_isWaitingForRoom && m_budget->HasRoom()) StartThread();
  const Clock::time_point begin = Clock::now();
  for (;;) {
    const std::optional<Answer> answer = Look(body, begin, response);
    if (answer == Answer::kReady) {
      // An observer learns the costs for the import. The log-in of an additional connection is
      // none of them.
      response.connectSeconds = 0;
      response.firstByteSeconds = response.totalSeconds =
          std::chrono::duration<double>(Clock::now() - begin).count();
      response.earlierBytes = 0;
      return *answer;
    }
    if (answer) {
      TakeOwnBack();
      return *answer;
    }
    SendAheadOnOwn();
    m_own.transfer->Wait(HTTPConnectionGroup::kPollMilliseconds);
    if (m_own.operation) AdvanceLane(m_own);
  }
}

/// Looks for the reply to a request that the import asks for. nullopt: it must wait.
std::optional<HTTPReadAhead::Answer> HTTPReadAhead::Look(const NarrowString& body,
                                                         Clock::time_point begin,
                                                         HTTPResponse& response) {
  using State = HTTPReadAheadStore::State;
  bool mustWake = false;
  Answer answer = Answer::kReady;
  {
    const std::lock_guard lock(m_mutex);
    Place place;
    HTTPReadAheadStore::Request* const request = m_store.With(body, place);
    const bool mayWait = !IsThreadToStop();
    if (mayWait && (request ? request->state == State::kSent : MustWaitToSend(body, begin))) {
      m_awaited = body;
      return std::nullopt;
    }
    // The request must be repeated while no other is in progress. So the one that was sent ahead
    // over the client's own connection must end first.
    if (mayWait && request && request->state == State::kFailed && m_own.operation)
      return std::nullopt;
    m_awaited.clear();
    if (!request) {
      m_ownPlace = m_store.SendAsked(body);
      return Answer::kSend;
    }
    if (request->state != State::kReady) {
      m_ownPlace = place;
      if (request->state != State::kFailed) return Answer::kSend;
      ++m_counts.repeated;
      answer = Answer::kSendAlone;
    } else {
      ++m_counts.used;
      response = std::move(request->response);
      m_limit.Subtract(request->limitedBytes);
    }
    m_store.Remove(place);
    mustWake = std::exchange(m_isWaitingForImport, false);
  }
  if (mustWake) m_group->Wake();
  return answer;
}

/// True if a predicted request can only be sent after another one: the client's own connection is
/// in use for a request that is needed later, and would have to be closed. The prediction may still
/// be reading the reply that leads to the request; it usually takes less than a millisecond.
bool HTTPReadAhead::MustWaitToSend(const NarrowString& body, Clock::time_point begin) const {
  if (!m_own.operation) return false;
  return m_store.IsUnsent(body) ||
         (m_store.HasExchange() && Clock::now() - begin < kMaxWaitForPrediction);
}

void HTTPReadAhead::OnResponse(const NarrowString& body, const HTTPResponse& response,
                               bool isUsable) {
  if (!m_operation) return;
  const bool isFollowed = isUsable && m_prediction->IsFollowed(body);
  {
    const std::lock_guard lock(m_mutex);
    OnRefusalLocked(response);
    if (!isFollowed || m_isOff || m_budget->Limit() == 1) return;
    // Other import objects need all places now. One exchange is kept for the time when they end.
    m_isWaitingForRoom = !m_thread && !m_budget->HasRoom();
    if (m_isWaitingForRoom && m_store.HasExchange()) return;
    m_logIn = m_own.transfer->LogInSchemes();
    m_store.AddExchange(m_ownPlace, body, response.body);
  }
  if (m_isWaitingForRoom) return;
  StartThread();
  m_group->Wake();
}

void HTTPReadAhead::StartThread() {
  m_isWaitingForRoom = false;
  if (m_thread) return;
  try {
    RefCnt<VXThread> thread(new VXUserThread<Job>(Job{this}));
    thread->Start();
    m_thread = std::move(thread);
  } catch (const ErrorMessage&) {  // the system has no thread left
    const std::lock_guard lock(m_mutex);
    m_isOff = true;
  }
}

/// Uses the client's own connection while the import waits.
void HTTPReadAhead::SendAheadOnOwn() {
  if (m_own.operation || !HasRequest(m_operation)) return;
  HTTPRequestBudget::Permit permit = m_budget->TryTakeOwn();
  if (permit && Choose(m_own, m_operation, std::move(permit))) BeginLane(m_own);
}

/// Ends a request that was sent ahead over the client's own connection. It may be sent again later.
void HTTPReadAhead::TakeOwnBack() noexcept {
  if (!m_own.operation) return;
  m_own.transfer->Cancel();
  m_own.transfer->SetLimit(nullptr);
  {
    const std::lock_guard lock(m_mutex);
    m_limit.Subtract(m_own.transfer->TakeLimitedBytes());
    try {
      m_store.TakeBack(m_own.place);
    } catch (const std::exception&) {
      // Out of memory: the import will send the request.
    }
  }
  m_own.operation = nullptr;
  m_own.permit.Abandon();
  m_group->Wake();
}

// The other thread.

void HTTPReadAhead::Stop() noexcept {
  {
    const std::lock_guard lock(m_mutex);
    m_isEnding = true;
  }
  m_group->Wake();
}

void HTTPReadAhead::Run() noexcept {
  for (;;) {
    std::shared_ptr<Operation> ended;
    std::shared_ptr<Operation> operation;
    {
      const std::lock_guard lock(m_mutex);
      if (m_isEnding) return;
      ended = std::move(m_ended);
      if (!m_isOff) operation = m_operation;
    }
    ended = nullptr;
    if (operation && (operation->isServed || !Serve(operation))) operation = nullptr;
    if (!operation) m_group->Wait(kIdleMilliseconds);
  }
}

/// Works for the operation until its end. False if that fails.
bool HTTPReadAhead::Serve(const std::shared_ptr<Operation>& operation) noexcept {
  const VXExecutionState::Scope scope(operation->state);
  const ImportSettings::Scope settingsScope(operation->settings);
  bool isWorking = true;
  try {
    while (!operation->state.IsCancellationRequested()) {
      SendAhead(operation);
      const bool hasPredicted = Predict(operation);
      const bool isBusy =
          std::ranges::any_of(m_lanes, [](const auto& lane) { return lane->operation != nullptr; });
      m_group->Wait(hasPredicted ? 0
                    : isBusy     ? HTTPConnectionGroup::kPollMilliseconds
                                 : kIdleMilliseconds);
      for (const auto& lane : m_lanes)
        if (lane->operation) AdvanceLane(*lane);
    }
  } catch (...) {
    // Usually std::bad_alloc. ErrorMessage does not derive from std::exception.
    isWorking = false;
    operation->isServed = true;
    const std::lock_guard lock(m_mutex);
    m_isOff = true;
  }
  for (const auto& lane : m_lanes)
    if (lane->operation) FailLane(*lane);
  return isWorking;
}

/// Reads a reply, and finds out which requests follow. False if there is none to read.
bool HTTPReadAhead::Predict(const std::shared_ptr<Operation>& operation) {
  NarrowString request;
  NarrowString reply;
  Place place;
  {
    const std::lock_guard lock(m_mutex);
    if (m_operation != operation || !m_store.HasExchange()) return false;
    const auto& [first, exchange] = m_store.FirstExchange();
    place = first;
    request = exchange.request;
    reply = exchange.reply;
  }
  HTTPPrediction::Requests requests = m_prediction->RequestsAfter(request, std::move(reply));
  const std::lock_guard lock(m_mutex);
  if (m_operation == operation) m_store.AddRequests(place, std::move(requests));
  if (!m_awaited.empty()) m_own.transfer->Wake();
  return true;
}

void HTTPReadAhead::SendAhead(const std::shared_ptr<Operation>& operation) {
  while (HasRequest(operation)) {
    HTTPRequestBudget::Permit permit = m_budget->TryTakeAhead();
    if (!permit) return;
    Lane& lane = IdleLane();
    if (!Choose(lane, operation, std::move(permit))) return;
    BeginLane(lane);
  }
}

HTTPReadAhead::Lane& HTTPReadAhead::IdleLane() {
  for (const auto& lane : m_lanes)
    if (!lane->operation) return *lane;
  HTTPLogInSchemes logIn;
  {
    const std::lock_guard lock(m_mutex);
    logIn = m_logIn;
  }
  auto lane = std::make_unique<Lane>();
  lane->additional = m_pattern->Duplicate(*m_group, logIn);
  lane->transfer = lane->additional.get();
  return *m_lanes.emplace_back(std::move(lane));
}

// Both threads.

/// Call before taking a permit. An import object that takes and returns permits without a request
/// would wake the other ones, and they would do the same.
bool HTTPReadAhead::HasRequest(const std::shared_ptr<Operation>& operation) {
  const std::lock_guard lock(m_mutex);
  return HasRequestLocked(operation);
}

bool HTTPReadAhead::HasRequestLocked(const std::shared_ptr<Operation>& operation) {
  if (m_operation != operation || m_isOff || m_isEnding) return false;
  const NarrowString* const first = m_store.FirstUnsent();
  if (!first) return false;
  // Of equal requests, the next is sent after the import has used the reply to the one before.
  if (!m_store.Has(*first) && m_store.Count() < kMaxRequests &&
      m_limit.Sum() < kMaxBytesBeforeSending)
    return true;
  m_isWaitingForImport = true;
  return false;
}

/// Chooses the request that a lane sends. False if there is none.
bool HTTPReadAhead::Choose(Lane& lane, const std::shared_ptr<Operation>& operation,
                           HTTPRequestBudget::Permit permit) {
  const std::lock_guard lock(m_mutex);
  if (!HasRequestLocked(operation)) return false;
  lane.body = *m_store.FirstUnsent();
  lane.headerLines = m_headerLines;
  lane.place = m_store.SendFirst();
  lane.operation = operation;
  lane.permit = std::move(permit);
  ++m_counts.sent;
  return true;
}

void HTTPReadAhead::BeginLane(Lane& lane) noexcept {
  try {
    lane.response = HTTPResponse();
    if (lane.additional && !(lane.usedHeaderLines == lane.headerLines)) {
      lane.transfer->SetHeaderLines(lane.headerLines);
      lane.usedHeaderLines = lane.headerLines;
    }
    lane.transfer->SetLimit(&m_limit);
    lane.transfer->Begin(lane.body, lane.response, kNoSteps);
  } catch (...) {
    FailLane(lane);
  }
}

void HTTPReadAhead::AdvanceLane(Lane& lane) noexcept {
  bool isUsable = false;
  try {
    if (!lane.transfer->Advance()) return;
    isUsable = m_isUsable(lane.response) && m_prediction->IsAccepted(lane.response.body);
  } catch (...) {
    return FailLane(lane);
  }
  Store(lane, isUsable);
}

void HTTPReadAhead::FailLane(Lane& lane) noexcept {
  lane.transfer->Cancel();
  lane.permit.Abandon();
  lane.response.failure = HTTPFailure::kCancelled;
  Store(lane, false);
}

/// Ends the lane's request and keeps its response.
void HTTPReadAhead::Store(Lane& lane, bool isUsable) noexcept {
  lane.transfer->SetLimit(nullptr);
  std::uint64_t bytes = lane.transfer->TakeLimitedBytes();
  const std::uint64_t size = lane.response.body.size();
  if (isUsable && size > bytes) {  // longer than received, after its conversion to UTF-8
    isUsable = m_limit.TryAdd(size - bytes);
    if (isUsable) bytes = size;
  }
  const bool isFollowed = isUsable && m_prediction->IsFollowed(lane.body);
  if (HTTPRetries::MayBeOverload(lane.response))
    lane.permit.Refuse(HTTPRetries::IsLastingOverload(lane.response));
  const double pause = HTTPRetries::PauseSeconds(lane.response);
  const HTTPFailure failure = lane.response.failure;
  {
    const std::lock_guard lock(m_mutex);
    OnRefusalLocked(lane.response);
    HTTPReadAheadStore::Request* const request =
        lane.operation == m_operation ? m_store.At(lane.place) : nullptr;
    if (request && isUsable) {
      request->state = HTTPReadAheadStore::State::kReady;
      request->limitedBytes = bytes;
      request->response = std::move(lane.response);
      try {
        if (isFollowed) m_store.AddExchange(lane.place, lane.body, request->response.body);
      } catch (const std::exception&) {
        // Out of memory: the import will send the requests that follow.
      }
    } else {
      m_limit.Subtract(bytes);
      if (request) request->state = HTTPReadAheadStore::State::kFailed;
    }
    if (lane.additional && m_awaited == lane.body) m_own.transfer->Wake();
  }
  lane.operation = nullptr;
  m_budget->Pause(pause);
  HTTPRetries::Return(lane.permit, failure);
  if (!lane.additional && isFollowed) m_group->Wake();
}

/// A refused log-in ends the read-ahead: a password that has become invalid must not lock an
/// account.
void HTTPReadAhead::OnRefusalLocked(const HTTPResponse& response) noexcept {
  if (response.status == 401 || response.status == 407 || response.proxyStatus == 407)
    m_isOff = true;
}
