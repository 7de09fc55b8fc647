// One local file that is read from start to end in pieces. It closes itself as soon as a read comes back short.
//
// Used by one thread at a time. Failures are left in the thread's error number, which is never cleared here.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace libzel {

class CFile {
 public:
  static constexpr size_t kMaxPath = 256;  // the NUL included

  explicit CFile(const char* path) : path_(path) {}

  // Opens for binary reading: 0, or 12289 (also the thread's error number). Directories and whatever else is no
  // regular file, files of 2 GiB and more, and paths of 256 bytes and more are refused like files that are not there.
  int32_t OpenFile();
  // What follows the path's last backslash, empty when there is none. A forward slash is an ordinary character.
  // Deliberate.
  std::string GetFileName();
  // The next `size` bytes, or fewer at the end; 0 with error number 12293 when no file is open, 12291 after a read
  // error, whose bytes are dropped.
  int32_t ReadFileToBuffer(uint8_t* buffer, int32_t size);

  bool isOpened() const { return opened_; }
  bool isAtEnd() const { return atEnd_; }
  int32_t size() const { return size_; }

 private:
  struct Closer {
    void operator()(std::FILE* stream) const { (void)std::fclose(stream); }  // it was only read
  };

  int32_t TryOpen();

  bool opened_ = false;
  bool atEnd_ = false;
  std::unique_ptr<std::FILE, Closer> stream_;
  int32_t size_ = 0;
  std::string name_;
  const std::string path_;
};

}  // namespace libzel
