#include "Asker.h"

#include <charconv>
#include <optional>
#include <utility>

#include "Journal.h"
#include "Verdict.h"

namespace zelgate {
namespace {

// A worker is held up only by a device that does not read, for as long as the request's time at most.
constexpr int kWorkers = 8;
constexpr size_t kMostJobs = 1024;  // of one device
constexpr std::chrono::milliseconds kUsualTimeout{5000};
constexpr std::chrono::milliseconds kGentle{500};
constexpr uint32_t kLongestTimeoutMs = 600000;
constexpr const char* kQueueGroup = "zelgate";

// A header's number, `usual` when it is not there, nothing when it is none.
std::optional<uint32_t> NumberOf(const NatsMessage& message, const char* header, uint32_t usual) {
  const std::string text = message.Header(header);
  if (text.empty()) return usual;
  uint32_t number = 0;
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (problem != std::errc() || end != text.data() + text.size()) return {};
  return number;
}

}  // namespace

Asker::Asker(Nats& nats, Subjects subjects, std::function<bool()> isLeaseValid)
    : nats_(nats), subjects_(std::move(subjects)), isLeaseValid_(std::move(isLeaseValid)) {
  for (int i = 0; i < kWorkers; ++i) workers_.emplace_back([this] { Work(); });
  ticker_ = std::thread([this] { Tick(); });
}

Asker::~Asker() {
  std::vector<std::string> tokens;
  {
    const std::lock_guard lock(mutex_);
    for (const auto& [token, line] : lines_) tokens.push_back(token);
  }
  for (const std::string& token : tokens) Forget(token);
  {
    const std::lock_guard lock(mutex_);
    isStopping_ = true;
  }
  changed_.notify_all();
  for (std::thread& worker : workers_) worker.join();
  ticker_.join();
}

NatsResult Asker::Serve(const std::shared_ptr<ServedDevice>& device) {
  isGentle_ = true;
  const auto line = std::make_shared<Line>();
  line->device = device;
  {
    const std::lock_guard lock(mutex_);
    lines_[device->Token()] = line;
  }
  const auto onMessage = [this, weak = std::weak_ptr(line)](NatsMessage message) {
    if (const auto held = weak.lock()) Put(held, std::move(message));
  };
  NatsResult result =
      nats_.Subscribe(subjects_.AllAsks(device->Token()), kQueueGroup, onMessage, line->requests);
  if (!result) return result;
  return nats_.Subscribe(subjects_.AllPublications(device->Token()), kQueueGroup, onMessage,
                         line->publications);
}

void Asker::Forget(const std::string& token) {
  std::shared_ptr<Line> line;
  {
    const std::lock_guard lock(mutex_);
    const auto found = lines_.find(token);
    if (found == lines_.end()) return;
    line = std::move(found->second);
    lines_.erase(found);
  }
  std::deque<Job> left;
  {
    std::unique_lock lock(mutex_);
    line->isGone = true;
    left.swap(line->jobs);
    idle_.wait(lock, [&] { return !line->isBusy; });
  }
  End(*line);
  for (const Job& job : left) Refuse(job.message, "the device is being handed over; ask again");
}

// What is on its way here is refused, so that whoever asked knows. A server that is slow to answer is not
// waited for by one device after the other.
void Asker::End(Line& line) {
  for (NatsSubscription* const subscription : {&line.requests, &line.publications}) {
    if (!nats_.IsUp() || !isGentle_) {
      subscription->Stop();
    } else {
      isGentle_ = subscription->StopGently(kGentle);
    }
  }
}

Asker::Figures Asker::GetFigures() const {
  const std::lock_guard lock(mutex_);
  return figures_;
}

// ---- Threads ----------------------------------------------------------------------------------------------

void Asker::Put(const std::shared_ptr<Line>& line, NatsMessage message) {
  const auto now = GateClock::now();
  {
    const std::lock_guard lock(mutex_);
    const bool hasRoom = !line->isGone && line->jobs.size() < kMostJobs;
    if (hasRoom) {
      line->jobs.push_back({std::move(message), now, stalls_.AgeAtArrival(now)});
      if (!std::exchange(line->isBusy, true)) ready_.push_back(line);
      return changed_.notify_one();
    }
  }
  Refuse(message, "too many requests wait for the device, or it is being handed over; ask again later");
}

void Asker::Work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return isStopping_ || !ready_.empty(); });
    if (ready_.empty()) return;
    const auto line = std::move(ready_.front());
    ready_.pop_front();
    if (!line->jobs.empty()) {
      Job job = std::move(line->jobs.front());
      line->jobs.pop_front();
      lock.unlock();
      Do(*line->device, job);
      lock.lock();
    }
    line->isBusy = !line->jobs.empty();
    if (line->isBusy) ready_.push_back(line);
    if (!line->isBusy) idle_.notify_all();
  }
}

void Asker::Tick() {
  std::unique_lock lock(mutex_);
  while (!isStopping_) {
    stalls_.Tick(GateClock::now());
    lock.unlock();
    std::this_thread::sleep_for(StallWatch::kTickEvery);
    lock.lock();
  }
}

// ---- One request or publication ---------------------------------------------------------------------------

void Asker::Do(ServedDevice& device, Job& job) {
  const auto wanted = NumberOf(job.message, kTimeoutHeader, static_cast<uint32_t>(kUsualTimeout.count()));
  if (!wanted || *wanted == 0 || *wanted > kLongestTimeoutMs) {
    return Refuse(job.message, "Zel-Timeout is no number of milliseconds from 1 to 600000");
  }
  const auto age = job.age + (GateClock::now() - job.arrivedAt);
  const auto left = std::chrono::milliseconds(*wanted) - std::chrono::ceil<std::chrono::milliseconds>(age);
  if (left.count() <= 0) return Refuse(job.message, "it is older than its Zel-Timeout; ask again");
  if (!device.IsUp()) return Refuse(job.message, "no link to the device: " + device.LastFailure());
  if (!isLeaseValid_()) {
    return Refuse(job.message, "this process does not hold the device's shard any more; ask again");
  }
  if (job.message.Subject().starts_with(subjects_.AskPrefix())) return Ask(device, job, left);
  Publish(device, job, left);
}

void Asker::Ask(ServedDevice& device, const Job& job, std::chrono::milliseconds left) {
  const auto target = subjects_.ParseAsk(job.message.Subject());
  zel::Connection* const connection = device.Connection();
  if (!target || connection == nullptr) {
    return Refuse(job.message, "the subject is not zel.SITE.ask.DEV.PORT.GROUP.OFFSET with numbers in range");
  }
  const std::string reply(job.message.Reply());
  const auto sent =
      connection->RequestAsync(target->port, {target->group, target->offset}, job.message.Data(), left,
                               [this, reply](const zel::Answer& answer) { OnAnswer(reply, answer); });
  if (sent) return;
  // These two codes alone leave it open whether bytes have left.
  const bool isOpen = sent.Code() == ZEL_E_DISCONNECTED || sent.Code() == ZEL_E_TIMEOUT;
  Answer(reply, {isOpen ? verdict::kMayBeSent : verdict::kNotSent, sent.Text()}, {});
}

void Asker::OnAnswer(const std::string& reply, const zel::Answer& answer) {
  if (!answer.IsAnswered()) {
    const std::string why = answer.Reason().empty() ? answer.Text() : answer.Reason();
    return Answer(reply, {answer.MayBeSent() ? verdict::kMayBeSent : verdict::kNotSent, why}, {});
  }
  const char* const text = answer.DeviceError() == 0 ? verdict::kAnswered : verdict::kDeviceError;
  Answer(reply, {text, answer.DeviceError() == 0 ? "" : "the device's own error word", answer.DeviceError()},
         *answer);
}

void Asker::Publish(ServedDevice& device, const Job& job, std::chrono::milliseconds left) {
  const auto target = subjects_.ParsePublication(job.message.Subject());
  const auto group = NumberOf(job.message, kGroupHeader, 0);
  const auto offset = NumberOf(job.message, kOffsetHeader, 0);
  zel::Connection* const connection = device.Connection();
  if (!target || connection == nullptr || target->topic.find('\0') != std::string::npos) {
    return Refuse(job.message, "the subject is not zel.SITE.pub.DEV.t.TOPIC with a topic as events have it");
  }
  if (!group || !offset)
    return Refuse(job.message, "Zel-Group or Zel-Offset is no number from 0 to 4294967295");
  const std::string_view data = job.message.Data();
  const zel::Result sent(libzelx_publish(connection->Handle(), *group, *offset, target->topic.c_str(),
                                         data.data(), static_cast<uint32_t>(data.size()),
                                         static_cast<uint32_t>(left.count())));
  const std::string reply(job.message.Reply());
  if (sent) return Answer(reply, {verdict::kWritten, ""}, {});
  const bool isOpen = sent.Code() == ZEL_E_DISCONNECTED || sent.Code() == ZEL_E_TIMEOUT;
  Answer(reply, {isOpen ? verdict::kMayBeSent : verdict::kNotSent, sent.Text()}, {});
}

// ---- Answers ----------------------------------------------------------------------------------------------

void Asker::Refuse(const NatsMessage& message, const std::string& why) {
  Answer(std::string(message.Reply()), {verdict::kNotSent, why}, {});
}

void Asker::Answer(const std::string& reply, const Verdict& verdict, zel::Bytes data) {
  Count(verdict.text);
  if (reply.empty()) return;  // nobody asked for it
  std::string reason = Printable(verdict.reason);
  const int64_t most = nats_.MaxPayload() - 1024;  // the headers count
  if (static_cast<int64_t>(data.size()) > most) {
    reason = "the answer has " + std::to_string(data.size()) +
             " bytes, more than max_payload of the server: left out";
    data = {};
  }
  NatsMessage message(reply, "", data.AsText());
  message.SetHeader(kVerdictHeader, verdict.text);
  if (verdict.deviceError != 0) message.SetHeader(kErrorHeader, std::to_string(verdict.deviceError));
  if (!reason.empty()) message.SetHeader(kReasonHeader, reason);
  const NatsResult sent = nats_.Publish(message);
  if (!sent) Say(Priority::kWarning, "an answer (" + std::string(verdict.text) + ") is lost: " + sent.why);
}

void Asker::Count(std::string_view verdict) {
  const std::lock_guard lock(mutex_);
  if (verdict == verdict::kAnswered) ++figures_.answered;
  if (verdict == verdict::kDeviceError) ++figures_.deviceErrors;
  if (verdict == verdict::kNotSent) ++figures_.notSent;
  if (verdict == verdict::kMayBeSent) ++figures_.mayBeSent;
  if (verdict == verdict::kWritten) ++figures_.written;
}

}  // namespace zelgate
