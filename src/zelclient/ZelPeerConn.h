// The connection to one Zel server, as everything but its transport sees it: invoke identifiers, the message router,
// the topic table and its delivery, the event callback, the receive thread, and the pool of response records.
//
// Any thread may call any member. Topic and router callbacks run on the receive thread, event callbacks on whichever
// thread connects; no lock is held while one runs.
//
// A connection ends in two steps: Cancel, after which every call on it fails within 100 ms and the application hears no
// more of it, and End, which waits for what still runs.
#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <string>

#include "libzel/libzel.h"
#include "platform/Platform.h"
#include "utils/LookupTable.h"
#include "utils/Mutex.h"
#include "utils/ObjectPoolBase.h"
#include "utils/Options.h"
#include "utils/Thread.h"
#include "zelclient/ConnectionNotes.h"
#include "zelclient/EventTarget.h"
#include "zelclient/msgrouter/MsgRouter.h"
#include "zelcomm/FrameBuffer.h"

namespace libzel {

// A request that waits for a response record.
struct ZelRequest {
  FrameBuffer message;          // the body behind the inner header; both headers are put in front
  const ZelDeviceAddr* target;  // its port becomes the header's
  uint16_t command = 0;
  uint32_t requestWord = 0;  // carried along, read by nothing
  uint8_t* answer = nullptr;
  uint32_t* answerLength = nullptr;
  std::chrono::steady_clock::time_point deadline{};
};

// A pooled record that an answer completes.
struct ZelResponse {
  static constexpr int32_t kPending = -1;

  std::atomic<const ZelRequest*> owner{nullptr};  // null when free
  std::atomic<uint32_t> invokeId{0};              // that the answer must carry; 0 when answered or withdrawn
  Mutex mutex;
  CondVar answered;
  std::atomic<int32_t> result{0};
};

using ResponsePool = CObjectPool<ZelResponse, 100>;
ResponsePool& ResponseRecords();

struct TopicSubscriber {
  ZelTopicCallback callback = nullptr;
  void* user = nullptr;
};
using TopicTable = LookupTable<std::string, TopicSubscriber>::Map;

class IZelPeerConnection {
 public:
  IZelPeerConnection(const ZelDeviceId& remote, std::string parameters);
  virtual ~IZelPeerConnection();
  IZelPeerConnection(const IZelPeerConnection&) = delete;
  IZelPeerConnection& operator=(const IZelPeerConnection&) = delete;

  // 1, 2, 3 and so on; 0 is left out when the counter wraps.
  virtual uint32_t GenInvokeId();
  // -1 once the request has left: no record is given to wait on. Deliberate.
  virtual int32_t SyncRequest(ZelRequest& request);
  virtual int32_t Write(const uint8_t* data, uint32_t length, int64_t timeoutMs) = 0;
  // Frames, reserves, stamps and sends. Always null: the record of a request that was sent whole stays reserved.
  virtual ResponsePool::Slot* SendRequest(ZelRequest& request);
  // A record owned by the request, or null when it has an owner.
  virtual ResponsePool::Slot* Reserve(const ZelRequest& request);
  virtual void SetEventCallback(ZelConnEventCallback callback, void* user);
  virtual void SetReconnectDelay(uint32_t intervalSec, bool automatic);
  virtual int32_t addUserMessaggeRouter(uint16_t port, ZelRouterCallback handler, void* user);
  virtual int32_t addCmpMessageRouter(uint16_t port, ZelCmpRouterCallback handler, void* user);
  virtual int32_t delMessageRouter(uint16_t port);
  virtual TopicTable GetSubscribes();
  virtual int32_t Send(uint16_t port, uint32_t idGroup, uint32_t idOffset, const uint8_t* data,
                       uint32_t length, uint32_t timeoutMs) = 0;
  virtual int32_t Recv(void* context, uint8_t* buffer, uint32_t size, uint32_t timeoutMs) = 0;
  virtual int32_t SendBuffer(const FrameBuffer& message) = 0;
  virtual int32_t Publish(const char* topic, uint32_t idGroup, uint32_t idOffset, const uint8_t* data,
                          uint32_t length) = 0;
  virtual int32_t Subscribe(const char* topic, ZelTopicCallback callback, void* user) = 0;
  virtual int32_t UnSubscribe(const char* topic) = 0;
  // Delivers one topic message to its subscriber, on the receive thread.
  virtual void filter(const uint8_t* body, uint32_t length);
  virtual bool Connect(int64_t /*timeoutMs*/) { return false; }
  virtual bool Reconnect(int64_t /*timeoutMs*/) { return false; }
  virtual bool IsConnected() { return false; }
  virtual void Close() {}
  virtual int32_t svc() = 0;
  // 0, or 8193 (also the thread's error number) after Cancel. A thread that cannot be started, and a thread that joins
  // itself, end the process.
  virtual int32_t loop_start();
  virtual int32_t loop_stop() noexcept;
  // What precedes the end of a connection whose unsent data are to get out. Its application hears no more of it, and
  // nothing more is to be written.
  virtual void BeginClose() {}
  // Waits for them, for as long since `start` as the connection may; then the connection is to be cancelled.
  virtual void AwaitDelivery(CondVar::Clock::time_point /*start*/) {}
  // Ends the connection for good without waiting for anything: no event from here on, and whatever is under way fails
  // with 5.
  virtual void Cancel();
  // After Cancel: waits for event callbacks on other threads and for the receive thread.
  void End() noexcept;
  bool IsReceiveThread() { return receiveThread_.IsCurrent(); }
  // False from Cancel on.
  bool IsLive() const { return isLive_; }

  ConnectionNotes& notes() { return notes_; }
  InstanceOptions& options() { return *options_; }
  const ZelDeviceId& remoteDeviceId() const { return remoteDeviceId_; }
  const ZelDeviceId& localDeviceId() const { return localDeviceId_; }
  const std::string& parameters() const { return parameters_; }

 protected:
  void FireEvent(int32_t event) { events_.Fire(remoteDeviceId_, event); }
  bool IsAutoReconnect() const { return autoReconnect_; }
  uint32_t reconnectIntervalSec() const { return reconnectIntervalSec_; }
  bool IsStopped() const { return stop_; }
  // Makes the receive thread look again: at the stop flag, at the link.
  void WakeReceiveThread() { loopWaker_.Wake(); }
  // For the receive thread's waits.
  const platform::Waker& loopWaker() const { return loopWaker_; }
  // To be called by it after a wait that ended without input, and before it looks again.
  void TakeWakes() { loopWaker_.Drain(); }
  // Sleeps on the receive thread; a wake ends it early.
  void PauseUnlessWoken(int64_t pauseMs);
  // What precedes the start of a receive thread.
  virtual void OnLoopStart() {}
  // What the receive thread does when it is out of memory.
  virtual void OnNoMemory() {}
  CMsgRouter& router() { return router_; }

  LookupTable<std::string, TopicSubscriber>& topics() { return topics_; }
  // For what may outlive the connection.
  const std::shared_ptr<InstanceOptions>& sharedOptions() const { return options_; }

  std::atomic<uint32_t> lastInvokeId_{0};

 private:
  int32_t AwaitResponse(const ZelRequest& request, ResponsePool::Slot* slot);

  std::atomic<bool> autoReconnect_{true};
  std::atomic<bool> stop_{false};
  std::atomic<uint32_t> reconnectIntervalSec_{2};
  std::atomic<uint32_t> invokeIds_{0};
  const std::string parameters_;
  const ZelDeviceId remoteDeviceId_;
  const ZelDeviceId localDeviceId_;  // all zero when this machine has none
  const std::shared_ptr<InstanceOptions> options_ =
      std::make_shared<InstanceOptions>(OptionsOfNewInstances());
  CMsgRouter router_;

  EventTarget events_;
  ConnectionNotes notes_;
  LookupTable<std::string, TopicSubscriber> topics_;
  std::atomic<bool> isLive_{true};

  Mutex loopMutex_;  // starting and stopping
  Thread receiveThread_;
  platform::Waker loopWaker_;
};

}  // namespace libzel
