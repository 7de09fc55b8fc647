// One file on its way in.
//
// The bytes go to a hidden file beside the final one, which appears under its name, whole, when the last byte
// has been written; an unfinished file is removed. Nothing is opened through a symbolic link.
#pragma once

#include <string>

#include "TransferMessage.h"

namespace zelsim {

// Result codes of a transfer, as a client shows them.
inline constexpr uint32_t kTransferOk = 0;
inline constexpr uint32_t kWrongGroup = 0x1002;    // another first addressing word
inline constexpr uint32_t kWrongOffset = 0x1003;   // another second addressing word
inline constexpr uint32_t kMalformed = 0x100F;     // a message that is neither information nor chunk
inline constexpr uint32_t kTooManyFiles = 0x2003;  // the connection has too many unfinished files
inline constexpr uint32_t kWrongNumber = 0x2004;   // chunk number, chunk size or chunk count out of line
inline constexpr uint32_t kWrongSize = 0x2007;     // a chunk of the wrong size, or the end too early
inline constexpr uint32_t kDiskFull = 0x2009;
inline constexpr uint32_t kCreateFailed = 0x3000;
inline constexpr uint32_t kSenderStopped = 0x3003;  // the empty message, while chunks are missing
inline constexpr uint32_t kWriteFailed = 0x3004;
inline constexpr uint32_t kUnknownHandle = 0x3005;

class IncomingFile {
 public:
  // `directory` is an open directory that outlives the file.
  IncomingFile(int directory, uint32_t handle, const FileInfo& info);
  ~IncomingFile();
  IncomingFile(const IncomingFile&) = delete;
  IncomingFile& operator=(const IncomingFile&) = delete;

  // Creates the hidden file; an empty file is whole at once.
  uint32_t Create();
  // Takes the next chunk. A refused chunk changes nothing: the same number is expected again.
  uint32_t Take(const FileChunk& chunk);

  bool Whole() const { return whole_; }
  uint32_t ChunkTotal() const { return info_.chunkCount; }
  const std::string& Name() const { return name_; }

 private:
  uint32_t CheckChunk(const FileChunk& chunk) const;
  uint32_t Write(ByteView data, uint64_t offset);
  uint32_t Finish();

  int directory_;
  FileInfo info_;
  std::string name_;
  std::string partName_;
  int descriptor_ = -1;
  uint32_t taken_ = 0;
  bool whole_ = false;
};

}  // namespace zelsim
