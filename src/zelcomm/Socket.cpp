#include "zelcomm/Socket.h"

#include <algorithm>
#include <array>
#include <limits>

#include "utils/Log.h"

namespace libzel {

namespace {

std::string RuntimeErrorText() { return platform::ErrorText(platform::RuntimeError()); }

// Logs a failed option with the runtime's number and text; `format` has room for just these two.
#define ZEL_LOG_OPTION_ERROR(format)                                     \
  do {                                                                   \
    const int32_t error = platform::RuntimeError();                      \
    const std::string text = platform::ErrorText(error);                 \
    ZEL_LOG(kError, format ": errno=%d errstr=%s", error, text.c_str()); \
  } while (false)

// A link that is connected again and again must not count its buffers round to 0.
int32_t TimesFour(int32_t bytes) {
  return static_cast<int32_t>(std::min<int64_t>(int64_t{bytes} * 4, std::numeric_limits<int32_t>::max()));
}

platform::SocketHandle OpenHandle(int32_t type) {
  if (type == Socket::kStream) return platform::OpenStreamSocket();
  if (type == Socket::kDatagram) return platform::OpenDatagramSocket();
  return platform::kNoSocket;
}

}  // namespace

// ---- Socket -----------------------------------------------------------------------------------------------

Socket::Socket(const char* host, uint16_t port, int32_t type, bool isDomain)
    : port_(port), token_(type == kDatagram ? nullptr : std::make_shared<CancelToken>()), host_(host) {
  const auto handle = isDomain ? platform::kNoSocket : OpenHandle(type);
  const std::string error = RuntimeErrorText();
  if (!isDomain && type == kStream) ZEL_LOG(kTrace, "create tcp socket,sock type:%d", type);
  if (!isDomain && type == kDatagram) ZEL_LOG(kTrace, "create udp socket,sock type:%d", type);
  if (handle == platform::kNoSocket) {
    ZEL_LOG(kError, "create socket error:%s,host:%s,type:%d", error.c_str(), host, type);
  }
  link_ = std::make_shared<SocketLink>(handle, token_);
}

std::string Socket::host() {
  const MutexLock lock(linkMutex_);
  return host_;
}

void Socket::SetHost(const std::string& host) {
  const MutexLock lock(linkMutex_);
  host_ = host;
}

std::shared_ptr<SocketLink> Socket::link() {
  const MutexLock lock(linkMutex_);
  return link_;
}

std::shared_ptr<SocketLink> Socket::SetLink(platform::SocketHandle handle) {
  auto fresh = std::make_shared<SocketLink>(handle, token_);
  const MutexLock lock(linkMutex_);
  link_.swap(fresh);
  (void)fresh->TakeEndReport();  // the connection goes on with the new link: the old one's end is no news
  fresh->setConnected(false);
  return link_;
}

std::shared_ptr<SocketLink> Socket::DropLink(const SocketLink* expected) {
  auto none = std::make_shared<SocketLink>(platform::kNoSocket, token_);
  const MutexLock lock(linkMutex_);
  if (expected != nullptr && link_.get() != expected) return nullptr;
  link_.swap(none);
  none->setConnected(false);
  return none;
}

bool Socket::MarkConnected(SocketLink& link) {
  const MutexLock lock(linkMutex_);
  if (link_.get() != &link || IsCancelled()) return false;
  link.setConnected(true);
  return true;
}

void Socket::ShutdownBothWays(const std::shared_ptr<SocketLink>& link) {
  if (link != nullptr && link->handle() != platform::kNoSocket) platform::ShutdownSocket(link->handle());
}

void Socket::ShutdownLink(const SocketLink& link) { ShutdownBothWays(DropLink(&link)); }

void Socket::Cancel() {
  token_->Cancel();
  const auto present = link();
  present->setConnected(false);
  ShutdownBothWays(present);
}

uint32_t Socket::readn(uint8_t* buffer, uint32_t size, int64_t timeoutMs) {
  return link()->readn(buffer, size, timeoutMs);
}

int32_t Socket::readFull(uint8_t* buffer, int32_t size) { return link()->readFull(buffer, size); }

uint32_t Socket::readn(FrameBuffer& buffer, int64_t timeoutMs) {
  return readn(buffer.block(), buffer.capacity(), timeoutMs);
}

int32_t Socket::write(const uint8_t* data, uint32_t size, int64_t /*timeoutMs*/) {
  const platform::ConstBytes piece(data, size);
  return link()->write({&piece, 1});
}

int32_t Socket::write(const FrameBuffer& buffer, int64_t /*timeoutMs*/) {
  const platform::ConstBytes piece = buffer.content();
  return link()->writeFrame({&piece, 1});
}

void Socket::setOptions() {
  const int32_t sendBytes = get_send_buffer();
  const int32_t receiveBytes = get_recv_buffer();
  set_send_buffer(TimesFour(sendBytes));
  set_recv_buffer(TimesFour(receiveBytes));
}

int32_t Socket::get_send_buffer() {
  int32_t bytes = -1;
  if (platform::GetSendBuffer(fd(), bytes)) return bytes;
  ZEL_LOG_OPTION_ERROR("socket get send buffer error");
  return -1;
}

int32_t Socket::get_recv_buffer() {
  int32_t bytes = -1;
  if (platform::GetReceiveBuffer(fd(), bytes)) return bytes;
  ZEL_LOG_OPTION_ERROR("socket get recv buffer error");
  return -1;
}

void Socket::set_send_buffer(int32_t bytes) {
  if (platform::SetSendBuffer(fd(), bytes)) {
    ZEL_LOG(kInfo, "socket set send buffer %d byte", bytes);
  } else {
    ZEL_LOG_OPTION_ERROR("socket set send buffer error");
  }
}

void Socket::set_recv_buffer(int32_t bytes) {
  if (platform::SetReceiveBuffer(fd(), bytes)) {
    ZEL_LOG(kInfo, "socket set recv buffer %d byte", bytes);
  } else {
    ZEL_LOG_OPTION_ERROR("socket set recv buffer error");
  }
}

// ---- TcpSocket --------------------------------------------------------------------------------------------

TcpSocket::~TcpSocket() { ShutdownBothWays(link()); }

bool TcpSocket::Connect(int64_t timeoutMs) {
  if (IsCancelled()) return false;
  auto current = link();
  if (IsUp(*current)) {
    const bool isWritable = current->AwaitWritable(timeoutMs) &&
                            platform::TakePendingError(current->handle()) == 0 && current->connected();
    if (isWritable) {
      Welcome();
      return true;
    }
    if (IsUp(*current)) {  // its peer does not read
      Shutdown();
      return false;
    }
    current = link();  // it was lost at this moment
  }
  if (current->handle() == platform::kNoSocket || tried_) current = SetLink(platform::OpenStreamSocket());
  tried_ = true;
  (void)platform::SetNonBlocking(current->handle());
  if (FinishConnect(*current, timeoutMs) && MarkConnected(*current)) {
    Welcome();
    return true;
  }
  Shutdown();
  return false;
}

// A link that the peer ended while nobody looked is down as well.
bool TcpSocket::IsUp(const SocketLink& link) {
  return tried_ && link.connected() && !platform::HasPeerEnded(link.handle());
}

void TcpSocket::Welcome() {
  ZEL_LOG_AS("TcpSocket::Connect", kInfo, "TcpSocket connect Success");
  setOptions();
}

// Everything between the start of a connect and its outcome.
bool TcpSocket::FinishConnect(SocketLink& link, int64_t timeoutMs) {
  const auto start = platform::StartConnect(link.handle(), host().c_str(), port());
  if (start == platform::ConnectResult::kConnected) return false;
  int32_t error = start == platform::ConnectResult::kFailed ? platform::RuntimeError() : 0;
  if (error == 0) {
    if (!link.AwaitWritable(timeoutMs)) return false;
    error = platform::TakePendingError(link.handle());
  }
  if (error == 0) return true;
  if (link.IsCancelled()) return false;
  SetConnectError(error);
  const std::string text = platform::ErrorText(error);
  ZEL_LOG_AS("TcpSocket::Connect", kError, "TcpSocket connect failed,errno:%d,errmsg:%s", error,
             text.c_str());
  return false;
}

void TcpSocket::Shutdown() { ShutdownBothWays(DropLink()); }

void TcpSocket::setOptions() {
  Socket::setOptions();
  setLinger();
  (void)setKeepAlive();  // each failure has been logged, and none stops the connection
  setNoDealy();
}

// Abortive close: what is not sent is dropped and the peer sees a reset. Deliberate.
void TcpSocket::setLinger() {
  if (!platform::SetLinger(fd(), true, 0)) ZEL_LOG_OPTION_ERROR("socket set sock linger error");
}

void TcpSocket::SetDeadPeerTime(int64_t timeMs) {
  const int64_t earlierMs = deadPeerMs_.exchange(timeMs);
  const auto current = link();  // its handle stays its own until the end of this
  if (earlierMs == timeMs || !current->connected()) return;
  if (timeMs == 0) (void)platform::SetDeadPeerTime(current->handle(), 0);
  (void)SetKeepAlive(current->handle());
}

// A dead peer is found after 120 + 3 x 15 seconds of silence.
bool TcpSocket::setKeepAlive() { return SetKeepAlive(fd()); }

bool TcpSocket::SetKeepAlive(platform::SocketHandle handle) {
  if (!platform::SetKeepAlive(handle, true)) {
    ZEL_LOG_OPTION_ERROR("socket set sock keep alive error");
    return false;
  }
  if (const int64_t deadPeerMs = deadPeerMs_; deadPeerMs != 0) {
    if (platform::SetDeadPeerTime(handle, static_cast<int32_t>(deadPeerMs))) return true;
    ZEL_LOG_OPTION_ERROR("socket set dead peer time error");
    return false;
  }
  if (!platform::SetKeepAliveIdle(handle, 120)) {
    ZEL_LOG_OPTION_ERROR("socket set sock TCP_KEEPIDLE error");
    return false;
  }
  if (!platform::SetKeepAliveInterval(handle, 15)) {
    ZEL_LOG_OPTION_ERROR("socket set sock TCP_KEEPINTVL error");
    return false;
  }
  if (!platform::SetKeepAliveCount(handle, 3)) {
    ZEL_LOG_OPTION_ERROR("socket set sock TCP_KEEPCNT error");
    return false;
  }
  return true;
}

void TcpSocket::setNoDealy() {
  if (platform::SetNoDelay(fd(), true)) {
    ZEL_LOG(kInfo, "socket set TCP_NODELAY Success");
  } else {
    ZEL_LOG_OPTION_ERROR("socket set TCP_NODELAY error");
  }
}

// ---- UdpSocket --------------------------------------------------------------------------------------------

int32_t UdpSocket::read(uint8_t* buffer, uint32_t size, int64_t timeoutMs) {
  return std::max(readFrom(buffer, size, timeoutMs, nullptr), -1);
}

int32_t UdpSocket::readFrom(uint8_t* buffer, uint32_t size, int64_t timeoutMs, platform::Endpoint* sender) {
  // Of the whole process: each request has a socket of its own, and so nothing to learn from.
  static SpinChoice spinChoice;
  const auto current = link();
  const auto handle = current->handle();
  const bool found = spinChoice.Wait(
      timeoutMs, [&] { return platform::WaitReadable(handle, 0) == 1; },
      [&] { return current->Select(timeoutMs); });
  if (!found) return -1;
  const int64_t received = platform::ReceiveDatagram(handle, buffer, size, sender);
  if (received >= 0) return static_cast<int32_t>(received);
  const int32_t error = platform::SocketError();
  ZEL_LOG_AS("UdpSocket::read", kError, "recvfrom error:%d", error);
  return error == platform::kSocketMessageTooLong ? -2 : -1;
}

int32_t UdpSocket::write(const FrameBuffer& buffer) {
  return write(buffer.content().data(), buffer.length());
}

int32_t UdpSocket::write(const uint8_t* data, uint32_t size) {
  const int64_t sent = platform::SendDatagram(fd(), host().c_str(), port(), {data, size});
  if (sent < 0) ZEL_LOG(kError, "write frame failed with error:%d", platform::SocketError());
  return static_cast<int32_t>(sent);
}

// ---- DomainTcpSocket --------------------------------------------------------------------------------------

DomainTcpSocket::~DomainTcpSocket() { LogClose(); }

bool DomainTcpSocket::Connect(int64_t timeoutMs) {
  auto current = link();
  if (current->connected()) return true;
  if (IsCancelled()) return false;
  const auto handle = platform::OpenLocalStreamSocket();
  if (handle == platform::kNoSocket) return false;
  current = SetLink(handle);
  (void)platform::SetNonBlocking(handle);
  const auto start = platform::StartLocalConnect(handle, host().c_str());
  const bool up = start == platform::ConnectResult::kConnected ||
                  (start == platform::ConnectResult::kInProgress &&
                   platform::WaitWritable(handle, timeoutMs) == 1 && platform::TakePendingError(handle) == 0);
  if (!up) {
    Shutdown();
    return false;
  }
  current->setConnected(true);
  return true;
}

void DomainTcpSocket::Shutdown() {
  LogClose();
  ShutdownBothWays(DropLink());
}

void DomainTcpSocket::LogClose() {
  // Nothing ever names a local socket. Deliberate.
  ZEL_LOG_AS("DomainTcpSocket::Shutdown", kDebug, "close domain socket:%d,name:%s", static_cast<int>(fd()),
             "(null)");
}

}  // namespace libzel
