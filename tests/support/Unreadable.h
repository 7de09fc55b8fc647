// Makes an open file of this process unreadable, as a disk that fails would. Linux only.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <system_error>

namespace zeltest {

// Every read of a descriptor that has `path` open fails from here on. True when there was one.
inline bool BreakReadsOf(const std::filesystem::path& path) {
  bool any = false;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code ignored;
    if (std::filesystem::read_symlink(entry.path(), ignored) != path) continue;
    const int broken = open("/dev/null", O_WRONLY | O_CLOEXEC);
    any = dup2(broken, std::stoi(entry.path().filename().string())) != -1 || any;
    close(broken);
  }
  return any;
}

}  // namespace zeltest
