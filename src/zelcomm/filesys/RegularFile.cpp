#include "zelcomm/filesys/RegularFile.h"

#include <cerrno>

namespace libzel {

int32_t RegularFile::Open(const char* path) {
  const platform::FileHandle handle = platform::OpenUtf8Path(path);
  return handle != platform::kNoFile ? Adopt(handle) : errno;
}

int32_t RegularFile::Adopt(platform::FileHandle handle) {
  Close();
  handle_ = handle;
  const platform::FileInfo info = platform::GetOpenFileInfo(handle);
  if (info.isRegular && info.size <= INT32_MAX) {
    size_ = static_cast<uint32_t>(info.size);
    return 0;
  }
  Close();
  if (info.isRegular) return EFBIG;
  return info.isDirectory ? EISDIR : EINVAL;
}

void RegularFile::Close() {
  if (handle_ != platform::kNoFile) platform::CloseFile(handle_);
  handle_ = platform::kNoFile;
  size_ = 0;
}

}  // namespace libzel
