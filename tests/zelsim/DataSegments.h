// What the system counted for a TCP socket.
#pragma once

#include <cstddef>

namespace zelsim::test {

// How many segments with data have arrived.
size_t DataSegments(int socket);

}  // namespace zelsim::test
