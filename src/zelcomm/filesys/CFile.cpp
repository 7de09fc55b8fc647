#include "zelcomm/filesys/CFile.h"

#include <cerrno>
#include <cstdint>

#include "platform/Platform.h"
#include "utils/Log.h"
#include "zelcomm/ErrorCode.h"

namespace libzel {

// 0, or the runtime's number of what stands against it.
int32_t CFile::TryOpen() {
  if (path_.size() >= kMaxPath) return ENAMETOOLONG;
  // Looked at first: opening a pipe would wait for its other end.
  const platform::FileInfo info = platform::GetFileInfo(path_.c_str());
  if (!info.exists) return errno;
  if (!info.isRegular) return info.isDirectory ? EISDIR : EINVAL;
  if (info.size > INT32_MAX) return EFBIG;
  stream_.reset(platform::OpenForReading(path_.c_str(), platform::FileKind::kBinary));
  if (stream_ == nullptr) return errno;
  if (std::fseek(stream_.get(), 0, SEEK_END) != 0) return errno;
  const long end = std::ftell(stream_.get());
  if (end < 0 || end > INT32_MAX) return EFBIG;
  std::rewind(stream_.get());
  size_ = static_cast<int32_t>(end);
  return 0;
}

int32_t CFile::OpenFile() {
  const int32_t error = TryOpen();
  opened_ = error == 0;
  if (opened_) {
    ZEL_LOG(kDebug, "open File:%s Success,file Size:%d", path_.c_str(), size_);
    return ZEL_OK;
  }
  stream_.reset();
  SetErrno(ZEL_E_FILE_OPEN);
  ZEL_LOG(kError, "fopen file:%s fail,error:%s", path_.c_str(), platform::ErrorText(error).c_str());
  return ZEL_E_FILE_OPEN;
}

std::string CFile::GetFileName() {
  if (!name_.empty()) return name_;
  const size_t backslash = path_.rfind('\\');
  if (backslash == std::string::npos) return {};
  name_ = path_.substr(backslash + 1);
  ZEL_LOG(kDebug, "fileName:%s", name_.c_str());
  return name_;
}

int32_t CFile::ReadFileToBuffer(uint8_t* buffer, int32_t size) {
  if (stream_ == nullptr) {
    SetErrno(ZEL_E_FILE_HANDLE);
    return 0;
  }
  auto count = static_cast<int32_t>(std::fread(buffer, 1, static_cast<size_t>(size), stream_.get()));
  if (count >= size) return count;
  if (std::feof(stream_.get()) != 0) {
    ZEL_LOG(kDebug, "file read EOF end,buff Size:%d,read Size:%d", size, count);
  } else {
    const std::string text = platform::ErrorText(errno);
    ZEL_LOG(kError, "file read size:%d error:%s", count, text.c_str());
    SetErrno(ZEL_E_FILE_READ);
    count = 0;
  }
  atEnd_ = true;
  stream_.reset();
  return count;
}

}  // namespace libzel
