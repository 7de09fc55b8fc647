// Beyond the letter: sending files.
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "libzel/CodeGuard.h"
#include "libzel/libzelx.h"
#include "platform/Platform.h"
#include "zelclient/FileSender.h"

using namespace libzel;

namespace {

// 0, or 12289 with a line that says why.
int32_t OpenToSend(const char* path, RegularFile& file) {
  const int32_t error = file.Open(path);
  if (error == 0) return ZEL_OK;
  ZEL_LOG_AS("libzelx_sendFile", kError, "open file:%s fail,error:%s", path,
             platform::ErrorText(error).c_str());
  return ZEL_E_FILE_OPEN;
}

bool IsGoodRemotePath(const char* path) {
  return path != nullptr && std::memchr(path, '\0', kMaxFileText + 1) != nullptr;
}

}  // namespace

int32_t libzelx_sendFile(const ZelDeviceAddr* target, const char* localPath, const char* remotePath,
                         libzelx_FileCallback callback, void* user, uint64_t* ticket) {
  uint64_t unused = 0;
  const int32_t result = GuardCode([&]() -> int32_t {
    if (target == nullptr || localPath == nullptr || callback == nullptr) return ZEL_E_PARAM;
    if (!IsGoodRemotePath(remotePath)) return ZEL_E_PARAM;
    RegularFile file;
    if (const int32_t code = OpenToSend(localPath, file); code != ZEL_OK) return code;
    FileOrder order{*target, localPath, remotePath, callback, user};
    FileSender::Instance().Submit(std::make_unique<FileSending>(std::move(order), std::move(file)),
                                  ticket != nullptr ? *ticket : unused);
    return ZEL_OK;
  });
  if (result != ZEL_OK && ticket != nullptr) *ticket = 0;
  return result;
}

int32_t libzelx_cancelFile(uint64_t ticket) {
  int32_t hasEnded = 0;
  const int32_t result = GuardCode([&]() -> int32_t {
    FileSender& sender = FileSender::Instance();
    if (!sender.WasGiven(ticket)) return ZEL_E_PARAM;
    hasEnded = sender.Cancel(ticket) ? 0 : 1;
    return ZEL_OK;
  });
  return result == ZEL_OK ? hasEnded : result;
}
