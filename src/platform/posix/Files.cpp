#include <sys/stat.h>

#include "platform/Platform.h"

namespace libzel::platform {

FileInfo GetFileInfo(const char* path) {
  struct stat status {};
  if (stat(path, &status) != 0) return {};
  return {true, S_ISREG(status.st_mode), S_ISDIR(status.st_mode), static_cast<int64_t>(status.st_size)};
}

}  // namespace libzel::platform
