#include "zelclient/RequestTable.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "utils/Stopwatch.h"
#include "zelcomm/Frame.h"

namespace libzel {

using State = PendingRequest::State;

namespace {

libzelx_Outcome OutcomeOf(const PendingRequest& request) {
  return {sizeof(libzelx_Outcome), request.result, request.deviceError, request.answerLength, 1};
}

}  // namespace

// ---- Entering and leaving ---------------------------------------------------------------------------------

RequestTable::Entry RequestTable::Insert(PendingRequest& request, uint32_t invokeId) {
  if (gone_.empty()) gone_.resize(kRemembered);
  if (!waiting_.emplace(invokeId, &request).second) return Entry::kTaken;
  request.invokeId = invokeId;
  NoteChange();
  return Entry::kDone;
}

RequestTable::Entry RequestTable::Enter(PendingRequest& request, uint32_t invokeId) {
  const MutexLock lock(mutex_);
  if (isClosed_) return Entry::kClosed;
  if (spareWaiters_.empty()) AddWaiter();
  const Entry entry = Insert(request, invokeId);
  if (entry != Entry::kDone) return entry;
  request.ended = spareWaiters_.back();
  spareWaiters_.pop_back();
  return entry;
}

void RequestTable::AddWaiter() {
  spareWaiters_.reserve(waiters_.size() + 1);  // so that each can be returned without memory
  waiters_.push_back(std::make_unique<CondVar>());
  spareWaiters_.push_back(waiters_.back().get());
}

void RequestTable::ReturnWaiter(PendingRequest& request) {
  spareWaiters_.push_back(request.ended);
  request.ended = nullptr;
}

uint64_t RequestTable::NextTicket() { return lastTicket_.fetch_add(1) + 1; }

RequestTable::Entry RequestTable::Enter(std::unique_ptr<PendingRequest>& request, uint32_t invokeId) {
  const MutexLock lock(mutex_);
  if (isClosed_) return Entry::kClosed;
  const auto owned = owned_.emplace(request->ticket, nullptr).first;
  Entry entry = Entry::kTaken;
  try {
    entry = Insert(*request, invokeId);
  } catch (const std::bad_alloc&) {
    owned_.erase(owned);
    throw;
  }
  if (entry == Entry::kDone) {
    owned->second = std::move(request);
  } else {
    owned_.erase(owned);
  }
  return entry;
}

bool RequestTable::NoteSent(uint64_t ticket) {
  const MutexLock lock(mutex_);
  const auto entry = owned_.find(ticket);
  if (entry == owned_.end()) return false;
  entry->second->isWritten = true;
  const int64_t due = entry->second->end.time_since_epoch().count();
  const bool isNextDue = due < nextDue_.load(std::memory_order_relaxed);
  if (isNextDue) nextDue_.store(due, std::memory_order_release);
  return isNextDue;
}

void RequestTable::TakeOut(const PendingRequest& request) {
  const auto entry = waiting_.find(request.invokeId);
  if (entry != waiting_.end() && entry->second == &request) waiting_.erase(entry);
  NoteChange();
}

void RequestTable::NoteChange() {
  mayTake_.store(!waiting_.empty() || goneCount_ != 0, std::memory_order_release);
}

bool RequestTable::Withdraw(PendingRequest& request) {
  const MutexLock lock(mutex_);
  if (request.state != State::kWaiting) return false;
  TakeOut(request);
  request.state = State::kEnded;
  return true;
}

bool RequestTable::WithdrawTicket(uint64_t ticket) {
  const MutexLock lock(mutex_);
  return Discard(ticket);
}

// Takes a request with a callback out wherever it is, and destroys it. False when its callback runs or has run.
bool RequestTable::Discard(uint64_t ticket) {
  const auto entry = owned_.find(ticket);
  if (entry == owned_.end()) return false;
  TakeOut(*entry->second);
  TakeOutOfDue(*entry->second);
  owned_.erase(entry);
  return true;
}

void RequestTable::Await(PendingRequest& request) {
  const MutexLock lock(mutex_);
  while (request.state == State::kWaiting) {
    if (!request.ended->WaitUntil(mutex_, request.end) && request.state == State::kWaiting) {
      End(request, ZEL_E_TIMEOUT);
    }
  }
  // Its answer is being copied, which takes no time to speak of.
  while (request.state == State::kClaimed) request.ended->Wait(mutex_);
  ReturnWaiter(request);
}

bool RequestTable::HasEnded(const PendingRequest& request) {
  const MutexLock lock(mutex_);
  return request.state == State::kEnded;
}

void RequestTable::Leave(PendingRequest& request) {
  if (request.ended == nullptr) return;  // it was waited for to its end
  const MutexLock lock(mutex_);
  if (request.state == State::kWaiting) TakeOut(request);
  while (request.state == State::kClaimed) request.ended->Wait(mutex_);
  request.state = State::kEnded;
  ReturnWaiter(request);
}

// ---- Ending without an answer -----------------------------------------------------------------------------

void RequestTable::End(PendingRequest& request, int32_t result) {
  Remember(request);
  TakeOut(request);
  request.state = State::kEnded;
  request.result = result;
  if (request.ticket != 0) {
    MakeDue(request);
  } else {
    request.ended->NotifyOne();
  }
}

void RequestTable::MakeDue(PendingRequest& request) {
  (lastDue_ != nullptr ? lastDue_->nextDue : firstDue_) = &request;
  lastDue_ = &request;
  nextDue_.store(kDueNow, std::memory_order_release);
}

void RequestTable::TakeOutOfDue(const PendingRequest& request) {
  PendingRequest* before = nullptr;
  for (PendingRequest* at = firstDue_; at != nullptr; before = at, at = at->nextDue) {
    if (at != &request) continue;
    (before != nullptr ? before->nextDue : firstDue_) = at->nextDue;
    if (lastDue_ == at) lastDue_ = before;
    return;
  }
}

void RequestTable::FailLost() {
  if (!MayTake()) return;
  const MutexLock lock(mutex_);
  for (auto entry = waiting_.begin(); entry != waiting_.end();) {
    PendingRequest& request = *entry->second;
    ++entry;  // ending it takes its entry away
    if (!request.link->connected()) End(request, ZEL_E_DISCONNECTED);
  }
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
  if (entry != owned_.end() && entry->second->state == State::kWaiting) Remember(*entry->second);
  if (Discard(ticket)) return 0;
  while (runningTicket_ == ticket && runner_ != std::this_thread::get_id()) callbackEnded_.Wait(mutex_);
  return 1;
}

bool RequestTable::Holds(uint64_t ticket) {
  const MutexLock lock(mutex_);
  return runningTicket_ == ticket || owned_.contains(ticket);
}

// Of a lost link no answer can come.
void RequestTable::Remember(const PendingRequest& request) {
  if (!request.link->connected()) return;
  Gone& place = gone_[request.invokeId % kRemembered];
  goneCount_ += place.invokeId == 0 ? 1 : 0;
  place = {request.invokeId, request.port};
}

// A request has one answer: what comes under its identifier after that is a message like others.
bool RequestTable::TakeGone(uint32_t invokeId, uint16_t port) {
  if (goneCount_ == 0) return false;
  Gone& place = gone_[invokeId % kRemembered];
  if (invokeId == 0 || place.invokeId != invokeId || place.port != port) return false;
  place = {};
  --goneCount_;
  NoteChange();
  return true;
}

void RequestTable::ForgetGone() {
  const MutexLock lock(mutex_);
  std::fill(gone_.begin(), gone_.end(), Gone{});
  goneCount_ = 0;
  NoteChange();
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

RequestTable::Taken RequestTable::Take(const FrameView& frame, Reader reader) {
  if (!MayTake() || frame.header.version != kVersionZoe) return Taken::kNo;
  if (!frame.IsWhole()) return Taken::kNo;
  const auto zoe = ZoeHeader::Read(frame.body);
  if (!zoe) return Taken::kNo;
  Claimed claimed;
  const Taken taken = Claim(frame, *zoe, reader, claimed);
  const auto payload = frame.body.subspan(kZoeHeaderSize);
  if (claimed.waiting != nullptr) claimed.answered = GiveToCaller(*claimed.waiting, payload);
  if (claimed.answered != nullptr) WakeCaller(claimed.answered, reader);
  if (claimed.called != nullptr) {
    WakeAnswered();
    RunCallback(*claimed.called, payload.data());
  }
  return taken;
}

RequestTable::Taken RequestTable::Claim(const FrameView& frame, const ZoeHeader& zoe, Reader reader,
                                        Claimed& claimed) {
  const MutexLock lock(mutex_);
  const auto entry = waiting_.find(zoe.invokeId);
  if (entry == waiting_.end() || !entry->second->MayGetAnswerFrom(frame.header.port)) {
    const bool isLate = reader != Reader::kCaller && TakeGone(zoe.invokeId, frame.header.port);
    return isLate ? Taken::kLate : Taken::kNo;
  }
  PendingRequest& request = *entry->second;
  if (request.ticket != 0 && reader == Reader::kCaller) return Taken::kNo;
  const auto payload = frame.body.subspan(kZoeHeaderSize);
  if (request.ticket != 0 && reader == Reader::kSynchronousReceive) {
    request.kept.assign(payload.begin(), payload.end());
  }
  TakeOut(request);
  request.deviceError = zoe.error;
  request.answerLength = static_cast<uint32_t>(payload.size());
  if (request.ticket == 0) {
    if (payload.size() <= kShortAnswer) {
      Copy(payload, request);
      request.state = State::kEnded;
      claimed.answered = request.ended;
    } else {
      request.state = State::kClaimed;
      claimed.waiting = &request;
    }
    return waiting_.empty() ? Taken::kLastAnswer : Taken::kAnswer;
  }
  request.state = State::kEnded;
  if (reader == Reader::kReceiveThread) {
    claimed.called = BeginCallback(request.ticket);
  } else {
    MakeDue(request);
  }
  return Taken::kAnswer;
}

void RequestTable::Copy(std::span<const uint8_t> payload, const PendingRequest& request) {
  const size_t count = std::min(payload.size(), request.room.size());
  if (count != 0) std::memcpy(request.room.data(), payload.data(), count);
}

// Gives what the caller waits on: from here on the request may be gone.
CondVar* RequestTable::GiveToCaller(PendingRequest& request, std::span<const uint8_t> payload) {
  Copy(payload, request);
  const MutexLock lock(mutex_);
  request.state = State::kEnded;
  return request.ended;
}

void RequestTable::WakeCaller(CondVar* answered, Reader reader) {
  if (reader != Reader::kReceiveThread) {
    answered->NotifyOne();
    return;
  }
  if (answeredCount_ == answered_.size()) WakeAnswered();
  answered_[answeredCount_++] = answered;
}

void RequestTable::WakeAnswered() {
  for (size_t i = 0; i < answeredCount_; ++i) answered_[i]->NotifyOne();
  answeredCount_ = 0;
}

// ---- Callbacks --------------------------------------------------------------------------------------------

// From here on the callback counts as running; the request is the caller's.
std::unique_ptr<PendingRequest> RequestTable::BeginCallback(uint64_t ticket) {
  const auto entry = owned_.find(ticket);
  runningTicket_ = ticket;
  runner_ = std::this_thread::get_id();
  auto request = std::move(entry->second);
  owned_.erase(entry);
  return request;
}

std::unique_ptr<PendingRequest> RequestTable::BeginDueCallback() {
  const MutexLock lock(mutex_);
  if (firstDue_ == nullptr) return nullptr;
  const uint64_t ticket = firstDue_->ticket;
  TakeOutOfDue(*firstDue_);
  return BeginCallback(ticket);
}

void RequestTable::RunCallback(const PendingRequest& request, const uint8_t* answer) {
  const libzelx_Outcome outcome = OutcomeOf(request);
  request.callback(request.ticket, &outcome, request.result == 0 ? answer : nullptr, request.user);
  const MutexLock lock(mutex_);
  runningTicket_ = 0;
  callbackEnded_.NotifyAll();
}

void RequestTable::RunDue() {
  static constexpr uint8_t kEmptyAnswer = 0;
  if (MsUntilDue() > 0) return;
  {
    const MutexLock lock(mutex_);
    EndOverdue();
  }
  while (const auto request = BeginDueCallback()) {
    RunCallback(*request, request->kept.empty() ? &kEmptyAnswer : request->kept.data());
  }
}

void RequestTable::EndOverdue() {
  const auto now = Clock::now();
  int64_t next = kNothingDue;
  for (const auto& [ticket, request] : owned_) {
    if (request->state != State::kWaiting || !request->isWritten) continue;
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
  return std::max<int64_t>(MsUntil(Clock::time_point(Clock::duration(due))), 0);
}

}  // namespace libzel
