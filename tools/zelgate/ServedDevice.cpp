#include "ServedDevice.h"

#include <utility>

#include "Journal.h"
#include "TimeText.h"

namespace zelgate {
namespace {

constexpr std::chrono::seconds kReconnectEvery{2};

std::string TextNow() { return TimeText(std::chrono::system_clock::now()); }

}  // namespace

ServedDevice::ServedDevice(DeviceFacts facts, std::string token, Subjects subjects, EventWriter& writer,
                           std::string holder, const std::string& epoch)
    : facts_(std::move(facts)),
      token_(std::move(token)),
      subjects_(std::move(subjects)),
      writer_(writer),
      holder_(std::move(holder)),
      prefix_(epoch + "." + token_) {}

ServedDevice::~ServedDevice() = default;

void ServedDevice::Open(const Routes& routes) {
  const auto id = zel::DeviceId::Parse(facts_.id);
  {
    const std::lock_guard lock(mutex_);
    if (isClosing_ || !id) return;
    routes_ = routes;
    link_ = {LinkState::kConnecting, TextNow(), holder_, ""};
    TellLocked("serving", "");
  }
  writer_.Pump(shared_from_this());
  const std::lock_guard lock(openMutex_);
  const auto onEvent = [this](const zel::DeviceId& /*device*/, zel::Event event) { OnEvent(event); };
  auto made = zel::Connection::CreateInBackground(*id, onEvent);
  if (!made) {
    Say(Priority::kError,
        "cannot serve " + facts_.id + ": " + made.Text() +
            "; see whether this host has threads and memory left, or serve fewer devices here");
    return;
  }
  connection_ = std::move(*made);
  connection_.SetReconnectInterval(kReconnectEvery).Ignore();  // only a negative one is refused
}

void ServedDevice::Close() {
  {
    const std::lock_guard lock(mutex_);
    if (std::exchange(isClosing_, true)) return;
  }
  changed_.notify_all();
  connection_.Release();
  Tell("released", "");
}

bool ServedDevice::IsUp() const {
  libzelx_Stats stats{};
  stats.size = sizeof stats;
  return libzelx_getStats(connection_.Handle(), &stats) == ZEL_OK && stats.connected != 0 &&
         connection_.IsOpen();
}

DeviceLink ServedDevice::Link() const {
  const std::lock_guard lock(mutex_);
  return link_;
}

uint64_t ServedDevice::Dropped() const {
  const std::lock_guard lock(mutex_);
  return queue_.Dropped();
}

// ---- The link ---------------------------------------------------------------------------------------------

void ServedDevice::OnEvent(zel::Event event) {
  switch (event) {
    case zel::Event::kPending: return SubscribeFirst();
    case zel::Event::kConnected: return OnUp();
    case zel::Event::kDisconnected:
    case zel::Event::kFailed: return OnDown(connection_.LastFailure());
  }
}

// In the first attempt to connect: what is subscribed here is sent as soon as the link is there, and nothing
// waits.
void ServedDevice::SubscribeFirst() {
  const std::lock_guard lock(openMutex_);
  if (std::exchange(isSubscribed_, true)) return;
  Routes routes;
  {
    const std::lock_guard routesLock(mutex_);
    routes = routes_;
  }
  for (const auto& [route, policy] : routes) Add(route);
}

// A link that comes up while it is thought to be up was lost meanwhile.
void ServedDevice::OnUp() {
  {
    const std::lock_guard lock(mutex_);
    if (isClosing_) return;
    if (link_.state == LinkState::kUp) TellLocked("down", "lost, and restored at once");
    link_ = {LinkState::kUp, TextNow(), holder_, ""};
    isDownTold_ = false;
    TellLocked("up", "");
  }
  writer_.Pump(shared_from_this());
}

// Said once, however often it is tried again in vain.
void ServedDevice::OnDown(const std::string& reason) {
  {
    const std::lock_guard lock(mutex_);
    if (isClosing_ || std::exchange(isDownTold_, true)) return;
    link_ = {LinkState::kConnecting, TextNow(), holder_, reason};
    TellLocked("down", reason);
  }
  Say(Priority::kWarning, "no link to " + facts_.id + (facts_.name.empty() ? "" : " (" + facts_.name + ")") +
                              ": " + reason +
                              "; it is tried again, see whether the device is on and reachable");
  writer_.Pump(shared_from_this());
}

LinkNote ServedDevice::Note() const { return {facts_.id, holder_, TextNow()}; }

Event ServedDevice::LinkEvent(std::string text) {
  Event event;
  event.subject = subjects_.Link(token_);
  event.data = std::move(text);
  event.time = TextNow();
  event.sequence = queue_.NextSequence();
  return event;
}

void ServedDevice::Tell(const std::string& kind, const std::string& reason) {
  {
    const std::lock_guard lock(mutex_);
    TellLocked(kind, reason);
  }
  writer_.Pump(shared_from_this());
}

void ServedDevice::TellLocked(const std::string& kind, const std::string& reason) {
  queue_.PutLink(LinkEvent(LinkEventText(Note(), kind, reason)));
}

void ServedDevice::TellGapsLocked() {
  for (const Gap& gap : queue_.TakeGaps()) {
    Event event = LinkEvent(GapText(Note(), gap));
    event.isGap = true;
    queue_.PutLink(std::move(event));
  }
}

// ---- Routes -----------------------------------------------------------------------------------------------

void ServedDevice::SetRoutes(const Routes& routes) {
  Routes before;
  {
    const std::lock_guard openLock(openMutex_);
    const std::lock_guard lock(mutex_);
    before = std::exchange(routes_, routes);
    if (!isSubscribed_ || isClosing_) return;  // the first attempt takes them as they are then
  }
  changed_.notify_all();  // who waits may have another policy
  // No lock is held: a send that finds the link down may restore it here, with its events.
  for (const auto& [route, policy] : before) {
    if (!routes.contains(route)) Remove(route);
  }
  for (const auto& [route, policy] : routes) {
    if (!before.contains(route)) Add(route);
  }
}

// A subscription that cannot be sent now is sent with the next connect.
void ServedDevice::Add(const Route& route) {
  if (route.isTopic) {
    const auto onTopic = [this, route](const zel::TopicMessage& message) {
      OnMessage(route, &message, message.data);
    };
    return connection_.Subscribe(route.topic, onTopic).Ignore();
  }
  const auto onPort = [this, route](uint16_t /*port*/, zel::Bytes data) { OnMessage(route, nullptr, data); };
  const zel::Result taken = connection_.Route(route.port, onPort);
  if (taken) return;
  Say(Priority::kError, "cannot take " + route.Name() + " of " + facts_.id + ": " + taken.Text() +
                            "; name another port in the profile");
}

void ServedDevice::Remove(const Route& route) {
  const zel::Result removed =
      route.isTopic ? connection_.Unsubscribe(route.topic) : connection_.Unroute(route.port);
  removed.Ignore();  // what cannot be sent now is not subscribed with the next connect
}

// ---- Messages ---------------------------------------------------------------------------------------------

void ServedDevice::OnMessage(const Route& route, const zel::TopicMessage* topic, zel::Bytes data) {
  const auto subject = route.isTopic ? subjects_.Topic(token_, route.topic)
                                     : std::optional(subjects_.Port(token_, route.port));
  const auto size = static_cast<int64_t>(data.size());
  const bool isTooLong = size > writer_.MostData();
  if (!subject || isTooLong) {
    const std::lock_guard lock(mutex_);
    queue_.AddGap(route.Name(),
                  isTooLong ? "longer than max_payload of the server" : "its subject is too long",
                  queue_.NextSequence(), data.size());
    TellGapsLocked();
  } else {
    Event event;
    event.subject = *subject;
    event.data = data.AsText();
    event.time = TextNow();
    event.route = route.Name();
    if (topic != nullptr) {
      event.group = topic->idGroup;
      event.offset = topic->idOffset;
    }
    Accept(route, std::move(event));
  }
  writer_.Pump(shared_from_this());
}

// Waits while there is no room and the policy is to wait; the device waits, too, as soon as its buffers are
// full.
void ServedDevice::Accept(const Route& route, Event&& event) {
  std::unique_lock lock(mutex_);
  event.sequence = queue_.NextSequence();
  for (;;) {
    // The last one: it has come, so it is delivered.
    // NOLINTNEXTLINE(bugprone-use-after-move): Put has moved it only when it gave true
    if (isClosing_) return queue_.PutLink(std::move(event));
    const auto found = routes_.find(route);
    const Policy policy = found == routes_.end() ? Policy::kBlock : found->second;
    if (queue_.Put(policy, std::move(event))) break;
    changed_.wait(lock);
  }
  TellGapsLocked();
}

std::optional<Event> ServedDevice::NextEvent() {
  std::optional<Event> event;
  {
    const std::lock_guard lock(mutex_);
    event = queue_.Next();
  }
  if (event) changed_.notify_all();
  return event;
}

void ServedDevice::EventDone(const Event& event, const std::string& refusal) {
  const std::lock_guard lock(mutex_);
  queue_.Acknowledge(event);
  if (!refusal.empty() && !event.isGap) {
    queue_.AddGap(event.route.empty() ? "link" : event.route, refusal, event.sequence, event.data.size());
  }
  TellGapsLocked();
}

}  // namespace zelgate
