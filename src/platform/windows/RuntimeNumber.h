// Socket errors in the runtime's numbering. The runtime's own errno knows nothing of Winsock and is never
// asked.
#pragma once

#include <cstdint>

namespace libzel::platform {

// 4 interrupted, 11 would block, 32 shut down, 9 no socket; any other number stays.
int32_t RuntimeNumber(int socketError);

}  // namespace libzel::platform
