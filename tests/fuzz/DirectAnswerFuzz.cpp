// Any bytes as the answer to a direct request, into answer buffers of several sizes: a code, and nothing
// written behind the buffer's end.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "utils/Log.h"
#include "zelclient/UdpRequest.h"

namespace {

constexpr uint32_t kInvokeId = 7;

void Check(std::span<const uint8_t> datagram, size_t answerSize) {
  // On the heap and of exactly this size, so that the sanitizer sees a byte too many.
  std::vector<uint8_t> answer(answerSize, 0xEE);
  const libzel::UdpRequest request{101, 1, {0x1000, 0x1001}, {}};
  const uint32_t result = libzel::ReadUdpAnswer(datagram, request, kInvokeId, answer);
  if (result != 0) return;
  const auto payload = datagram.subspan(libzel::kZelHeaderSize + libzel::kZoeHeaderSize);
  const size_t copied = std::min(payload.size(), answerSize);
  if (!std::equal(answer.begin(), answer.begin() + static_cast<ptrdiff_t>(copied), payload.begin()))
    std::abort();
  if (copied < answerSize && answer[copied] != 0xEE) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  libzel::SetLogLevel(INT32_MAX);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  for (const size_t answerSize : {0U, 6U, 1024U}) Check({data, size}, answerSize);
  return 0;
}
