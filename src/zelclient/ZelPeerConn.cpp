#include "zelclient/ZelPeerConn.h"

#include <exception>
#include <system_error>

#include "utils/Forever.h"
#include "utils/Log.h"
#include "zelcomm/ErrorCode.h"
#include "zelcomm/Frame.h"
#include "zelcomm/ZelDeviceIdGenerator.h"

namespace libzel {

namespace {

void libzelsubscribeMsgRouterCallBack(uint16_t /*port*/, const uint8_t* body, uint32_t length,
                                      void* connection) {
  ZEL_LOG_AS("libzelsubscribeMsgRouterCallBack", kTrace, "libzel recv subscribe message,TotalSize:%d",
             static_cast<int>(length));
  static_cast<IZelPeerConnection*>(connection)->filter(body, length);
}

void Withdraw(ResponsePool::Slot* slot) {
  slot->object.result = ZelResponse::kPending;
  slot->object.owner = nullptr;
  ResponseRecords().Return(slot);
}

// A description file that cannot be read must not keep this machine from connecting.
ZelDeviceId LocalDeviceIdOrZero() {
  try {
    return LocalDeviceIdSource().GetLocalDeviceId();
  } catch (const std::exception&) {
    return {};
  }
}

// The connection whose receive thread the calling thread is.
thread_local const IZelPeerConnection* t_received = nullptr;

// Called from a noexcept function, so it ends the process, with its text on standard error.
[[noreturn]] void FailSelfJoin() {
  throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
}

}  // namespace

ResponsePool& ResponseRecords() {
  static Forever<ResponsePool> pool;
  return *pool;
}

IZelPeerConnection::IZelPeerConnection(const ZelDeviceId& remote, std::string parameters)
    : parameters_(std::move(parameters)), remoteDeviceId_(remote), localDeviceId_(LocalDeviceIdOrZero()) {
  (void)router_.addUserMessaggeRouter(kTopicPort, libzelsubscribeMsgRouterCallBack,
                                      this);  // an empty table takes it
}

IZelPeerConnection::~IZelPeerConnection() { (void)IZelPeerConnection::loop_stop(); }

uint32_t IZelPeerConnection::GenInvokeId() {
  uint32_t id = 0;
  while (id == 0) id = invokeIds_.fetch_add(1);
  return id;
}

// ---- Requests with a response record ----------------------------------------------------------------------

ResponsePool::Slot* IZelPeerConnection::Reserve(const ZelRequest& request) {
  ResponsePool::Slot* slot = ResponseRecords().Take();
  slot->object.owner = nullptr;
  slot->object.invokeId = 0;
  slot->object.result = 0;
  const ZelRequest* none = nullptr;
  if (slot->object.owner.compare_exchange_strong(none, &request)) return slot;
  ZEL_LOG(kError, "response ZelRequest is already in use");
  return nullptr;
}

ResponsePool::Slot* IZelPeerConnection::SendRequest(ZelRequest& request) {
  const uint32_t invokeId = GenInvokeId();
  uint8_t zoe[kZoeHeaderSize];
  ZoeHeader{0, invokeId, request.command}.Write(zoe);
  request.message.prepend(zoe, sizeof zoe);
  uint8_t header[kZelHeaderSize];
  ZelHeader{0, kVersionZoe, request.target->port, request.message.length()}.Write(header);
  request.message.prepend(header, sizeof header);

  ResponsePool::Slot* slot = Reserve(request);
  if (slot == nullptr) return nullptr;
  slot->object.invokeId.exchange(invokeId);
  if (SendBuffer(request.message) < static_cast<int32_t>(request.message.length())) Withdraw(slot);
  return nullptr;
}

int32_t IZelPeerConnection::SyncRequest(ZelRequest& request) {
  ResponsePool::Slot* slot = SendRequest(request);
  return slot != nullptr ? AwaitResponse(request, slot) : -1;
}

int32_t IZelPeerConnection::AwaitResponse(const ZelRequest& request, ResponsePool::Slot* slot) {
  ZelResponse& response = slot->object;
  int32_t result = ZEL_E_TIMEOUT;
  {
    std::unique_lock lock(response.mutex);
    (void)response.answered.wait_until(lock, request.deadline, [&] { return response.invokeId == 0; });
    if (response.invokeId.exchange(0) == 0) {
      response.answered.wait(lock, [&] { return response.result != ZelResponse::kPending; });
      result = response.result;
    }
  }
  Withdraw(slot);
  return result;
}

// ---- Settings and tables ----------------------------------------------------------------------------------

void IZelPeerConnection::SetEventCallback(ZelConnEventCallback callback, void* user) {
  const MutexLock lock(eventMutex_);
  eventTarget_ = {callback, user};
}

void IZelPeerConnection::FireEvent(int32_t event) {
  EventTarget target;
  {
    const MutexLock lock(eventMutex_);
    target = eventTarget_;
  }
  if (target.callback != nullptr) target.callback(&remoteDeviceId_, target.user, event);
}

void IZelPeerConnection::SetReconnectDelay(uint32_t intervalSec, bool automatic) {
  reconnectIntervalSec_ = intervalSec;
  autoReconnect_ = automatic;
}

int32_t IZelPeerConnection::addUserMessaggeRouter(uint16_t port, ZelRouterCallback handler, void* user) {
  return router_.addUserMessaggeRouter(port, handler, user);
}

int32_t IZelPeerConnection::addCmpMessageRouter(uint16_t port, ZelCmpRouterCallback handler, void* user) {
  return router_.addCmpMessageRouter(port, handler, user);
}

int32_t IZelPeerConnection::delMessageRouter(uint16_t port) { return router_.delMessageRouter(port); }

TopicTable IZelPeerConnection::GetSubscribes() {
  const MutexLock lock(topicMutex_);
  return topics_;
}

void IZelPeerConnection::StoreSubscriber(const char* topic, const TopicSubscriber& subscriber) {
  const MutexLock lock(topicMutex_);
  topics_.insert_or_assign(topic, subscriber);
  topicChanges_.fetch_add(1, std::memory_order_release);
}

bool IZelPeerConnection::HasSubscriber(const std::string& topic) {
  const MutexLock lock(topicMutex_);
  return topics_.contains(topic);
}

bool IZelPeerConnection::RemoveSubscriber(const char* topic) {
  const MutexLock lock(topicMutex_);
  if (topics_.erase(topic) == 0) return false;
  topicChanges_.fetch_add(1, std::memory_order_release);
  return true;
}

// Makes the topic and its subscriber the last ones.
bool IZelPeerConnection::FindSubscriber(std::string_view topic) {
  if (lastTopicChanges_ == topicChanges_.load(std::memory_order_acquire) && lastTopic_ == topic) return true;
  const MutexLock lock(topicMutex_);
  const auto entry = topics_.find(topic);
  if (entry == topics_.end()) return false;
  lastTopic_ = entry->first;
  lastSubscriber_ = entry->second;
  lastTopicChanges_ = topicChanges_.load(std::memory_order_relaxed);
  return true;
}

void IZelPeerConnection::filter(const uint8_t* body, uint32_t length) {
  const auto record = ReadTopicRecord({body, length});
  if (!record) {
    ZEL_LOG(kError, "topic record is longer than its message,size:%d", static_cast<int>(length));
    return;
  }
  if (!FindSubscriber(record->topic)) {
    ZEL_LOG(kError, "unknow topic:%s", std::string(record->topic).c_str());
    return;
  }
  if (lastSubscriber_.callback == nullptr) return;
  // The NUL behind the data is promised to the callback; a peer may have left it out.
  std::string copy;
  const uint8_t* data = record->data.data();
  if (data == nullptr || data[record->data.size()] != 0) {
    copy.assign(record->data.begin(), record->data.end());
    data = reinterpret_cast<const uint8_t*>(copy.c_str());
  }
  lastSubscriber_.callback(record->IdGroup, record->IdOffset, lastTopic_.c_str(), data,
                           static_cast<uint32_t>(record->data.size()), lastSubscriber_.user);
}

// ---- Receive thread ---------------------------------------------------------------------------------------

void IZelPeerConnection::PauseUnlessStopped(int64_t pauseMs) const {
  if (stopWaker_.IsOpen()) {
    (void)platform::WaitReadable(stopWaker_.handle(), pauseMs);
  } else {
    std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
  }
}

int32_t IZelPeerConnection::loop_start() noexcept {
  const std::lock_guard lock(threadMutex_);
  if (isStarted_) return ZEL_OK;  // a thread that is being stopped counts as stopped after this call
  stop_ = false;
  (void)stopWaker_.Open();  // without one a stop takes up to a second
  stopWaker_.Drain();
  thread_ = std::thread([this] {
    t_received = this;
    (void)svc();
  });
  isStarted_ = true;
  return ZEL_OK;
}

int32_t IZelPeerConnection::loop_stop() noexcept {
  std::unique_lock lock(threadMutex_);
  stop_ = true;
  if (!isStarted_) return ZEL_OK;
  if (t_received == this) FailSelfJoin();
  if (isJoining_) {
    joined_.wait(lock, [this] { return !isJoining_; });
    return ZEL_OK;
  }
  isJoining_ = true;
  stopWaker_.Wake();
  lock.unlock();
  thread_.join();
  lock.lock();
  isJoining_ = false;
  isStarted_ = false;
  joined_.notify_all();
  return ZEL_OK;
}

}  // namespace libzel
