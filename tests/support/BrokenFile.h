// What stands in a file's place: a file that is open but cannot be read, and a pipe.
#pragma once

#include <cstdint>
#include <string>

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace zeltest {

// A file opened for writing alone, as the library holds its files; the caller closes it.
inline std::intptr_t OpenUnreadable(const std::string& path) {
#ifdef _WIN32
  return reinterpret_cast<std::intptr_t>(CreateFileA(path.c_str(), GENERIC_WRITE | FILE_READ_ATTRIBUTES,
                                                     FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                                     OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
#else
  return open(path.c_str(), O_WRONLY | O_CLOEXEC);
#endif
}

// A pipe that nobody writes to, with a name: a path of the system's own where pipes are no files.
class NamedPipe {
 public:
#ifdef _WIN32
  explicit NamedPipe(const std::string& path)
      : path_("\\\\.\\pipe\\" + path.substr(path.find_last_of("/\\") + 1) +
              std::to_string(GetCurrentProcessId())),
        pipe_(
            CreateNamedPipeA(path_.c_str(), PIPE_ACCESS_OUTBOUND, PIPE_TYPE_BYTE, 1, 100, 100, 0, nullptr)) {}
  ~NamedPipe() { (void)CloseHandle(pipe_); }
#else
  explicit NamedPipe(const std::string& path) : path_(path) { (void)mkfifo(path.c_str(), 0600); }
  ~NamedPipe() { (void)unlink(path_.c_str()); }
#endif
  NamedPipe(const NamedPipe&) = delete;
  NamedPipe& operator=(const NamedPipe&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
#ifdef _WIN32
  HANDLE pipe_;
#endif
};

}  // namespace zeltest
