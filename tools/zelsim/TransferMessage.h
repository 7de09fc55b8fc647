// The messages of a file transfer: what a client sends and what a device answers.
//
// Numbers are big-endian. The parsers take the payload of a request and never look outside it.
#pragma once

#include <optional>
#include <string>

#include "Bytes.h"

namespace zelsim {

inline constexpr uint8_t kInfoType = 1;
inline constexpr uint8_t kChunkType = 2;
inline constexpr uint8_t kLastFlag = 0x80;
inline constexpr size_t kChunkSize = 8192;

struct FileInfo {
  std::string name;         // the file's own name, often empty
  std::string destination;  // the path that the client asks for
  uint32_t size = 0;
  uint32_t chunkSize = 0;
  uint32_t chunkCount = 0;
};

struct FileChunk {
  bool endOfFile = false;  // the client's read reached the end
  uint32_t number = 0;     // from 1
  uint32_t handle = 0;
  ByteView data;
};

struct TransferAnswer {
  uint8_t type = kChunkType;
  bool last = false;
  uint32_t handle = 0;
  uint32_t error = 0;
};

// Nothing when the payload is too short, too long or of another type.
std::optional<FileInfo> ParseFileInfo(ByteView payload);
std::optional<FileChunk> ParseFileChunk(ByteView payload);
Bytes EncodeTransferAnswer(const TransferAnswer& answer);

// How many chunks a file of this size has.
uint32_t ChunkCount(uint32_t size);

}  // namespace zelsim
