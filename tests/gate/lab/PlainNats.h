// NATS as any program uses it, with nothing of zelgate in it.
#pragma once

#include <nats/nats.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Servers.h"

namespace gatelab {

// Waits until it holds, at most so long; true when it does. Every look may take a while.
inline bool Until(const std::function<bool()>& holds, std::chrono::seconds most = std::chrono::seconds(40)) {
  const auto end = std::chrono::steady_clock::now() + most;
  while (!holds()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

struct Access {
  std::string user;
  std::string password = user + "-pass";
  std::string authority = Servers::Authority();
};

template <auto kDestroy>
struct PlainDeleter {
  template <typename Handle>
  void operator()(Handle* handle) const {
    kDestroy(handle);
  }
};
using PlainMessage = std::unique_ptr<natsMsg, PlainDeleter<natsMsg_Destroy>>;
using PlainStreamInfo = std::unique_ptr<jsStreamInfo, PlainDeleter<jsStreamInfo_Destroy>>;
using PlainSubscription = std::unique_ptr<natsSubscription, PlainDeleter<natsSubscription_Destroy>>;

class PlainNats {
 public:
  // Tries until the server is there; Status() says how that went. "hub" is whichever of the hub's servers is
  // there.
  PlainNats(const std::string& server, const Access& access) {
    (void)Until([&] {
      status_ = Connect(server, access);
      return status_ != NATS_NO_SERVER && status_ != NATS_TIMEOUT;
    });
  }

  natsStatus Status() const { return status_; }
  natsConnection* Connection() const { return connection_.get(); }
  jsCtx* JetStream() const { return jetStream_.get(); }

  // True when the server has acknowledged it.
  bool PublishEvent(const std::string& subject, std::string_view data) {
    jsPubAck* ack = nullptr;
    const natsStatus status = js_Publish(&ack, JetStream(), subject.c_str(), data.data(),
                                         static_cast<int>(data.size()), nullptr, nullptr);
    jsPubAck_Destroy(ack);
    return status == NATS_OK;
  }
  // True when the server says that this user may not publish there.
  bool IsForbidden(const std::string& subject) {
    (void)natsConnection_PublishString(Connection(), subject.c_str(), "x");
    return Until([&] {
      const char* text = nullptr;
      (void)natsConnection_GetLastError(Connection(), &text);
      return text != nullptr &&
             std::string(text).find("Permissions Violation for Publish to \"" + subject) == 0;
    });
  }
  // As fast as it goes; true when all were acknowledged.
  bool PublishEvents(const std::string& prefix, int from, int count, size_t size) {
    bool isGood = true;
    for (int i = from; i < from + count; ++i) {
      std::string data = std::to_string(i);
      data.resize(size, '.');
      isGood = isGood && js_PublishAsync(JetStream(), (prefix + std::to_string(i % 10)).c_str(), data.data(),
                                         static_cast<int>(size), nullptr) == NATS_OK;
    }
    return isGood && js_PublishAsyncComplete(JetStream(), nullptr) == NATS_OK;
  }
  // Empty when there is none, or no answer.
  PlainStreamInfo Stream(const std::string& name) {
    jsStreamInfo* info = nullptr;
    (void)js_GetStreamInfo(&info, JetStream(), name.c_str(), nullptr, nullptr);
    return PlainStreamInfo(info);
  }
  uint64_t Count(const std::string& stream) {
    const auto info = Stream(stream);
    return info != nullptr ? info->State.Msgs : 0;
  }
  PlainMessage StreamMessage(const std::string& stream, uint64_t sequence) {
    natsMsg* message = nullptr;
    (void)js_GetMsg(&message, JetStream(), stream.c_str(), sequence, nullptr, nullptr);
    return PlainMessage(message);
  }
  natsStatus Ask(const std::string& subject, std::string_view data, std::string& answer) {
    natsMsg* message = nullptr;
    const natsStatus status = natsConnection_Request(&message, Connection(), subject.c_str(), data.data(),
                                                     static_cast<int>(data.size()), 5000);
    const PlainMessage owned(message);
    if (status == NATS_OK)
      answer.assign(natsMsg_GetData(message), static_cast<size_t>(natsMsg_GetDataLength(message)));
    return status;
  }

 private:
  natsStatus Connect(const std::string& server, const Access& access) {
    natsOptions* made = nullptr;
    (void)natsOptions_Create(&made);
    const std::unique_ptr<natsOptions, PlainDeleter<natsOptions_Destroy>> options(made);
    const std::vector<std::string> names =
        server == "hub" ? std::vector<std::string>{"hub-1", "hub-2", "hub-3"} : std::vector{server};
    std::vector<std::string> urls;
    std::vector<const char*> texts;
    for (const std::string& name : names) urls.push_back(Servers::Url(name));
    for (const std::string& url : urls) texts.push_back(url.c_str());
    (void)natsOptions_SetServers(made, texts.data(), static_cast<int>(texts.size()));
    (void)natsOptions_SetUserInfo(made, access.user.c_str(), access.password.c_str());
    (void)natsOptions_SetSecure(made, true);
    (void)natsOptions_LoadCATrustedCertificates(made, access.authority.c_str());
    (void)natsOptions_SetMaxReconnect(made, -1);
    (void)natsOptions_SetReconnectWait(made, 100);
    natsConnection* connection = nullptr;
    natsStatus status = natsConnection_Connect(&connection, made);
    connection_.reset(connection);
    if (status != NATS_OK) return status;
    jsCtx* context = nullptr;
    status = natsConnection_JetStream(&context, connection, nullptr);
    jetStream_.reset(context);
    return status;
  }

  natsStatus status_ = NATS_OK;
  std::unique_ptr<natsConnection, PlainDeleter<natsConnection_Destroy>> connection_;
  std::unique_ptr<jsCtx, PlainDeleter<jsCtx_Destroy>> jetStream_;
};

}  // namespace gatelab
