#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>

#include "platform/Platform.h"

namespace libzel::platform {

namespace {

constexpr int kLastStandard = 2;

// The descriptors 0 to 2 belong to the standard streams, also while these are closed. A file that gets one of them keeps it
// taken until the file is open once more elsewhere.
int OpenAboveStandard(const char* path, int mode) {
  std::array<int, kLastStandard + 1> low{};
  size_t count = 0;
  int descriptor = _open(path, mode);
  while (descriptor >= 0 && descriptor <= kLastStandard && count < low.size()) {
    low[count++] = descriptor;
    descriptor = _open(path, mode);
  }
  const int error = errno;
  for (size_t i = 0; i < count; ++i) (void)_close(low[i]);
  errno = error;
  return descriptor;
}

}  // namespace

FileInfo GetFileInfo(const char* path) {
  struct _stat64 status {};
  if (_stat64(path, &status) != 0) return {};
  return {true, (status.st_mode & _S_IFMT) == _S_IFREG, (status.st_mode & _S_IFMT) == _S_IFDIR,
          status.st_size};
}

std::FILE* OpenForReading(const char* path, FileKind kind) {
  const bool isText = kind == FileKind::kText;
  const int descriptor = OpenAboveStandard(path, _O_RDONLY | _O_NOINHERIT | (isText ? _O_TEXT : _O_BINARY));
  if (descriptor < 0) return nullptr;
  std::FILE* const stream = _fdopen(descriptor, isText ? "r" : "rb");
  if (stream != nullptr) return stream;
  const int error = errno;
  (void)_close(descriptor);
  errno = error;
  return nullptr;
}

}  // namespace libzel::platform
