#include "DirectResponder.h"

#include <memory>

#include "DatagramTrace.h"
#include "FrameTrace.h"

namespace zelsim {

using asio::ip::address_v4;

DirectResponder::DirectResponder(asio::io_context& loop, Fleet& fleet, const std::vector<Fault>& faults,
                                 Trace& trace)
    : loop_(loop), fleet_(fleet), faults_(faults), trace_(trace) {}

std::string DirectResponder::Open() {
  bool shared = false;
  for (const Device& device : fleet_.Devices()) {
    if (!device.ownSocket && shared) continue;
    shared = shared || !device.ownSocket;
    std::string problem = OpenSocket(device.ownSocket ? device.address : address_v4::any());
    if (!problem.empty()) return problem;
  }
  return {};
}

std::string DirectResponder::OpenSocket(const address_v4& address) {
  DatagramSocket& socket = sockets_.emplace_back(loop_);
  std::string problem = socket.Open({address, kDirectPort}, DatagramSocket::Sharing::kExclusive);
  if (!problem.empty()) return "cannot take direct requests on " + address.to_string() + ": " + problem;
  socket.Receive([this, &socket](const Datagram& datagram) { OnDatagram(socket, datagram); });
  return {};
}

void DirectResponder::Close() {
  closed_ = true;
  for (DatagramSocket& socket : sockets_) socket.Close();
}

void DirectResponder::OnDatagram(DatagramSocket& socket, const Datagram& datagram) {
  Device* device = fleet_.At(datagram.local);
  const auto request = ReadDirectRequest(datagram.bytes);
  if (trace_.On()) {
    TraceLine line = DescribeReceived("direct", datagram);
    if (device != nullptr) line.Text("device", ToText(device->id));
    if (request) DescribeRequest(line, *request);
    if (!request || device == nullptr) line.Text("dropped", request ? "address" : "frame");
    trace_.Write(line);
  }
  if (request && device != nullptr) Answer(socket, datagram, *request, *device);
}

void DirectResponder::Answer(DatagramSocket& socket, const Datagram& datagram, const Request& request,
                             Device& device) {
  ++device.requests;
  const FaultPlan plan(faults_, datagram.local.to_string(), 0);
  DirectAnswer answer = AnswerDirectRequest(plan, request, device);
  if (trace_.On()) {
    TraceLine line = DescribeToSend("direct", device, datagram.local, datagram.from, answer.bytes);
    if (!answer.bytes.empty()) DescribeSent(line, answer.bytes);
    trace_.Write(line.Number("delay", answer.delayMs).Text("faults", answer.faults));
  }
  if (answer.bytes.empty()) return;
  if (answer.delayMs > 0) return SendLater(socket, datagram, std::move(answer));
  socket.Send(answer.bytes, datagram.from, datagram.local);
}

void DirectResponder::SendLater(DatagramSocket& socket, const Datagram& datagram, DirectAnswer answer) {
  auto timer = std::make_shared<asio::steady_timer>(loop_, std::chrono::milliseconds(answer.delayMs));
  timer->async_wait([this, timer, &socket, to = datagram.from, source = datagram.local,
                     bytes = std::move(answer.bytes)](const asio::error_code& error) {
    if (!error && !closed_) socket.Send(bytes, to, source);
  });
}

}  // namespace zelsim
