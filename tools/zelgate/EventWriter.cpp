#include "EventWriter.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <utility>

namespace zelgate {
namespace {

constexpr std::chrono::milliseconds kLookEvery{100};
constexpr std::chrono::milliseconds kFirstPatience{2000};  // for an acknowledgement; doubles
constexpr int kMostDoublings = 3;
constexpr std::chrono::milliseconds kRefusedPause{500};

constexpr int64_t kUsualPayload = 1048576;  // of a server that says nothing else
constexpr int64_t kHeaderRoom = 1024;       // for the headers, which count as payload

constexpr int kMessageTooLarge = 10054;  // JetStream's code for what it will never take

std::string MakeInbox() {
  natsInbox* raw = nullptr;
  if (natsInbox_Create(&raw) != NATS_OK) return "_INBOX.zelgate";
  const std::unique_ptr<natsInbox, NatsDeleter<natsInbox_Destroy>> inbox(raw);
  return raw;
}

// Why the stream did not take an event; empty when it did. `isFinal` when it never will.
std::string RefusalOf(const NatsMessage& answer, bool& isFinal) {
  isFinal = false;
  if (answer.IsNoResponders())
    return "no stream takes the events of this site; zelgate check tells what is missing";
  const std::string_view data = answer.Data();
  if (data.find("\"error\"") == std::string_view::npos) return {};
  const auto parsed = nlohmann::json::parse(data, nullptr, false);
  if (!parsed.is_object() || !parsed.contains("error") || !parsed["error"].is_object()) return {};
  const auto& error = parsed["error"];
  isFinal = error.value("err_code", 0) == kMessageTooLarge;
  return "the stream refuses events: " + error.value("description", std::string("no reason given")) +
         "; give it more room (stream.max_bytes), or see what its servers log";
}

// Whoever finds another thread, or itself, doing it leaves it to that one, which does it once more.
template <typename Work>
void OneAtATime(std::atomic<uint32_t>& wishes, const Work& work) {
  if (wishes.fetch_add(1) != 0) return;
  uint32_t done = 0;
  do {
    done = wishes;
    work();
  } while (wishes.fetch_sub(done) != done);
}

}  // namespace

EventWriter::EventWriter(Nats& nats, int window)
    : nats_(nats), window_(static_cast<size_t>(window)), slots_(window_) {
  for (size_t i = window_; i > 0; --i) free_.push_back(i - 1);
}

EventWriter::~EventWriter() {
  {
    const std::lock_guard lock(mutex_);
    isStopping_ = true;
  }
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
  acknowledgements_.Stop();
}

NatsResult EventWriter::Start() {
  inbox_ = MakeInbox();
  const auto onMessage = [this](const NatsMessage& message) { OnAcknowledgement(message); };
  NatsResult result = nats_.Subscribe(inbox_ + ".*.*", "", onMessage, acknowledgements_);
  if (result) thread_ = std::thread([this] { Run(); });
  return result;
}

int64_t EventWriter::MostData() const {
  const int64_t most = nats_.MaxPayload();
  return (most > 0 ? most : kUsualPayload) - kHeaderRoom;
}

void EventWriter::Pump(const std::shared_ptr<EventSource>& source) {
  OneAtATime(source->pumps_, [&] { PumpOnce(source); });
  PumpWaiting();  // a slot that this one did not need after all is another's
}

void EventWriter::PumpOnce(const std::shared_ptr<EventSource>& source) {
  while (const auto index = TakeSlot(source)) {
    auto event = source->NextEvent();
    if (!event) return FreeSlot(*index);
    Fill(*index, std::move(*event));
    Publish(*index);
  }
}

std::optional<size_t> EventWriter::TakeSlot(const std::shared_ptr<EventSource>& source) {
  const std::lock_guard lock(mutex_);
  if (free_.empty() || !nats_.IsUp()) {
    if (isWaiting_.insert(source.get()).second) waiting_.push_back(source);
    return {};
  }
  const size_t index = free_.back();
  free_.pop_back();
  slots_[index].source = source;
  return index;
}

void EventWriter::FreeSlot(size_t index) {
  std::shared_ptr<EventSource> source;  // let go of outside the lock
  {
    const std::lock_guard lock(mutex_);
    Slot& slot = slots_[index];
    source = std::move(slot.source);
    slot.source.reset();
    slot.message.reset();
    ++slot.use;
    free_.push_back(index);
    if (free_.size() == window_) idle_.notify_all();
  }
}

void EventWriter::Fill(size_t index, Event&& event) {
  std::string reply;
  std::string prefix;
  {
    const std::lock_guard lock(mutex_);
    Slot& slot = slots_[index];
    reply = inbox_ + "." + std::to_string(index) + "." + std::to_string(slot.use);
    prefix = slot.source->MessagePrefix();
  }
  auto message = std::make_shared<NatsMessage>(event.subject, reply, event.data);
  const std::string sequence = std::to_string(event.sequence);
  message->SetHeader("Nats-Msg-Id", prefix + "." + sequence);
  if (event.group) message->SetHeader("Zel-Group", std::to_string(*event.group));
  if (event.offset) message->SetHeader("Zel-Offset", std::to_string(*event.offset));
  message->SetHeader("Zel-Time", event.time);
  message->SetHeader("Zel-Seq", sequence);
  const std::lock_guard lock(mutex_);
  Slot& slot = slots_[index];
  slot.event = std::move(event);
  slot.event.data.clear();  // the message has it
  slot.event.data.shrink_to_fit();
  slot.message = std::move(message);
  slot.order = ++lastOrder_;
  slot.attempts = 0;
}

void EventWriter::Publish(size_t index) {
  std::shared_ptr<const NatsMessage> message;
  {
    const std::lock_guard lock(mutex_);
    Slot& slot = slots_[index];
    if (slot.message == nullptr) return;  // acknowledged meanwhile
    message = slot.message;
    if (slot.attempts > 0) ++figures_.repeated;
    slot.dueAt = GateClock::now() + kFirstPatience * (1 << std::min(slot.attempts++, kMostDoublings));
  }
  const NatsResult sent = nats_.Publish(*message);
  if (sent) return;
  if (sent.code == NATS_MAX_PAYLOAD) return Finish(index, sent.why);
  Postpone(index, sent.why);
}

std::optional<size_t> EventWriter::SlotOf(std::string_view subject) const {
  size_t index = 0;
  uint32_t use = 0;
  const char* const end = subject.data() + subject.size();
  const auto first =
      std::from_chars(subject.data() + std::min(inbox_.size() + 1, subject.size()), end, index);
  if (first.ec != std::errc() || first.ptr == end || index >= window_) return {};
  const auto second = std::from_chars(first.ptr + 1, end, use);
  const std::lock_guard lock(mutex_);
  const Slot& slot = slots_[index];
  const bool isIts = second.ec == std::errc() && slot.message != nullptr && slot.use == use;
  return isIts ? std::optional(index) : std::nullopt;
}

void EventWriter::OnAcknowledgement(const NatsMessage& message) {
  const auto index = SlotOf(message.Subject());
  if (!index) return;  // of an event that was published twice
  bool isFinal = false;
  const std::string refusal = RefusalOf(message, isFinal);
  if (!refusal.empty() && !isFinal) return Postpone(*index, refusal);
  Finish(*index, refusal);
}

void EventWriter::Finish(size_t index, const std::string& refusal) {
  std::shared_ptr<EventSource> source;
  Event event;
  {
    const std::lock_guard lock(mutex_);
    Slot& slot = slots_[index];
    if (slot.message == nullptr) return;
    slot.message.reset();
    source = slot.source;
    event = std::move(slot.event);
    ++(refusal.empty() ? figures_.acknowledged : figures_.refused);
  }
  source->EventDone(event, refusal);
  FreeSlot(index);
  {
    // Behind those that wait already.
    const std::lock_guard lock(mutex_);
    if (isWaiting_.insert(source.get()).second) waiting_.push_back(source);
  }
  PumpWaiting();
}

void EventWriter::PumpWaiting() {
  OneAtATime(waitingPumps_, [this] { PumpThoseThatWait(); });
}

void EventWriter::PumpThoseThatWait() {
  for (;;) {
    std::shared_ptr<EventSource> source;
    {
      const std::lock_guard lock(mutex_);
      if (waiting_.empty() || free_.empty() || !nats_.IsUp()) return;
      source = std::move(waiting_.front());
      waiting_.pop_front();
      isWaiting_.erase(source.get());
    }
    Pump(source);
  }
}

void EventWriter::Postpone(size_t index, const std::string& why) {
  const auto now = GateClock::now();
  {
    const std::lock_guard lock(mutex_);
    slots_[index].dueAt = now + kRefusedPause;
  }
  reminder_.Warn("events wait, and devices with them: " + why);
}

void EventWriter::Resume() {
  {
    const std::lock_guard lock(mutex_);
    wantsAll_ = true;
  }
  changed_.notify_all();
}

void EventWriter::RepeatDue() {
  std::vector<std::pair<uint64_t, size_t>> due;
  {
    const std::lock_guard lock(mutex_);
    const auto now = GateClock::now();
    const bool all = std::exchange(wantsAll_, false);
    for (size_t i = 0; i < slots_.size(); ++i) {
      if (slots_[i].message != nullptr && (all || slots_[i].dueAt <= now))
        due.emplace_back(slots_[i].order, i);
    }
  }
  std::sort(due.begin(), due.end());
  for (const auto& [order, index] : due) Publish(index);
}

void EventWriter::Run() {
  std::unique_lock lock(mutex_);
  while (!isStopping_) {
    (void)changed_.wait_for(lock, kLookEvery, [this] { return isStopping_ || wantsAll_; });
    if (isStopping_ || !nats_.IsUp()) continue;
    lock.unlock();
    RepeatDue();
    PumpWaiting();
    lock.lock();
  }
}

bool EventWriter::Drain(std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  return idle_.wait_for(lock, timeout, [this] { return free_.size() == window_ && waiting_.empty(); });
}

EventWriter::Figures EventWriter::GetFigures() const {
  const std::lock_guard lock(mutex_);
  Figures figures = figures_;
  figures.underWay = window_ - free_.size();
  figures.window = window_;
  return figures;
}

}  // namespace zelgate
