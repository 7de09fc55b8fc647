#include "Nats.h"

#include <thread>
#include <utility>

#include "Journal.h"

namespace zelgate {
namespace {

constexpr int64_t kReconnectWaitMs = 500;
constexpr int64_t kReconnectJitterMs = 500;
constexpr int64_t kConnectTimeoutMs = 3000;
constexpr int64_t kPingIntervalMs = 5000;
constexpr int kMaxPingsOut = 2;
constexpr int64_t kJetStreamWaitMs = 5000;
constexpr int64_t kRefusalPauseMs = 10000;

const char* CureOf(natsStatus code) {
  switch (code) {
    case NATS_NOT_PERMITTED:
      return "give the account the permission, zelgate check names all that are needed";
    case NATS_CONNECTION_AUTH_FAILED:
      return "check credentials, or user and password_file, of the configuration";
    case NATS_TIMEOUT: return "see whether the server runs with JetStream and its group has a majority";
    case NATS_NO_RESPONDERS: return "start the server with JetStream (nats-server -js)";
    case NATS_NOT_FOUND: return "zelgate check tells what is missing";
    case NATS_MAX_PAYLOAD: return "raise max_payload of the server";
    case NATS_SSL_ERROR: return "check [nats.tls] of the configuration, and the server's certificate";
    case NATS_SECURE_CONNECTION_REQUIRED: return "the server wants TLS: write [nats.tls] with its ca";
    case NATS_SECURE_CONNECTION_WANTED: return "the server has no TLS: leave [nats.tls] out, or give it TLS";
    case NATS_NO_SERVER:
    case NATS_NOT_YET_CONNECTED:
    case NATS_CONNECTION_CLOSED:
    case NATS_CONNECTION_DISCONNECTED: return "it is tried again until the server is there";
    default: return "zelgate check looks for the cause";
  }
}

int64_t NowMs() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

// What comes between "://" and "@" is a secret.
std::string WithoutSecret(const std::string& url) {
  const size_t scheme = url.find("://");
  const size_t at = url.rfind('@');
  if (scheme == std::string::npos || at == std::string::npos || at < scheme) return url;
  return url.substr(0, scheme + 3) + url.substr(at + 1);
}

// Sets one option after the other; the first failure stays.
class NatsOptionSetter {
 public:
  template <typename... Arguments>
  void Set(const std::string& what, natsStatus (*function)(natsOptions*, Arguments...),
           std::type_identity_t<Arguments>... arguments) {
    if (!result_) return;
    const natsStatus code = function(options_, arguments...);
    if (code != NATS_OK) result_ = MakeNatsResult(code, "cannot set up the connection to NATS: " + what);
  }
  explicit NatsOptionSetter(natsOptions* options) : options_(options) {}
  const NatsResult& Outcome() const { return result_; }

 private:
  natsOptions* options_;
  NatsResult result_;
};

void SetAccess(NatsOptionSetter& setter, const NatsConfig& config) {
  if (!config.credentials.empty()) {
    setter.Set("credentials " + config.credentials, natsOptions_SetUserCredentialsFromFiles,
               config.credentials.c_str(), nullptr);
  }
  if (!config.user.empty()) {
    setter.Set("user", natsOptions_SetUserInfo, config.user.c_str(), config.password.c_str());
  }
  if (config.tlsCa.empty()) return;
  setter.Set("TLS", natsOptions_SetSecure, true);
  setter.Set("tls.ca " + config.tlsCa, natsOptions_LoadCATrustedCertificates, config.tlsCa.c_str());
  if (config.tlsCert.empty()) return;
  setter.Set("tls.cert " + config.tlsCert, natsOptions_LoadCertificatesChain, config.tlsCert.c_str(),
             config.tlsKey.c_str());
}

void SetManners(NatsOptionSetter& setter, const NatsConfig& config, const std::string& name) {
  std::vector<const char*> urls;
  for (const std::string& url : config.urls) urls.push_back(url.c_str());
  setter.Set("urls", natsOptions_SetServers, urls.data(), static_cast<int>(urls.size()));
  setter.Set("name", natsOptions_SetName, name.c_str());
  setter.Set("timeout", natsOptions_SetTimeout, kConnectTimeoutMs);
  setter.Set("reconnect", natsOptions_SetAllowReconnect, true);
  setter.Set("reconnect", natsOptions_SetMaxReconnect, -1);
  setter.Set("reconnect", natsOptions_SetReconnectWait, kReconnectWaitMs);
  setter.Set("reconnect", natsOptions_SetReconnectJitter, kReconnectJitterMs, kReconnectJitterMs);
  setter.Set("ping", natsOptions_SetPingInterval, kPingIntervalMs);
  setter.Set("ping", natsOptions_SetMaxPingsOut, kMaxPingsOut);
  // Else a call that waits for an answer waits for all its time after the connection went.
  setter.Set("requests", natsOptions_SetFailRequestsOnDisconnect, true);
  // Else every subscription has a thread, and a process has thousands.
  setter.Set("delivery", natsOptions_UseGlobalMessageDelivery, true);
}

}  // namespace

NatsResult MakeNatsResult(natsStatus code, const std::string& what, jsErrCode jetStreamCode) {
  if (code == NATS_OK) return {};
  std::string why = what + ": " + natsStatus_GetText(code);
  natsStatus last = NATS_OK;
  const char* const detail = nats_GetLastError(&last);
  if (last == code && detail != nullptr && *detail != '\0') why += std::string(" (") + detail + ")";
  return {code, jetStreamCode, why + "; " + CureOf(code)};
}

// ---- Messages ---------------------------------------------------------------------------------------------

NatsMessage::NatsMessage(const std::string& subject, const std::string& reply, std::string_view data) {
  natsMsg* made = nullptr;
  (void)natsMsg_Create(&made, subject.c_str(), reply.empty() ? nullptr : reply.c_str(), data.data(),
                       static_cast<int>(data.size()));
  raw_.reset(made);
}

void NatsMessage::SetHeader(const char* name, const std::string& value) {
  (void)natsMsgHeader_Set(raw_.get(), name, value.c_str());  // only lacks memory
}

std::string NatsMessage::Header(const char* name) const {
  const char* value = nullptr;
  const bool isThere = raw_ != nullptr && natsMsgHeader_Get(raw_.get(), name, &value) == NATS_OK;
  return isThere && value != nullptr ? value : "";
}

std::string_view NatsMessage::Subject() const {
  const char* const text = natsMsg_GetSubject(raw_.get());
  return text != nullptr ? text : "";
}

std::string_view NatsMessage::Reply() const {
  const char* const text = natsMsg_GetReply(raw_.get());
  return text != nullptr ? text : "";
}

std::string_view NatsMessage::Data() const {
  const char* const data = natsMsg_GetData(raw_.get());
  if (data == nullptr) return {};
  return {data, static_cast<size_t>(natsMsg_GetDataLength(raw_.get()))};
}

bool NatsMessage::IsNoResponders() const { return natsMsg_IsNoResponders(raw_.get()); }

// ---- Subscriptions ----------------------------------------------------------------------------------------

NatsSubscription& NatsSubscription::operator=(NatsSubscription&& other) noexcept {
  if (this == &other) return *this;
  Stop();
  raw_ = std::move(other.raw_);
  target_ = std::move(other.target_);
  return *this;
}

void NatsSubscription::Stop() {
  if (target_ != nullptr) {
    NatsHandler handler;  // let go of outside the lock
    const std::lock_guard lock(target_->mutex);
    std::swap(handler, target_->handler);
  }
  if (raw_ != nullptr) (void)natsSubscription_Unsubscribe(raw_.get());  // fails when the connection is closed
  raw_.reset();
  target_.reset();
}

bool NatsSubscription::StopGently(std::chrono::milliseconds timeout) {
  bool isDone = raw_ == nullptr;
  if (!isDone && natsSubscription_DrainTimeout(raw_.get(), timeout.count()) == NATS_OK) {
    isDone = natsSubscription_WaitForDrainCompletion(raw_.get(), timeout.count()) == NATS_OK;
  }
  Stop();
  return isDone;
}

void NatsSubscription::Call(natsConnection* /*connection*/, natsSubscription* /*subscription*/,
                            natsMsg* message, void* closure) {
  NatsMessage owned(message);
  const std::shared_ptr<Target> target = *static_cast<std::shared_ptr<Target>*>(closure);
  const std::lock_guard lock(target->mutex);
  const NatsHandler handler = target->handler;
  if (handler) handler(std::move(owned));
}

// libnats is done with the subscription.
void NatsSubscription::Forget(void* closure) {
  const std::unique_ptr<std::shared_ptr<Target>> target(static_cast<std::shared_ptr<Target>*>(closure));
}

// ---- The connection ---------------------------------------------------------------------------------------

Nats::~Nats() { Close(); }

void Nats::Close() {
  if (raw_ == nullptr) return;
  isEnding_ = true;
  natsConnection_Close(raw_.get());
  // The callbacks use this object; the one for the end is the last.
  for (int i = 0; i < 2000 && !isClosed_; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

NatsResult Nats::Start(const NatsConfig& config, const std::string& name, NatsEvents events) {
  events_ = std::move(events);
  for (const std::string& url : config.urls) urls_.push_back(WithoutSecret(url));
  natsOptions* made = nullptr;
  const natsStatus code = natsOptions_Create(&made);
  if (code != NATS_OK) return MakeNatsResult(code, "cannot set up the connection to NATS");
  const std::unique_ptr<natsOptions, NatsDeleter<natsOptions_Destroy>> options(made);
  NatsOptionSetter setter(options.get());
  SetManners(setter, config, name);
  SetAccess(setter, config);
  setter.Set("callbacks", natsOptions_SetRetryOnFailedConnect, true, OnUp, this);
  setter.Set("callbacks", natsOptions_SetReconnectedCB, OnUp, this);
  setter.Set("callbacks", natsOptions_SetDisconnectedCB, OnDown, this);
  setter.Set("callbacks", natsOptions_SetClosedCB, OnClosed, this);
  setter.Set("callbacks", natsOptions_SetErrorHandler, OnError, this);
  return setter.Outcome() ? Connect(options.get()) : setter.Outcome();
}

NatsResult Nats::Connect(natsOptions* options) {
  natsConnection* connection = nullptr;
  const natsStatus code = natsConnection_Connect(&connection, options);
  raw_.reset(connection);
  if (code != NATS_OK && code != NATS_NOT_YET_CONNECTED) {
    isClosed_ = true;
    return MakeNatsResult(code, "cannot connect to NATS at " + UrlList());
  }
  jsOptions js;
  (void)jsOptions_Init(&js);  // only a null fails
  js.Wait = kJetStreamWaitMs;
  jsCtx* context = nullptr;
  const natsStatus ready = natsConnection_JetStream(&context, raw_.get(), &js);
  jetStream_.reset(context);
  if (ready != NATS_OK) return MakeNatsResult(ready, "cannot use JetStream at " + UrlList());
  if (code == NATS_OK) {
    OnUp(raw_.get(), this);
  } else {
    Say(Priority::kWarning, "no NATS server at " + UrlList() +
                                " yet: nothing is served until there is one; " +
                                "start it, or check nats.urls of the configuration; it is tried for ever");
  }
  return {};
}

bool Nats::WaitUntilUp(std::chrono::milliseconds timeout) const {
  const auto end = std::chrono::steady_clock::now() + timeout;
  while (!isUp_ && !isClosed_ && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return isUp_;
}

std::string Nats::UrlList() const {
  std::string list;
  for (const std::string& url : urls_) list += (list.empty() ? "" : ", ") + url;
  return list;
}

std::string Nats::Where() const {
  char url[512] = "";
  const natsStatus code = natsConnection_GetConnectedUrl(raw_.get(), url, sizeof url);
  return code == NATS_OK && url[0] != '\0' ? WithoutSecret(url) : UrlList();
}

void Nats::OnUp(natsConnection* /*connection*/, void* closure) {
  auto& nats = *static_cast<Nats*>(closure);
  // Also called by Start, for a server that was there at once.
  if (nats.isUp_.exchange(true)) return;
  Say(Priority::kNotice, "connected to NATS at " + nats.Where());
  if (nats.events_.onUp) nats.events_.onUp();
}

void Nats::OnDown(natsConnection* /*connection*/, void* closure) {
  auto& nats = *static_cast<Nats*>(closure);
  if (!nats.isUp_.exchange(false) || nats.isEnding_) return;
  Say(Priority::kWarning, "lost the connection to NATS at " + nats.UrlList() +
                              ": events wait as their policy says, and requests get no answer; " +
                              "it is tried again until the server is there");
  if (nats.events_.onDown) nats.events_.onDown();
}

void Nats::OnClosed(natsConnection* connection, void* closure) {
  auto& nats = *static_cast<Nats*>(closure);
  const char* last = nullptr;
  (void)natsConnection_GetLastError(connection, &last);
  nats.isUp_ = false;
  if (!nats.isEnding_) {
    Say(Priority::kError, "NATS at " + nats.UrlList() + " closed the connection for good: " +
                              (last != nullptr && *last != '\0' ? last : "no reason given") +
                              "; check the credentials of the configuration, and the account at the server");
    if (nats.events_.onClosed) nats.events_.onClosed();
  }
  nats.isClosed_ = true;
}

// Refusals come by thousands when an account lacks a permission.
void Nats::OnError(natsConnection* connection, natsSubscription* subscription, natsStatus problem,
                   void* closure) {
  auto& nats = *static_cast<Nats*>(closure);
  const int64_t now = NowMs();
  int64_t last = nats.lastRefusalMs_;
  if (last != 0 && now - last < kRefusalPauseMs) return;
  if (!nats.lastRefusalMs_.compare_exchange_strong(last, now)) return;
  const char* text = nullptr;
  (void)natsConnection_GetLastError(connection, &text);
  std::string what = "NATS at " + nats.UrlList() + " reports: " + natsStatus_GetText(problem);
  if (text != nullptr && *text != '\0') what += std::string(" (") + text + ")";
  if (subscription != nullptr) what += std::string(", subject ") + natsSubscription_GetSubject(subscription);
  Say(Priority::kWarning, what + "; " + CureOf(problem));
}

NatsResult Nats::Publish(const NatsMessage& message) {
  const natsStatus code = natsConnection_PublishMsg(raw_.get(), message.Raw());
  if (code == NATS_OK) return {};
  return MakeNatsResult(code, "cannot publish to " + std::string(message.Subject()) + " at " + Where());
}

NatsResult Nats::Request(const NatsMessage& message, std::chrono::milliseconds timeout, NatsMessage& reply) {
  natsMsg* got = nullptr;
  const natsStatus code = natsConnection_RequestMsg(&got, raw_.get(), message.Raw(), timeout.count());
  reply = NatsMessage(got);
  if (code == NATS_OK) return {};
  return MakeNatsResult(code, "no answer to " + std::string(message.Subject()) + " from " + Where());
}

NatsResult Nats::Subscribe(const std::string& subject, const std::string& queue, NatsHandler handler,
                           NatsSubscription& subscription) {
  NatsSubscription made;
  made.target_ = std::make_shared<NatsSubscription::Target>();
  made.target_->handler = std::move(handler);
  auto closure = std::make_unique<std::shared_ptr<NatsSubscription::Target>>(made.target_);
  natsSubscription* raw = nullptr;
  const natsStatus code =
      queue.empty()
          ? natsConnection_Subscribe(&raw, raw_.get(), subject.c_str(), NatsSubscription::Call, closure.get())
          : natsConnection_QueueSubscribe(&raw, raw_.get(), subject.c_str(), queue.c_str(),
                                          NatsSubscription::Call, closure.get());
  if (code != NATS_OK) return MakeNatsResult(code, "cannot subscribe to " + subject + " at " + Where());
  made.raw_.reset(raw);
  // Never fails for a subscription with a handler.
  if (natsSubscription_SetOnCompleteCB(raw, NatsSubscription::Forget, closure.get()) == NATS_OK) {
    (void)closure.release();
  }
  subscription = std::move(made);
  return {};
}

NatsResult Nats::Flush(std::chrono::milliseconds timeout) {
  const natsStatus code = natsConnection_FlushTimeout(raw_.get(), timeout.count());
  return code == NATS_OK ? NatsResult() : MakeNatsResult(code, "no word from NATS at " + Where());
}

}  // namespace zelgate
