#include "zelclient/RequestTable.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "zelcomm/Frame.h"

namespace libzel {

namespace {

libzelx_Outcome OutcomeOf(const PendingRequest& request) {
  return {sizeof(libzelx_Outcome), request.result, request.deviceError, request.answerLength, 1};
}

}  // namespace

// ---- Entering and leaving ---------------------------------------------------------------------------------

void RequestTable::Insert(PendingRequest& request, uint32_t invokeId) {
  request.invokeId = invokeId;
  waiting_.emplace(invokeId, &request);
  mayTake_.store(true, std::memory_order_release);
}

bool RequestTable::Enter(PendingRequest& request, uint32_t invokeId) {
  const MutexLock lock(mutex_);
  if (!isClosed_) Insert(request, invokeId);
  return !isClosed_;
}

uint64_t RequestTable::NextTicket() { return lastTicket_.fetch_add(1) + 1; }

uint64_t RequestTable::Enter(std::unique_ptr<PendingRequest> request, uint32_t invokeId, bool& isNextDue) {
  const MutexLock lock(mutex_);
  if (isClosed_) return 0;
  const int64_t due = request->end.time_since_epoch().count();
  const uint64_t ticket = request->ticket;
  Insert(*request, invokeId);
  owned_.emplace(ticket, std::move(request));
  isNextDue = due < nextDue_.load(std::memory_order_relaxed);
  if (isNextDue) nextDue_.store(due, std::memory_order_release);
  return ticket;
}

void RequestTable::TakeOut(const PendingRequest& request) {
  const auto entry = waiting_.find(request.invokeId);
  if (entry != waiting_.end() && entry->second == &request) waiting_.erase(entry);
  if (waiting_.empty() && goneCount_ == 0) mayTake_.store(false, std::memory_order_release);
}

bool RequestTable::Withdraw(uint32_t invokeId) {
  const MutexLock lock(mutex_);
  const auto entry = waiting_.find(invokeId);
  if (entry == waiting_.end()) return false;
  TakeOut(*entry->second);
  return true;
}

bool RequestTable::WithdrawTicket(uint64_t ticket) {
  const MutexLock lock(mutex_);
  const auto entry = owned_.find(ticket);
  if (entry == owned_.end()) return false;
  TakeOut(*entry->second);
  std::erase(due_, ticket);
  owned_.erase(entry);
  return true;
}

void RequestTable::Await(PendingRequest& request) {
  const MutexLock lock(mutex_);
  while (request.state == PendingRequest::State::kWaiting) {
    if (request.ended.WaitUntil(mutex_, request.end) || request.state != PendingRequest::State::kWaiting)
      continue;
    Remember(request);
    TakeOut(request);
    request.state = PendingRequest::State::kEnded;
    request.result = ZEL_E_TIMEOUT;
  }
  // Its answer is being copied, which takes no time to speak of.
  while (request.state == PendingRequest::State::kClaimed) request.ended.Wait(mutex_);
}

// ---- Ending without an answer -----------------------------------------------------------------------------

void RequestTable::End(PendingRequest& request, int32_t result) {
  Remember(request);
  TakeOut(request);
  request.state = PendingRequest::State::kEnded;
  request.result = result;
  if (request.ticket != 0) {
    MakeDue(request);
  } else {
    request.ended.NotifyOne();
  }
}

void RequestTable::MakeDue(PendingRequest& request) {
  due_.push_back(request.ticket);
  nextDue_.store(kDueNow, std::memory_order_release);
}

void RequestTable::FailLost() {
  if (!MayTake()) return;
  const MutexLock lock(mutex_);
  std::vector<PendingRequest*> lost;
  for (const auto& [id, request] : waiting_) {
    if (!request->link->connected()) lost.push_back(request);
  }
  for (PendingRequest* request : lost) End(*request, ZEL_E_DISCONNECTED);
}

void RequestTable::Close(int32_t result) {
  const MutexLock lock(mutex_);
  isClosed_ = true;
  while (!waiting_.empty()) End(*waiting_.begin()->second, result);
}

void RequestTable::Open() {
  const MutexLock lock(mutex_);
  isClosed_ = false;
}

int32_t RequestTable::Cancel(uint64_t ticket) {
  const MutexLock lock(mutex_);
  const auto entry = owned_.find(ticket);
  if (entry != owned_.end()) {
    if (entry->second->state == PendingRequest::State::kWaiting) Remember(*entry->second);
    TakeOut(*entry->second);
    std::erase(due_, ticket);
    owned_.erase(entry);
    return 0;
  }
  while (runningTicket_ == ticket && runner_ != std::this_thread::get_id()) callbackEnded_.Wait(mutex_);
  return 1;
}

void RequestTable::Remember(const PendingRequest& request) {
  gone_[goneCount_++ % kRemembered] = {request.invokeId, request.port};
}

bool RequestTable::IsGone(uint32_t invokeId, uint16_t port) const {
  const auto end = gone_.begin() + static_cast<std::ptrdiff_t>(std::min(goneCount_, kRemembered));
  return std::any_of(gone_.begin(), end,
                     [&](const Gone& gone) { return gone.invokeId == invokeId && gone.port == port; });
}

bool RequestTable::Waits(uint32_t invokeId) {
  if (!MayTake()) return false;
  const MutexLock lock(mutex_);
  return waiting_.contains(invokeId);
}

uint32_t RequestTable::InFlight() {
  const MutexLock lock(mutex_);
  return static_cast<uint32_t>(waiting_.size());
}

// ---- Answers ----------------------------------------------------------------------------------------------

RequestTable::Taken RequestTable::Take(const FrameView& frame, bool isReceiveThread) {
  if (!MayTake() || frame.header.version != kVersionZoe) return Taken::kNo;
  const auto zoe = ZoeHeader::Read(frame.body);
  if (!zoe) return Taken::kNo;
  Claimed claimed;
  const Taken taken = Claim(frame, *zoe, isReceiveThread, claimed);
  const auto payload = frame.body.subspan(kZoeHeaderSize);
  if (claimed.waiting != nullptr) GiveToCaller(*claimed.waiting, payload);
  if (claimed.called != nullptr) RunCallback(*claimed.called, payload.data());
  return taken;
}

// Topics are published on a port of their own, under identifiers of the server's choice: they are no answers, unless it
// was there that was asked.
RequestTable::Taken RequestTable::Claim(const FrameView& frame, const ZoeHeader& zoe, bool isReceiveThread,
                                        Claimed& claimed) {
  const MutexLock lock(mutex_);
  const auto entry = waiting_.find(zoe.invokeId);
  if (entry == waiting_.end() || (frame.header.port == kTopicPort && entry->second->port != kTopicPort)) {
    return IsGone(zoe.invokeId, frame.header.port) ? Taken::kLate : Taken::kNo;
  }
  PendingRequest& request = *entry->second;
  TakeOut(request);
  request.deviceError = zoe.error;
  request.answerLength = static_cast<uint32_t>(frame.body.size() - kZoeHeaderSize);
  if (request.ticket == 0) {
    request.state = PendingRequest::State::kClaimed;
    claimed.waiting = &request;
  } else if (isReceiveThread) {
    claimed.called = BeginCallback(request.ticket);
  } else {
    request.kept.assign(frame.body.begin() + kZoeHeaderSize, frame.body.end());
    request.state = PendingRequest::State::kEnded;
    MakeDue(request);
  }
  return Taken::kAnswer;
}

void RequestTable::GiveToCaller(PendingRequest& request, std::span<const uint8_t> payload) {
  const size_t count = std::min(payload.size(), request.room.size());
  if (count != 0) std::memcpy(request.room.data(), payload.data(), count);
  const MutexLock lock(mutex_);
  request.state = PendingRequest::State::kEnded;
  request.ended.NotifyOne();
}

// ---- Callbacks --------------------------------------------------------------------------------------------

// Null when the request was cancelled meanwhile.
std::unique_ptr<PendingRequest> RequestTable::BeginCallback(uint64_t ticket) {
  const auto entry = owned_.find(ticket);
  if (entry == owned_.end()) return nullptr;
  runningTicket_ = ticket;
  runner_ = std::this_thread::get_id();
  auto request = std::move(entry->second);
  owned_.erase(entry);
  return request;
}

void RequestTable::RunCallback(const PendingRequest& request, const uint8_t* answer) {
  const libzelx_Outcome outcome = OutcomeOf(request);
  request.callback(request.ticket, &outcome, request.result == 0 ? answer : nullptr, request.user);
  const MutexLock lock(mutex_);
  runningTicket_ = 0;
  callbackEnded_.NotifyAll();
}

void RequestTable::RunDue() {
  if (MsUntilDue() > 0) return;
  std::vector<uint64_t> due;
  {
    const MutexLock lock(mutex_);
    EndOverdue();
    due.swap(due_);
  }
  for (const uint64_t ticket : due) RunCallbackOf(ticket);
}

void RequestTable::RunCallbackOf(uint64_t ticket) {
  std::unique_ptr<PendingRequest> request;
  {
    const MutexLock lock(mutex_);
    request = BeginCallback(ticket);
  }
  if (request != nullptr) RunCallback(*request, request->kept.data());
}

void RequestTable::EndOverdue() {
  const auto now = Clock::now();
  int64_t next = kNothingDue;
  for (const auto& [ticket, request] : owned_) {
    if (request->state != PendingRequest::State::kWaiting) continue;
    if (request->end <= now) {
      End(*request, ZEL_E_TIMEOUT);
    } else {
      next = std::min<int64_t>(next, request->end.time_since_epoch().count());
    }
  }
  nextDue_.store(next, std::memory_order_release);
}

int64_t RequestTable::MsUntilDue() const {
  const int64_t due = nextDue_.load(std::memory_order_acquire);
  if (due == kNothingDue) return INT64_MAX;
  if (due == kDueNow) return 0;
  const auto left = Clock::time_point(Clock::duration(due)) - Clock::now();
  return std::max<int64_t>(std::chrono::ceil<std::chrono::milliseconds>(left).count(), 0);
}

}  // namespace libzel
