#include "DatagramTrace.h"

#include "Text.h"

namespace zelsim {

TraceLine DescribeReceived(std::string_view service, const Datagram& datagram) {
  TraceLine line("datagram");
  line.Text("dir", "in").Text("service", service).Text("peer", EndpointText(datagram.from));
  line.Text("to", EndpointText(datagram.to)).Number("ttl", datagram.ttl);
  line.Number("size", datagram.bytes.size()).Text("hex", ToHex(datagram.bytes));
  return line;
}

TraceLine DescribeToSend(std::string_view service, const Device& device, const asio::ip::address_v4& source,
                         const asio::ip::udp::endpoint& to, ByteView bytes) {
  TraceLine line("datagram");
  line.Text("dir", "out").Text("service", service).Text("device", ToText(device.id));
  line.Text("local", source.to_string()).Text("peer", EndpointText(to));
  line.Number("size", bytes.size()).Text("hex", ToHex(bytes));
  return line;
}

}  // namespace zelsim
