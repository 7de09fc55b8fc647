#include <sys/stat.h>

#include "platform/Platform.h"

namespace libzel::platform {

FileInfo GetFileInfo(const char* path) {
  struct _stat64 status {};
  if (_stat64(path, &status) != 0) return {};
  return {true, (status.st_mode & _S_IFMT) == _S_IFREG, (status.st_mode & _S_IFMT) == _S_IFDIR,
          status.st_size};
}

}  // namespace libzel::platform
