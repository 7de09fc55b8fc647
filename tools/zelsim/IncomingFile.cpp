#include "IncomingFile.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>

#include "SafeName.h"

namespace zelsim {

IncomingFile::IncomingFile(int directory, uint32_t handle, const FileInfo& info)
    : directory_(directory),
      info_(info),
      name_(SafeName(info.destination, info.name)),
      partName_(std::string(kPartPrefix) + std::to_string(getpid()) + "-" + std::to_string(handle) +
                ".part") {}

IncomingFile::~IncomingFile() {
  if (descriptor_ < 0) return;
  close(descriptor_);
  if (!whole_) unlinkat(directory_, partName_.c_str(), 0);
}

uint32_t IncomingFile::Create() {
  if (info_.chunkSize != kChunkSize || info_.chunkCount != ChunkCount(info_.size)) return kWrongNumber;
  const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  descriptor_ = openat(directory_, partName_.c_str(), flags, 0644);
  if (descriptor_ < 0) return kCreateFailed;
  return info_.size == 0 ? Finish() : kTransferOk;
}

uint32_t IncomingFile::Take(const FileChunk& chunk) {
  const uint32_t refusal = CheckChunk(chunk);
  if (refusal != kTransferOk) return refusal;
  const uint32_t failure = Write(chunk.data, uint64_t{taken_} * kChunkSize);
  if (failure != kTransferOk) return failure;
  ++taken_;
  return taken_ == info_.chunkCount ? Finish() : kTransferOk;
}

// Every chunk but the last one is full. Only a chunk that is not full can say that it ends the file: a client
// does not know that a full one was the last before it has tried to read on.
uint32_t IncomingFile::CheckChunk(const FileChunk& chunk) const {
  if (taken_ == info_.chunkCount || chunk.number != taken_ + 1) return kWrongNumber;
  const uint64_t left = info_.size - uint64_t{taken_} * kChunkSize;
  const uint64_t expected = left < kChunkSize ? left : kChunkSize;
  if (chunk.data.size() != expected) return kWrongSize;
  if (chunk.endOfFile != (expected < kChunkSize)) return kWrongSize;
  return kTransferOk;
}

uint32_t IncomingFile::Write(ByteView data, uint64_t offset) {
  while (!data.empty()) {
    const ssize_t count = pwrite(descriptor_, data.data(), data.size(), static_cast<off_t>(offset));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno == ENOSPC || errno == EDQUOT ? kDiskFull : kWriteFailed;
    data = data.subspan(static_cast<size_t>(count));
    offset += static_cast<uint64_t>(count);
  }
  return kTransferOk;
}

uint32_t IncomingFile::Finish() {
  if (renameat(directory_, partName_.c_str(), directory_, name_.c_str()) != 0) return kCreateFailed;
  whole_ = true;
  return kTransferOk;
}

}  // namespace zelsim
