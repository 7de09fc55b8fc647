// How datagrams appear in the trace.
#pragma once

#include <string_view>

#include "DatagramSocket.h"
#include "Fleet.h"
#include "Trace.h"

namespace zelsim {

// event=datagram dir=in service= peer= to= ttl= size= hex=
TraceLine DescribeReceived(std::string_view service, const Datagram& datagram);

// event=datagram dir=out service= device= local= peer= size= hex=; size 0 when a fault keeps the answer back
TraceLine DescribeToSend(std::string_view service, const Device& device, const asio::ip::address_v4& source,
                         const asio::ip::udp::endpoint& to, ByteView bytes);

}  // namespace zelsim
