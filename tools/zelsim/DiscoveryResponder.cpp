#include "DiscoveryResponder.h"

#include <ctime>

#include "DatagramTrace.h"

namespace zelsim {
namespace {

using asio::ip::address_v4;
using asio::ip::udp;

constexpr uint16_t kMulticastPort = 38897;
constexpr uint16_t kBroadcastPort = 38896;

address_v4 Group() { return address_v4({239, 255, 0, 3}); }

// Why a datagram is not answered; empty when it is.
std::string_view Refusal(ByteView bytes) {
  const auto header = ReadScanHeader(bytes);
  if (!header || bytes.size() != kScanHeaderSize) return "length";
  if (header->reserved != 0) return "reserved";
  return header->type == kScanMulticastRequest || header->type == kScanBroadcastRequest ? "" : "type";
}

void DescribeScan(TraceLine& line, ByteView bytes) {
  const auto header = ReadScanHeader(bytes);
  if (!header) return;
  line.Number("type", unsigned{header->type}).Number("reserved", header->reserved);
  line.Number("timestamp", header->timestamp);
}

}  // namespace

DiscoveryResponder::DiscoveryResponder(asio::io_context& loop, const Settings& settings, Trace& trace)
    : loop_(loop), settings_(settings), trace_(trace), group_(loop), broadcast_(loop) {}

std::string DiscoveryResponder::Open(const std::vector<address_v4>& interfaces) {
  std::string problem = OpenGroup(interfaces);
  if (!problem.empty()) return problem;
  problem = broadcast_.Open({address_v4::any(), kBroadcastPort}, DatagramSocket::Sharing::kShared);
  if (!problem.empty()) return "cannot listen for broadcasts: " + problem;
  group_.Receive([this](const Datagram& datagram) { OnDatagram(datagram); });
  broadcast_.Receive([this](const Datagram& datagram) { OnDatagram(datagram); });
  return {};
}

// Bound to the group itself: a client on this host that is bound to the same port still gets the datagrams
// that are sent to the host, answers among them.
std::string DiscoveryResponder::OpenGroup(const std::vector<address_v4>& interfaces) {
  std::string problem = group_.Open({Group(), kMulticastPort}, DatagramSocket::Sharing::kShared);
  if (!problem.empty()) return "cannot listen for multicasts: " + problem;
  size_t joined = 0;
  for (const address_v4& interface : interfaces.empty() ? InterfaceAddresses() : interfaces) {
    problem = group_.Join(Group(), interface);
    if (problem.empty()) ++joined;
    if (!problem.empty() && !interfaces.empty())
      return "cannot join on " + interface.to_string() + ": " + problem;
  }
  return joined == 0 ? "cannot join the group on any interface" : "";
}

void DiscoveryResponder::Close() {
  group_.Close();
  broadcast_.Close();
  for (const auto& round : rounds_) round->timer.cancel();
  rounds_.clear();
}

void DiscoveryResponder::OnDatagram(const Datagram& datagram) {
  const std::string_view refusal = Refusal(datagram.bytes);
  if (trace_.On()) {
    TraceLine line = DescribeReceived("scan", datagram);
    DescribeScan(line, datagram.bytes);
    if (!refusal.empty()) line.Text("dropped", refusal);
    trace_.Write(line);
  }
  if (!refusal.empty()) return;
  const bool multicast = datagram.bytes[0] == kScanMulticastRequest;
  StartRound(datagram, multicast ? datagram.from : udp::endpoint(datagram.from.address(), kMulticastPort));
}

void DiscoveryResponder::StartRound(const Datagram& datagram, const udp::endpoint& to) {
  const auto round = std::make_shared<Round>(Round{.to = to,
                                                   .local = datagram.local,
                                                   .start = std::chrono::steady_clock::now(),
                                                   .timer = asio::steady_timer(loop_)});
  rounds_.insert(round);
  Continue(round);
}

std::chrono::steady_clock::time_point DiscoveryResponder::DueTime(const Round& round) const {
  const auto spread = std::chrono::duration_cast<std::chrono::nanoseconds>(settings_.answerSpread);
  const auto devices = static_cast<int64_t>(settings_.fleet.Devices().size());
  return round.start + spread * static_cast<int64_t>(round.next) / devices;
}

void DiscoveryResponder::Continue(const std::shared_ptr<Round>& round) {
  auto& devices = settings_.fleet.Devices();
  const auto now = std::chrono::steady_clock::now();
  while (round->next < devices.size() && DueTime(*round) <= now) Answer(*round, devices[round->next++]);
  if (round->next == devices.size()) {
    rounds_.erase(round);
    return;
  }
  round->timer.expires_at(DueTime(*round));
  round->timer.async_wait([this, round](const asio::error_code& error) {
    if (!error) Continue(round);
  });
}

void DiscoveryResponder::Answer(const Round& round, Device& device) {
  const address_v4 source = device.address.is_unspecified() ? round.local : device.address;
  const FaultPlan plan(settings_.faults, source.to_string(), 0);
  const auto now = static_cast<uint32_t>(std::time(nullptr));
  const ScanAnswer answer =
      BuildScanAnswer(plan, ++device.scans, Describe(settings_.description, device, source), now);
  if (trace_.On()) {
    TraceLine line = DescribeToSend("scan", device, source, round.to, answer.bytes);
    DescribeScan(line, answer.bytes);
    trace_.Write(line.Text("faults", answer.faults));
  }
  if (!answer.bytes.empty()) group_.Send(answer.bytes, round.to, source);
}

}  // namespace zelsim
