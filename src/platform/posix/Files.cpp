#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/Platform.h"
#include "platform/posix/Descriptors.h"

namespace libzel::platform {

FileInfo GetFileInfo(const char* path) {
  struct stat status {};
  if (stat(path, &status) != 0) return {};
  return {true, S_ISREG(status.st_mode), S_ISDIR(status.st_mode), static_cast<int64_t>(status.st_size)};
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

}  // namespace libzel::platform
