#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/Platform.h"
#include "platform/posix/Descriptors.h"

namespace libzel::platform {

namespace {

FileInfo InfoFrom(const struct stat& status) {
  return {true, S_ISREG(status.st_mode), S_ISDIR(status.st_mode), static_cast<int64_t>(status.st_size)};
}

}  // namespace

FileInfo GetFileInfo(const char* path) {
  struct stat status {};
  return stat(path, &status) == 0 ? InfoFrom(status) : FileInfo{};
}

std::FILE* OpenForReading(const char* path, FileKind /*kind*/) {
  const int descriptor = MoveAboveStandard(open(path, O_RDONLY | O_CLOEXEC));
  if (descriptor < 0) return nullptr;
  std::FILE* const stream = fdopen(descriptor, "rb");
  if (stream != nullptr) return stream;
  const int error = errno;
  (void)close(descriptor);
  errno = error;
  return nullptr;
}

// O_NONBLOCK: a pipe without its other end is opened at once. A regular file's reads know nothing of it.
FileHandle OpenUtf8Path(const char* path) {
  return MoveAboveStandard(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
}

void CloseFile(FileHandle file) { (void)close(static_cast<int>(file)); }

FileInfo GetOpenFileInfo(FileHandle file) {
  struct stat status {};
  return fstat(static_cast<int>(file), &status) == 0 ? InfoFrom(status) : FileInfo{};
}

int64_t ReadFileAt(FileHandle file, uint64_t offset, std::span<uint8_t> buffer) {
  size_t count = 0;
  while (count < buffer.size()) {
    const ssize_t got = pread(static_cast<int>(file), &buffer[count], buffer.size() - count,
                              static_cast<off_t>(offset + count));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && count == 0) return -1;
    if (got <= 0) break;
    count += static_cast<size_t>(got);
  }
  return static_cast<int64_t>(count);
}

}  // namespace libzel::platform
