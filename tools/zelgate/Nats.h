// NATS as objects that clean up after themselves: connection, messages, subscriptions, key-value buckets.
// Failures are values whose text is a sentence: what failed, with whom, why, and what to do.
//
// Every class may be used from any thread. Handlers run on libnats' delivery threads (one pool for all
// subscriptions, one call at a time for each of them); they must be short, must not wait for an answer from
// NATS, and nothing may be thrown out of them.
#pragma once

#include <nats/nats.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Config.h"

namespace zelgate {

struct NatsResult {
  natsStatus code = NATS_OK;
  jsErrCode jetStreamCode{};  // of JetStream's own refusals; else 0
  std::string why;            // a sentence, empty when the code is NATS_OK

  bool IsOk() const { return code == NATS_OK; }
  explicit operator bool() const { return IsOk(); }
};

// What failed (`what`: "cannot read the key x"), for libnats' status of the calling thread's last call.
NatsResult MakeNatsResult(natsStatus code, const std::string& what, jsErrCode jetStreamCode = {});

// Deletes what libnats made: std::unique_ptr<natsMsg, NatsDeleter<natsMsg_Destroy>>.
template <auto kDestroy>
struct NatsDeleter {
  template <typename Handle>
  void operator()(Handle* handle) const {
    kDestroy(handle);
  }
};

// A message to be sent, or one that came. Empty when moved from.
class NatsMessage {
 public:
  NatsMessage() = default;
  // Takes it over.
  explicit NatsMessage(natsMsg* raw) : raw_(raw) {}
  // The data are copied. Empty when the memory is at an end, or the subject is empty.
  NatsMessage(const std::string& subject, const std::string& reply, std::string_view data);

  explicit operator bool() const { return raw_ != nullptr; }
  natsMsg* Raw() const { return raw_.get(); }

  // Names are case-sensitive. A header that is not there is an empty text.
  void SetHeader(const char* name, const std::string& value);
  std::string Header(const char* name) const;
  std::string_view Subject() const;
  std::string_view Reply() const;  // empty when nobody waits for an answer
  std::string_view Data() const;
  // The server's word that nobody takes messages of the request's subject.
  bool IsNoResponders() const;

 private:
  std::unique_ptr<natsMsg, NatsDeleter<natsMsg_Destroy>> raw_;
};

using NatsHandler = std::function<void(NatsMessage message)>;

// When it is destroyed no call of the handler begins any more, and one that runs has returned, unless it is
// this very thread's. So hold no lock that the handler wants.
class NatsSubscription {
 public:
  NatsSubscription() = default;
  ~NatsSubscription() { Stop(); }
  NatsSubscription(NatsSubscription&& other) noexcept = default;
  NatsSubscription& operator=(NatsSubscription&& other) noexcept;

  void Stop();
  // The same, but what the server has sent until it knows still comes to the handler, which nothing ends
  // before. False when that took longer.
  bool StopGently(std::chrono::milliseconds timeout);
  explicit operator bool() const { return raw_ != nullptr; }

 private:
  friend class Nats;
  struct Target {
    std::recursive_mutex mutex;
    NatsHandler handler;  // guarded by the mutex; empty when nothing is to be called any more
  };
  static void Call(natsConnection* connection, natsSubscription* subscription, natsMsg* message,
                   void* closure);
  static void Forget(void* closure);

  std::unique_ptr<natsSubscription, NatsDeleter<natsSubscription_Destroy>> raw_;
  std::shared_ptr<Target> target_;
};

// What happens to a connection, on a thread of libnats' own.
struct NatsEvents {
  std::function<void()> onUp;      // connected, first or again
  std::function<void()> onDown;    // lost; it is tried again for ever
  std::function<void()> onClosed;  // given up: the server refuses the credentials
};

// A connection to one of several servers, which is restored for ever. Started before its server, it waits and
// says so.
class Nats {
 public:
  Nats() = default;
  ~Nats();
  Nats(const Nats&) = delete;
  Nats& operator=(const Nats&) = delete;

  // Once. Fails over what the configuration names (files that cannot be read) and over refused credentials,
  // not over a server that isn't there. `name` is what the server's operator sees.
  NatsResult Start(const NatsConfig& config, const std::string& name, NatsEvents events = {});
  // When it returns no callback of NatsEvents runs any more. Again does nothing.
  void Close();
  bool IsUp() const { return isUp_; }
  bool IsClosed() const { return isClosed_; }
  // False when it is not up by then.
  bool WaitUntilUp(std::chrono::milliseconds timeout) const;
  // "nats://127.0.0.1:4222", the server's or, while there is none, those of the configuration. No passwords.
  std::string Where() const;
  // Of the server that it is connected to; 0 before the first one.
  int64_t MaxPayload() const { return natsConnection_GetMaxPayload(raw_.get()); }

  // Hands the message to the connection, which may hold it back while it is down.
  NatsResult Publish(const NatsMessage& message);
  // NATS_NO_RESPONDERS: nobody takes messages of the subject. NATS_TIMEOUT: no answer in time.
  NatsResult Request(const NatsMessage& message, std::chrono::milliseconds timeout, NatsMessage& reply);
  // With a queue group each message goes to one subscriber of the group; "" for none.
  NatsResult Subscribe(const std::string& subject, const std::string& queue, NatsHandler handler,
                       NatsSubscription& subscription);
  // What was published has reached the server, and what was subscribed is known there.
  NatsResult Flush(std::chrono::milliseconds timeout);

  // Never null after a Start that went well.
  natsConnection* Raw() const { return raw_.get(); }
  jsCtx* JetStream() const { return jetStream_.get(); }

 private:
  static void OnUp(natsConnection* connection, void* closure);
  static void OnDown(natsConnection* connection, void* closure);
  static void OnClosed(natsConnection* connection, void* closure);
  static void OnError(natsConnection* connection, natsSubscription* subscription, natsStatus problem,
                      void* closure);
  NatsResult Connect(natsOptions* options);
  std::string UrlList() const;

  std::vector<std::string> urls_;
  NatsEvents events_;
  std::atomic<bool> isUp_ = false;
  std::atomic<bool> isClosed_ = false;
  std::atomic<bool> isEnding_ = false;
  std::atomic<int64_t> lastRefusalMs_ = 0;
  std::unique_ptr<jsCtx, NatsDeleter<jsCtx_Destroy>> jetStream_;
  std::unique_ptr<natsConnection, NatsDeleter<natsConnection_Destroy>> raw_;
};

struct KeyEntry {
  std::string key;
  std::string value;
  uint64_t revision = 0;
  bool isDeleted = false;
};

// Tells what happens to the keys of a bucket, what is there already first. One thread uses it.
class KeyWatcher {
 public:
  // What came within the time; nothing when nothing did, or at the end of what was there already.
  // `isComplete` is set true with that end. A failure means that this watcher is of no use any more.
  NatsResult Next(std::chrono::milliseconds timeout, std::optional<KeyEntry>& entry, bool& isComplete);

 private:
  friend class KeyValue;
  std::string bucket_;
  std::unique_ptr<kvWatcher, NatsDeleter<kvWatcher_Destroy>> raw_;
};

// A bucket of the server. NATS_NOT_FOUND: no such key. IsConflict of a result: the key has another revision.
class KeyValue {
 public:
  // The bucket must be there.
  NatsResult Open(Nats& nats, const std::string& bucket);

  NatsResult Get(const std::string& key, KeyEntry& entry);
  NatsResult Put(const std::string& key, const std::string& value, uint64_t* revision = nullptr);
  // Only if the key is not there.
  NatsResult Create(const std::string& key, const std::string& value, uint64_t& revision);
  // Only if the key's last revision is `last`.
  NatsResult Update(const std::string& key, const std::string& value, uint64_t last, uint64_t& revision);
  NatsResult Delete(const std::string& key);
  NatsResult Keys(std::vector<std::string>& keys);
  // `keys` may have the wildcards of subjects; ">" is all.
  NatsResult Watch(const std::string& keys, KeyWatcher& watcher);

 private:
  std::string About(const std::string& verb, const std::string& key) const;

  std::string bucket_;
  std::unique_ptr<kvStore, NatsDeleter<kvStore_Destroy>> raw_;
};

// A write by revision came too late: another one was first.
bool IsConflict(const NatsResult& result);

}  // namespace zelgate
