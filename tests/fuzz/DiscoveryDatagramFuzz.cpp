// Any bytes as a datagram on the discovery port: dropped, a fault of its document, or a record with whole
// texts.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <stdexcept>
#include <string>

#include "zelclient/ScanMessage.h"

namespace {

constexpr const char* kSender = "10.77.0.2";

// A text, its NUL, and nothing but NULs behind it.
template <size_t N>
void RequireText(const char (&field)[N]) {
  const size_t length = strnlen(field, N);
  if (length == N) std::abort();
  for (size_t i = length; i < N; ++i) {
    if (field[i] != '\0') std::abort();
  }
}

void RequireTexts(const ZelScanResult& record) {
  RequireText(record.ip);
  RequireText(record.spare);
  RequireText(record.frameMacAddr);
  RequireText(record.serialNo);
  RequireText(record.sn);
  RequireText(record.zelDeviceId);
  RequireText(record.zelVersion);
  RequireText(record.rteVersion);
  RequireText(record.vorlinVersion);
  RequireText(record.hostName);
  if (std::strcmp(record.ip, kSender) != 0 || record.spare[0] != '\0') std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span datagram(data, size);
  if (size < libzel::kScanHeaderSize) return 0;
  if (!libzel::IsAcceptedAnswer(libzel::ZelScanHeader::Read(datagram))) return 0;
  const auto payload = datagram.subspan(libzel::kScanHeaderSize);
  const std::string document(reinterpret_cast<const char*>(payload.data()), payload.size());
  try {
    const auto record = libzel::ReadScanAnswer(document, kSender);
    if (record) RequireTexts(*record);
  } catch (const std::logic_error&) {
  }
  return 0;
}
