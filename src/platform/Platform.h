// The whole contract with the operating system. Everything above this header is the same code on both systems; the
// two folders beside it implement it, one topic per file, under the same names.
//
// No function here logs, throws or allocates unless it says so. A function that fails leaves its reason in
// SocketError() and RuntimeError() of the calling thread until that thread's next call into this header.
// All functions may be called from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <vector>

namespace libzel::platform {

// ---- Errors (Errors.cpp) ----------------------------------------------------------------------------------

// The socket layer's numbers, the same on both systems.
inline constexpr int32_t kSocketInterrupted = 10004;
inline constexpr int32_t kSocketWouldBlock = 10035;
inline constexpr int32_t kSocketNotASocket = 10038;
inline constexpr int32_t kSocketMessageTooLong = 10040;
inline constexpr int32_t kSocketAborted = 10053;
inline constexpr int32_t kSocketReset = 10054;
inline constexpr int32_t kSocketNotConnected = 10057;
inline constexpr int32_t kSocketShutDown = 10058;

// The runtime's numbers that the write path tells apart.
inline constexpr int32_t kRuntimeInterrupted = 4;
inline constexpr int32_t kRuntimeTryAgain = 11;
inline constexpr int32_t kRuntimeBrokenPipe = 32;

// The calling thread's last socket error in the numbering above; another error keeps the system's own number.
int32_t SocketError();
// The same in the system's own numbers, and the same again after other calls.
int32_t SystemError();
void SetSystemError(int32_t error);

// The same error in the runtime's numbering (4 interrupted, 11 try again, 32 broken pipe, else the system's number).
int32_t RuntimeError();

// True when the calling thread's last socket call failed because no route leads to where it was to go.
bool IsRouteMissing();

// The runtime's text for a runtime number, its generic unknown-error text where it has none. Allocates.
std::string ErrorText(int32_t runtimeError);

// Why a connection failed, in a word or two: "refused", "no route", "timed out", "reset", else the runtime's text.
// Allocates.
std::string ReasonText(int32_t runtimeError);

// ---- Sockets (Sockets.cpp) --------------------------------------------------------------------------------

using SocketHandle = std::intptr_t;
inline constexpr SocketHandle kNoSocket = -1;

// One run of bytes of a gathered send.
using ConstBytes = std::span<const uint8_t>;

// An IPv4 end point; the address is dotted text, the port in host order.
struct Endpoint {
  std::string host;
  uint16_t port = 0;
};

// Starts the system's socket library; 0 or its error. Every successful start wants one StopSockets.
int32_t StartSockets();
void StopSockets();

// A new IPv4 socket, blocking and not inherited by child processes, or kNoSocket. The caller owns it. It is never one of
// the descriptors 0 to 2, also when the process has closed these: what is written to a standard stream must not get
// into it.
SocketHandle OpenStreamSocket();
SocketHandle OpenDatagramSocket();
// A local (file system) stream socket; kNoSocket where the system has none.
SocketHandle OpenLocalStreamSocket();
void CloseSocket(SocketHandle socket);
// Ends both directions and so wakes every thread that waits on the socket.
void ShutdownSocket(SocketHandle socket);
bool SetNonBlocking(SocketHandle socket);

enum class ConnectResult { kConnected, kInProgress, kFailed };
// Starts a connect on a non-blocking socket. `host` is converted as inet_addr does. A socket that is connected
// already counts as in progress.
ConnectResult StartConnect(SocketHandle socket, const char* host, uint16_t port);
ConnectResult StartLocalConnect(SocketHandle socket, const char* path);
// Takes the pending error off the socket; 0 when there is none. The number is the runtime's.
int32_t TakePendingError(SocketHandle socket);

// Wakes waiting threads from another one; empty (IsOpen false) where the system could not make one.
class Waker {
 public:
  Waker() = default;
  ~Waker();
  Waker(const Waker&) = delete;
  Waker& operator=(const Waker&) = delete;

  // Makes the waker usable; again once open does nothing. Not safe against a concurrent Open.
  bool Open();
  bool IsOpen() const { return handle_ != kNoSocket; }
  // Ends every wait that is given this waker, the present and the later ones, until it is drained.
  void Wake();
  // Forgets wakes that no wait has taken.
  void Drain();
  SocketHandle handle() const { return handle_; }

 private:
  SocketHandle handle_ = kNoSocket;
};

// Wait until the socket can be read (hang-up and error count as readable) or written. Time-outs are in ms; negative
// ones are 0; interrupted waits go on with the time that remains. Give 1 ready, 0 time-out or woken, -1 error. An
// invalid handle fails with kSocketNotASocket. A waker may end many waits at once; it may be null or not open.
int WaitReadable(SocketHandle socket, int64_t timeoutMs, const Waker* waker = nullptr);
int WaitWritable(SocketHandle socket, int64_t timeoutMs, const Waker* waker = nullptr);

// The most sockets that WaitReadableSet watches at once.
inline constexpr size_t kMaxWatched = 64;
// Waits until one of the sockets can be read and sets the flag of each that can. Result as WaitReadable, but the count
// of readable sockets; one invalid handle fails the whole wait. `ready` has as many elements as `sockets`.
int WaitReadableSet(std::span<const SocketHandle> sockets, std::span<bool> ready, int64_t timeoutMs);

// One receive or one gathered send, never blocking longer than the socket's mode says, never raising a signal.
// Give the bytes moved, 0 when the peer closed (Receive), or -1.
int64_t Receive(SocketHandle socket, uint8_t* buffer, size_t size);
// True when the peer of a connected, non-blocking socket has closed or reset it and nothing is left to be received.
bool HasPeerEnded(SocketHandle socket);
inline constexpr size_t kMaxPieces = 4;
int64_t Send(SocketHandle socket, std::span<const ConstBytes> pieces);

// Bytes written that the peer's system has not acknowledged; -1 where the system cannot tell.
int64_t UnsentBytes(SocketHandle socket);
// Nothing more will be written. Where the system cannot tell of unsent bytes, the peer is told so: by its own end it then
// shows that it has got everything.
void FinishSending(SocketHandle socket);
// Whether it has, after that. Where the peer's end shows it, what the peer still sends has to be received.
bool HasDelivered(SocketHandle socket);

// The dotted text of the address that `host` stands for, as StartConnect takes it. Allocates.
std::string HostText(const char* host);

// One datagram. A datagram longer than the buffer is a failed receive (kSocketMessageTooLong) on both systems.
// `sender` may be null.
int64_t ReceiveDatagram(SocketHandle socket, uint8_t* buffer, size_t size, Endpoint* sender);
int64_t SendDatagram(SocketHandle socket, const char* host, uint16_t port, ConstBytes datagram);

bool Bind(SocketHandle socket, const char* ip, uint16_t port);

// ---- Socket options (SocketOptions.cpp): true on success --------------------------------------------------

bool GetSendBuffer(SocketHandle socket, int32_t& bytes);
bool GetReceiveBuffer(SocketHandle socket, int32_t& bytes);
bool SetSendBuffer(SocketHandle socket, int32_t bytes);
bool SetReceiveBuffer(SocketHandle socket, int32_t bytes);
// Raises the receive buffer as far as the system lets this process, whatever that is.
void RaiseReceiveBuffer(SocketHandle socket, int32_t bytes);
bool SetLinger(SocketHandle socket, bool on, uint16_t seconds);
bool SetKeepAlive(SocketHandle socket, bool on);
bool SetKeepAliveIdle(SocketHandle socket, int32_t seconds);
bool SetKeepAliveInterval(SocketHandle socket, int32_t seconds);
bool SetKeepAliveCount(SocketHandle socket, int32_t probes);
// With keep-alive on: the link ends when the peer's system has been silent for about so long, though it was asked, or
// though data are under way; 0 gives the data as long as the system does. No system is quicker than about 2 s.
bool SetDeadPeerTime(SocketHandle socket, int32_t timeMs);
bool SetNoDelay(SocketHandle socket, bool on);
bool SetReuseAddress(SocketHandle socket, bool on);
bool SetBroadcast(SocketHandle socket, bool on);
bool SetMulticastTtl(SocketHandle socket, int32_t hops);
bool SetMulticastLoop(SocketHandle socket, bool on);
// Multicasts leave from the interface with this address.
bool SetMulticastInterface(SocketHandle socket, const char* interfaceIp);
// On an interface, or on the one that the system's routes name: 0.0.0.0.
bool JoinMulticastGroup(SocketHandle socket, const char* group, const char* interfaceIp);

// ---- Threads (Threads.cpp) --------------------------------------------------------------------------------

// For as long as it lives, the calling thread takes no signal but those that a fault of its own raises. A thread that
// is made meanwhile never does: where there are signals, they are for the host's own threads.
class AsyncSignalBlock {
 public:
  AsyncSignalBlock();
  // NOLINTNEXTLINE(performance-trivially-destructible): where there are signals it gives them back
  ~AsyncSignalBlock();
  AsyncSignalBlock(const AsyncSignalBlock&) = delete;
  AsyncSignalBlock& operator=(const AsyncSignalBlock&) = delete;

 private:
  alignas(uint64_t) unsigned char earlier_[128];
};

// Names the calling thread for debuggers and the system's tools: at most 15 characters.
void NameThread(const char* name);

// ---- Process and thread (Process.cpp) ---------------------------------------------------------------------

// The system's number of the calling thread, read once per thread.
uint32_t ThreadId();
// Cores that this process may run on, at least 1.
uint32_t CoreCount();
// Puts the bytes into the runtime's standard output in one piece, without a flush. A failure is nobody's to handle.
void WriteStandardOutput(const char* text, size_t size);
// Keeps the library in the process until the process ends: its threads may outlive an unload.
void KeepLoaded();
// Has the first function called before every fork of this process, on the forking thread, and the others behind it, there
// and in the child. Does nothing where there is no fork.
void WatchForks(void (*before)(), void (*inParent)(), void (*inChild)());

// ---- Files (Files.cpp) ------------------------------------------------------------------------------------

struct FileInfo {
  bool exists = false;
  bool isRegular = false;
  bool isDirectory = false;
  int64_t size = 0;
};

// What stands at a path, links followed. A path where nothing can be found leaves its reason in errno.
FileInfo GetFileInfo(const char* path);

enum class FileKind { kBinary, kText };
// Opens a file for reading: its stream, which the caller closes with fclose, or null with the reason in errno. The file is
// not inherited by child processes and never one of the descriptors 0 to 2. kText has line ends as the system wants them.
std::FILE* OpenForReading(const char* path, FileKind kind);

// A file that is open for reading.
using FileHandle = std::intptr_t;
inline constexpr FileHandle kNoFile = -1;

// Opens whatever stands at a UTF-8 path, links followed, and waits for nobody, as the other end of a pipe would want:
// kNoFile with the reason in errno. The caller closes the handle, which child processes do not inherit and which is none
// of the descriptors 0 to 2.
FileHandle OpenUtf8Path(const char* path);
void CloseFile(FileHandle file);
// What is open.
FileInfo GetOpenFileInfo(FileHandle file);
// Reads from an offset: the bytes that were read, which are fewer only at the end of the file, or as many as there were
// before one that cannot be read; -1 with the reason in errno when that is the first.
int64_t ReadFileAt(FileHandle file, uint64_t offset, std::span<uint8_t> buffer);

// ---- Network adapters (Adapters.cpp) ----------------------------------------------------------------------

struct Adapter {
  uint32_t type = 0;
  std::vector<uint8_t> hardwareAddress;
  std::string name;
  std::string ip;
};

// The adapters that have an IPv4 address, in the system's order; empty when the system cannot tell. Allocates.
std::vector<Adapter> ListAdapters();

}  // namespace libzel::platform
