// The sockets that everything above uses: TcpSocket to a server, UdpSocket for direct requests, DomainTcpSocket for a
// server's local path. Failures are logged and reported as plain results; nothing is thrown.
//
// A socket object can be connected again any number of times; each time it works on a fresh link. All members may be
// called from any thread, but only one thread at a time connects.
//
// Time-outs are in ms; negative ones are 0.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "utils/Mutex.h"
#include "zelcomm/FrameBuffer.h"
#include "zelcomm/SocketLink.h"

namespace libzel {

class Socket {
 public:
  static constexpr int32_t kStream = 1;
  static constexpr int32_t kDatagram = 2;

  // `host` is dotted IPv4 text (or a local path), `port` in host order. The object exists even when the system gives
  // no handle; that is logged.
  Socket(const char* host, uint16_t port, int32_t type, bool isDomain);
  virtual ~Socket() = default;
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  virtual bool Connect(int64_t timeoutMs) = 0;
  virtual void Shutdown() = 0;
  virtual void setOptions();
  virtual void setConnected(bool connected) { link()->setConnected(connected); }
  virtual bool isConnected() { return link()->connected(); }
  virtual uint32_t readn(uint8_t* buffer, uint32_t size, int64_t timeoutMs);
  virtual int32_t readFull(uint8_t* buffer, int32_t size);
  // Reads the buffer's capacity into its block.
  virtual uint32_t readn(FrameBuffer& buffer, int64_t timeoutMs);
  // The time-out is accepted and ignored: a peer that does not read is waited for. Deliberate.
  virtual int32_t write(const uint8_t* data, uint32_t size, int64_t timeoutMs);
  // A content of more than 10485760 bytes is refused with a result of 0.
  virtual int32_t write(const FrameBuffer& buffer, int64_t timeoutMs);
  bool Select(int64_t timeoutMs) { return link()->Select(timeoutMs); }

  // How long a peer may be gone before that is noticed, in ms, of the present link and those to come; 0: as the
  // keep-alive probes find out. Does nothing where there are none.
  virtual void SetDeadPeerTime(int64_t /*timeMs*/) {}

  // Why the last connect failed: the runtime's number, 0 when its time was over.
  int32_t connectError() const { return connectError_; }

  // The present link; never null. It stays usable after the socket went on to another.
  std::shared_ptr<SocketLink> link();
  // Shuts down if `link` is still the present one: a thread that finds an old link dead must not end its successor.
  void ShutdownLink(const SocketLink& link);

  // Of a stream socket: ends the link and every wait on it for good. Whatever is under way fails soon, nothing can be
  // connected again, and no error of that is logged.
  void Cancel();
  bool IsCancelled() const { return token_->IsCancelled(); }

  platform::SocketHandle fd() { return link()->handle(); }
  std::string host();
  // For the connects to come.
  void SetHost(const std::string& host);
  uint16_t port() const { return port_; }

 protected:
  // Replaces the present link; its handle is closed when the last thread lets go of it.
  std::shared_ptr<SocketLink> SetLink(platform::SocketHandle handle);
  // Puts the link up, unless another thread has dropped it meanwhile: then false.
  bool MarkConnected(SocketLink& link);
  // Lets go of the present link, if it is `expected` (or whichever it is, for null), and gives it.
  std::shared_ptr<SocketLink> DropLink(const SocketLink* expected = nullptr);
  void ShutdownBothWays(const std::shared_ptr<SocketLink>& link);

  void SetConnectError(int32_t error) { connectError_ = error; }

  int32_t get_send_buffer();
  int32_t get_recv_buffer();
  void set_send_buffer(int32_t bytes);
  void set_recv_buffer(int32_t bytes);

 private:
  const uint16_t port_;
  const std::shared_ptr<CancelToken> token_;  // null for datagrams
  std::atomic<int32_t> connectError_{0};
  Mutex linkMutex_;
  std::string host_ ZEL_GUARDED_BY(linkMutex_);
  std::shared_ptr<SocketLink> link_ ZEL_GUARDED_BY(linkMutex_);
};

class TcpSocket : public Socket {
 public:
  using Socket::Socket;
  ~TcpSocket() override;

  // A non-blocking connect with a time-out, after which the socket stays non-blocking. An immediate success counts as
  // a failure. Deliberate. A handle whose link is up counts as connecting; one whose link went down is replaced first.
  bool Connect(int64_t timeoutMs) override;
  void Shutdown() override;
  void setOptions() override;
  void SetDeadPeerTime(int64_t timeMs) override;

 private:
  bool IsUp(const SocketLink& link);
  bool FinishConnect(SocketLink& link, int64_t timeoutMs);
  void Welcome();
  void setLinger();
  bool setKeepAlive();
  bool SetKeepAlive(platform::SocketHandle handle);
  void setNoDealy();

  std::atomic<int64_t> deadPeerMs_{0};
  bool tried_ = false;  // the present handle has been through a connect
};

// Datagrams to host:port. The handle is closed by Shutdown or, at the latest, with the object.
class UdpSocket : public Socket {
 public:
  using Socket::Socket;

  bool Connect(int64_t /*timeoutMs*/) override { return true; }
  void Shutdown() override { (void)DropLink(); }

  // One datagram within the time-out: its size, or -1 (a time-out too).
  virtual int32_t read(uint8_t* buffer, uint32_t size, int64_t timeoutMs);
  // The same, and where it came from; -2 for one that is longer than the buffer.
  int32_t readFrom(uint8_t* buffer, uint32_t size, int64_t timeoutMs, platform::Endpoint* sender);
  using Socket::write;
  virtual int32_t write(const FrameBuffer& buffer);
  // One datagram: the bytes sent, or -1.
  virtual int32_t write(const uint8_t* data, uint32_t size);
};

// A server's local stream socket. It connects where the system has such sockets; elsewhere it has no handle and
// Connect reports the connected flag.
class DomainTcpSocket : public Socket {
 public:
  using Socket::Socket;
  ~DomainTcpSocket() override;

  bool Connect(int64_t timeoutMs) override;
  void Shutdown() override;

 private:
  void LogClose();
};

}  // namespace libzel
