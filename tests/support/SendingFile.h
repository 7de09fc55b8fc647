// What tests of libzelx_sendFile have in common: files to send, the call, and a callback that remembers.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "libzel/libzelx.h"
#include "support/FileDevice.h"
#include "support/Recorders.h"

namespace zeltest {

inline constexpr size_t kSentChunk = 8192;

inline Bytes ContentOfSize(size_t size) {
  Bytes content(size);
  for (size_t i = 0; i < size; ++i) content[i] = static_cast<uint8_t>(i * 7 + i / 251);
  return content;
}

// A file of the lab's scratch directory, with a name in UTF-8, removed with this object.
class SentFile {
 public:
  explicit SentFile(size_t size) : SentFile(size, "sent" + std::to_string(++count_)) {}
  SentFile(size_t size, const std::string& name)
      : path_(std::filesystem::path(std::getenv("ZEL_LAB")) / FromUtf8(name)), content_(ContentOfSize(size)) {
    Write(content_);
  }
  ~SentFile() {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }
  SentFile(const SentFile&) = delete;
  SentFile& operator=(const SentFile&) = delete;

  std::string path() const { return ToUtf8(path_); }
  const std::filesystem::path& place() const { return path_; }
  Bytes Part(size_t from, size_t size) const {
    const auto begin = content_.begin() + static_cast<ptrdiff_t>(from);
    return Bytes(begin, begin + static_cast<ptrdiff_t>(size));
  }
  void CutTo(size_t size) const { std::filesystem::resize_file(path_, size); }
  void Append(const Bytes& more) const {
    std::ofstream file(path_, std::ios::binary | std::ios::app);
    file.write(reinterpret_cast<const char*>(more.data()), static_cast<std::streamsize>(more.size()));
  }

  static std::filesystem::path FromUtf8(const std::string& text) {
    return std::filesystem::path(std::u8string(text.begin(), text.end()));
  }
  static std::string ToUtf8(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
  }

 private:
  void Write(const Bytes& content) const {
    std::ofstream file(path_, std::ios::binary);
    file.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
    if (!file.good()) throw std::runtime_error("no file " + path());
  }

  inline static std::atomic<int> count_{0};
  std::filesystem::path path_;
  Bytes content_;
};

struct SeenFileEvent {
  libzelx_FileEvent event{};
  std::thread::id thread;
};

// Must outlive the transfers that it is given to: wait for their ends.
class FileEventRecorder : public Recorder<SeenFileEvent> {
 public:
  // Gives the callback's result; `number` counts its calls from 0.
  using Reaction = std::function<int32_t(const libzelx_FileEvent& event, size_t number)>;

  FileEventRecorder() = default;
  explicit FileEventRecorder(Reaction reaction) : reaction_(std::move(reaction)) {}

  static int32_t Callback(const libzelx_FileEvent* event, void* user) {
    auto& self = *static_cast<FileEventRecorder*>(user);
    const size_t number = self.calls_++;
    const int32_t result = self.reaction_ ? self.reaction_(*event, number) : 0;
    self.Add({*event, std::this_thread::get_id()});
    return result;
  }

  bool AwaitEnds(size_t count, int timeoutMs = kRecorderPatienceMs) const {
    return AwaitThat([count](const auto& seen) { return CountEnds(seen) >= count; }, timeoutMs);
  }
  size_t Ends() const { return CountEnds(All()); }
  // The ends, in the order in which they came.
  std::vector<libzelx_FileEvent> EndEvents() const {
    std::vector<libzelx_FileEvent> ends;
    for (const SeenFileEvent& seen : All()) {
      if (seen.event.ended != 0) ends.push_back(seen.event);
    }
    return ends;
  }
  // Of the first that comes; its result is -1 when none comes.
  libzelx_FileEvent End(int timeoutMs = kRecorderPatienceMs) const {
    libzelx_FileEvent none{};
    none.result = -1;
    return AwaitEnds(1, timeoutMs) ? EndEvents().front() : none;
  }

 private:
  static size_t CountEnds(const std::vector<SeenFileEvent>& seen) {
    return static_cast<size_t>(
        std::count_if(seen.begin(), seen.end(), [](const auto& one) { return one.event.ended != 0; }));
  }

  const Reaction reaction_;
  std::atomic<size_t> calls_{0};
};

inline int32_t SendFile(const ZelDeviceAddr& target, const std::string& path, FileEventRecorder& seen,
                        uint64_t* ticket = nullptr, const std::string& remote = "remote.bin") {
  return libzelx_sendFile(&target, path.c_str(), remote.c_str(), FileEventRecorder::Callback, &seen, ticket);
}

}  // namespace zeltest
