#include "DataSegments.h"

#include <gtest/gtest.h>
// The kernel's own header, because the runtime's lacks the count; the two do not go together in one file.
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace zelsim::test {

size_t DataSegments(int socket) {
  tcp_info info{};
  socklen_t size = sizeof info;
  EXPECT_EQ(getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size), 0);
  return info.tcpi_data_segs_in;
}

}  // namespace zelsim::test
