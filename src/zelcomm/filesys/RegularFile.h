// One regular file that is opened once: what was measured is what is read, whatever becomes of its path.
//
// Used by one thread at a time. Knows no error number and no log.
#pragma once

#include <cstdint>
#include <span>
#include <utility>

#include "platform/Platform.h"

namespace libzel {

class RegularFile {
 public:
  RegularFile() = default;
  ~RegularFile() { Close(); }
  RegularFile(RegularFile&& other) noexcept
      : handle_(std::exchange(other.handle_, platform::kNoFile)), size_(other.size_) {}
  RegularFile& operator=(RegularFile&&) = delete;
  RegularFile(const RegularFile&) = delete;
  RegularFile& operator=(const RegularFile&) = delete;

  // Opens the file at a UTF-8 path: 0, or the runtime's number of what stands against it, without waiting for anything.
  // Directories, pipes and whatever else is no regular file are refused, and files of 2 GiB and more.
  int32_t Open(const char* path);
  // The same with what is open already, which is closed when it is refused.
  int32_t Adopt(platform::FileHandle handle);

  // The length when it was opened.
  uint32_t size() const { return size_; }
  // Reads from an offset; see platform::ReadFileAt.
  int64_t ReadAt(uint64_t offset, std::span<uint8_t> buffer) const {
    return platform::ReadFileAt(handle_, offset, buffer);
  }

 private:
  void Close();

  platform::FileHandle handle_ = platform::kNoFile;
  uint32_t size_ = 0;
};

}  // namespace libzel
