#include "zelclient/UdpRequest.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>

#include "utils/Log.h"
#include "utils/Options.h"
#include "utils/Stopwatch.h"
#include "zelcomm/ErrorCode.h"
#include "zelcomm/Socket.h"

namespace libzel {

namespace {

constexpr uint16_t kDirectPort = 38898;
constexpr size_t kReceiveBufferSize = 4096;

std::atomic<uint32_t> g_nextInvokeId{0};

FrameBuffer BuildFrame(const UdpRequest& request, uint32_t invokeId) {
  const auto payloadSize = static_cast<uint32_t>(request.payload.size());
  FrameBuffer frame(payloadSize + static_cast<uint32_t>(kRequestOverhead));
  if (payloadSize != 0) frame.prepend(request.payload.data(), payloadSize);
  std::array<uint8_t, kAddressBlockSize> address;
  request.address.Write(address.data());
  frame.prepend(address.data(), address.size());
  std::array<uint8_t, kZoeHeaderSize> zoe;
  ZoeHeader{0, invokeId, request.cmdId}.Write(zoe.data());
  frame.prepend(zoe.data(), zoe.size());
  std::array<uint8_t, kZelHeaderSize> header;
  ZelHeader{0, kVersionZoe, request.port, frame.length()}.Write(header.data());
  frame.prepend(header.data(), header.size());
  return frame;
}

// One datagram, by the letter whoever sent it: its size, or less than 0.
int32_t Receive(UdpSocket& socket, std::span<uint8_t> buffer, int32_t timeoutMs) {
  const auto room = static_cast<uint32_t>(buffer.size());
  if (OptionsOfProcess().checkSender == 0) return socket.read(buffer.data(), room, timeoutMs);
  const std::string asked = platform::HostText(socket.host().c_str());
  const Stopwatch watch;
  platform::Endpoint sender;
  for (;;) {
    const auto leftMs = timeoutMs - static_cast<int64_t>(watch.ElapsedMs());
    const int32_t size = leftMs < 0 ? -1 : socket.readFrom(buffer.data(), room, leftMs, &sender);
    if (size == -1 || (size >= 0 && sender.host == asked)) return size;
  }
}

uint32_t Fail(int32_t code) {
  SetErrno(code);
  return static_cast<uint32_t>(code);
}

}  // namespace

uint32_t UdpSendRecv(const char* host, const UdpRequest& request, std::span<uint8_t> answer,
                     int32_t timeoutMs) {
  const uint32_t invokeId = g_nextInvokeId.fetch_add(1);
  UdpSocket socket(host, kDirectPort, Socket::kDatagram, false);
  if (socket.write(BuildFrame(request, invokeId)) < 0) return Fail(ZEL_E_SEND);
  std::array<uint8_t, kReceiveBufferSize> buffer{};
  const int32_t size = Receive(socket, buffer, timeoutMs);
  if (size < 0) return Fail(ZEL_E_TIMEOUT);
  return ReadUdpAnswer(std::span(buffer).first(static_cast<size_t>(size)), request, invokeId, answer);
}

uint32_t ReadUdpAnswer(std::span<const uint8_t> datagram, const UdpRequest& request, uint32_t invokeId,
                       std::span<uint8_t> answer) {
  std::array<uint8_t, kZelHeaderSize> header{};
  std::copy_n(datagram.begin(), std::min(datagram.size(), header.size()), header.begin());
  const uint32_t length = ZelHeader::Read(header.data()).nMsgLen;
  if (datagram.size() < header.size() || length != datagram.size() - header.size()) {
    // The text ends after "!=": the value it was compared with is not printed. Deliberate.
    ZEL_LOG_AS("UdpSendRecv", kError, "zelHeader len:%d !=", static_cast<int>(length));
    return ZEL_E_LENGTH;
  }
  const auto body = datagram.subspan(kZelHeaderSize);
  const auto zoe = ZoeHeader::Read(body);
  if (!zoe) return ZEL_E_TOO_SHORT;
  if (zoe->error != 0) {
    ZEL_LOG_AS("UdpSendRecv", kError, "CmdId:%d fail result:0x%x,reqInvokeId:%d,resInvokeId:%d",
               request.cmdId, zoe->error, static_cast<int>(invokeId), static_cast<int>(zoe->invokeId));
    return zoe->error;
  }
  const auto payload = body.subspan(kZoeHeaderSize);
  std::copy_n(payload.begin(), std::min(payload.size(), answer.size()), answer.begin());
  if (zoe->invokeId != invokeId) return ZEL_E_INVOKE_ID;
  // The line has always been one value out of step: the group stands after "CmdId:", the offset after "IdGroup:".
  ZEL_LOG_AS("UdpSendRecv", kDebug, "CmdId:%d success,IdGroup:%x,IdOffset:%x",
             static_cast<int>(request.address.IdGroup), request.address.IdOffset, request.address.IdOffset);
  return ZEL_OK;
}

}  // namespace libzel
