#include "support/ScriptedServer.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <sstream>

#ifdef _WIN32
#include <process.h>
#else
#include <unistd.h>
#endif

namespace zeltest {

namespace {

using Clock = std::chrono::steady_clock;

int RemainingMs(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::max<int64_t>(left, 0));
}

Clock::time_point After(int timeoutMs) { return Clock::now() + std::chrono::milliseconds(timeoutMs); }

// Where a server behind the lab's relay, if there is one, is called and where it is: the
// first two bytes differ.
void StandBehindRelay(ZelDeviceId& called, ZelDeviceId& own) {
  const char* relay = std::getenv("ZEL_RELAY");
  if (relay == nullptr) return;
  std::istringstream numbers(relay);
  char point = 0;
  for (ZelDeviceId* id : {&called, &own}) {
    int first = 0, second = 0;
    numbers >> first >> point >> second;
    id->bytes[0] = static_cast<uint8_t>(first);
    id->bytes[1] = static_cast<uint8_t>(second);
  }
}

}  // namespace

std::string HostOf(const ZelDeviceId& device) {
  std::string host;
  for (int i = 0; i < 4; ++i) {
    if (i != 0) host += '.';
    host += std::to_string(device.bytes[i]);
  }
  return host;
}

ZelDeviceId DeviceWithoutServer() {
  static std::atomic<unsigned> count{0};
#ifdef _WIN32
  const auto process = static_cast<unsigned>(_getpid());
#else
  const auto process = static_cast<unsigned>(getpid());
#endif
  const unsigned number = ++count;
  return {{127, static_cast<uint8_t>(process % 250 + 1),
           static_cast<uint8_t>(process / 250 % 250 + number / 250), static_cast<uint8_t>(number % 250 + 1),
           0, 1}};
}

ZelDeviceId UnreachableDevice(int number) { return {{10, 77, 0, static_cast<uint8_t>(100 + number), 0, 1}}; }
ZelDeviceId SimulatedServer() {
  ZelDeviceId device{{127, 0, 0, 1, 0, 1}};
  ZelDeviceId own = device;
  StandBehindRelay(device, own);
  return device;
}

// ---- Peer -------------------------------------------------------------------------------------------------

Bytes Peer::Read(size_t size, int timeoutMs) {
  const auto deadline = After(timeoutMs);
  Bytes bytes(size);
  size_t got = 0;
  while (IsOpen() && got < size && socket_.WaitReadable(RemainingMs(deadline))) {
    const int received =
        socket_.Receive(bytes.data() + got, static_cast<int>(std::min<size_t>(size - got, 1 << 20)));
    if (received <= 0) break;
    got += static_cast<size_t>(received);
  }
  bytes.resize(got);
  return bytes;
}

Request Peer::ReadRequest(int timeoutMs) {
  Request request;
  const Bytes header = Read(8, timeoutMs);
  if (header.size() != 8) return request;
  const size_t bodySize = ReadLe(header, 4, 4);
  const Bytes body = Read(bodySize, timeoutMs);
  if (body.size() != bodySize || bodySize < 21) return request;
  request.whole = true;
  request.version = header[1];
  request.port = static_cast<uint16_t>(ReadLe(header, 2, 2));
  request.error = static_cast<uint32_t>(ReadBe(body, 0, 4));
  request.invokeId = static_cast<uint32_t>(ReadBe(body, 4, 4));
  request.command = static_cast<uint16_t>(ReadBe(body, 8, 2));
  request.idGroup = static_cast<uint32_t>(ReadBe(body, 13, 4));
  request.idOffset = static_cast<uint32_t>(ReadBe(body, 17, 4));
  request.payload.assign(body.begin() + 21, body.end());
  return request;
}

Request Peer::Serve(const Bytes& payload, uint32_t error) {
  Request request = ReadRequest();
  if (request.whole) request.whole = Send(Answer(request.port, request.invokeId, payload, error));
  return request;
}

std::optional<int> Peer::EndOfStream(int timeoutMs) {
  const auto deadline = After(timeoutMs);
  Bytes ignored(65536);
  while (socket_.WaitReadable(RemainingMs(deadline))) {
    const int received = socket_.Receive(ignored.data(), static_cast<int>(ignored.size()));
    if (received <= 0) return received;
  }
  return std::nullopt;
}

bool Peer::AwaitEnd(int timeoutMs) { return EndOfStream(timeoutMs).has_value(); }

bool Peer::AwaitReset(int timeoutMs) {
  const auto deadline = After(timeoutMs);
  // A close that lets the last bytes through first shows its end, and then the reset to one who still sends.
  while (RemainingMs(deadline) > 0) {
    if (EndOfStream(RemainingMs(deadline)).value_or(0) < 0 || !Send({0})) return true;
  }
  return false;
}

// ---- ScriptedServer ---------------------------------------------------------------------------------------

ScriptedServer::ScriptedServer() : device_(DeviceWithoutServer()) {
  // The second byte is the process's, which a relay's addresses have no room for there.
  if (std::getenv("ZEL_RELAY") != nullptr) device_.bytes[2] = device_.bytes[1];
  ZelDeviceId own = device_;
  StandBehindRelay(device_, own);
  host_ = HostOf(device_);
  listenHost_ = HostOf(own);
  Listen();
}

Peer ScriptedServer::Accept(int timeoutMs) {
  TestSocket socket = listener_.Accept(timeoutMs);
  if (socket.IsOpen()) socket.SetNoDelay();
  return Peer(std::move(socket));
}

void ScriptedServer::Listen() { listener_ = TestSocket::Listen(listenHost_, kPort, 256); }

// A queue that nobody takes connections from, filled up: the system drops the next caller's attempts.
void ScriptedServer::Stall() {
  listener_.Close();
  listener_ = TestSocket::Listen(listenHost_, kPort, 1);
  for (int i = 0; i < 8; ++i) {
    TestSocket filler = TestSocket::Connect(listenHost_, kPort, 200);
    if (!filler.IsOpen()) return;
    fillers_.push_back(std::move(filler));
  }
}

}  // namespace zeltest
