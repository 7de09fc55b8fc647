#include "zelclient/ZelPeerConn.h"

#include <exception>

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
    const MutexLock lock(response.mutex);
    while (response.invokeId != 0 && response.answered.WaitUntil(response.mutex, request.deadline)) {
    }
    if (response.invokeId.exchange(0) == 0) {
      while (response.result == ZelResponse::kPending) response.answered.Wait(response.mutex);
      result = response.result;
    }
  }
  Withdraw(slot);
  return result;
}

// ---- Settings and tables ----------------------------------------------------------------------------------

void IZelPeerConnection::SetEventCallback(ZelConnEventCallback callback, void* user) {
  events_.Set(callback, user);
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

TopicTable IZelPeerConnection::GetSubscribes() { return topics_.Copy(); }

void IZelPeerConnection::filter(const uint8_t* body, uint32_t length) {
  const auto record = ReadTopicRecord({body, length});
  if (!record) {
    notes_.Add(Count::kBadRecords);
    ZEL_LOG(kError, "topic record is longer than its message,size:%d", static_cast<int>(length));
    return;
  }
  const auto* const subscription = topics_.Find(record->topic);
  if (subscription == nullptr) {
    notes_.Add(Count::kNoTopic);
    ZEL_LOG(kError, "unknow topic:%s", std::string(record->topic).c_str());
    return;
  }
  const auto [callback, user] = subscription->value;
  if (callback == nullptr) return;
  // The NUL behind the data is promised to the callback; a peer may have left it out.
  std::string copy;
  const uint8_t* data = record->data.data();
  if (data == nullptr || data[record->data.size()] != 0) {
    copy.assign(record->data.begin(), record->data.end());
    data = reinterpret_cast<const uint8_t*>(copy.c_str());
  }
  callback(record->IdGroup, record->IdOffset, subscription->key.c_str(), data,
           static_cast<uint32_t>(record->data.size()), user);
}

// ---- Receive thread ---------------------------------------------------------------------------------------

void IZelPeerConnection::PauseUnlessWoken(int64_t pauseMs) {
  if (loopWaker_.IsOpen()) {
    (void)platform::WaitReadable(loopWaker_.handle(), pauseMs);
    TakeWakes();
  } else {
    std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
  }
}

int32_t IZelPeerConnection::loop_start() {
  const MutexLock lock(loopMutex_);
  if (!isLive_) {
    SetErrno(ZEL_E_HANDLE);
    return ZEL_E_HANDLE;
  }
  if (receiveThread_.IsHeld())
    return ZEL_OK;  // a thread that is being stopped counts as stopped after this call
  stop_ = false;
  OnLoopStart();
  (void)loopWaker_.Open();  // without one a stop takes up to a second
  (void)receiveThread_.Start({"zel-receive", [this] { (void)svc(); }, [this] { OnNoMemory(); }});
  return ZEL_OK;
}

int32_t IZelPeerConnection::loop_stop() noexcept {
  {
    const MutexLock lock(loopMutex_);
    stop_ = true;
    loopWaker_.Wake();
  }
  receiveThread_.Join();
  return ZEL_OK;
}

void IZelPeerConnection::Cancel() {
  {
    const MutexLock lock(loopMutex_);
    isLive_ = false;
  }
  events_.Close();
}

void IZelPeerConnection::End() noexcept {
  events_.AwaitOthers();
  (void)loop_stop();
}

}  // namespace libzel
