// The messages in which a file goes to a device, as bytes, and the answers to them.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

#include "zelcomm/Frame.h"

namespace libzel {

inline constexpr uint32_t kFileChunkSize = 8192;
inline constexpr size_t kMaxFileText = 255;  // of a name or a remote path: their lengths have a byte

inline constexpr AddressBlock kFileAddress{0x1002, 1};

using FileMessageBuffer = std::array<uint8_t, 10240>;
using FileAnswerBuffer = std::array<uint8_t, 1024>;

// The first message of a file.
struct FileDescription {
  std::string name;
  std::string remotePath;
  uint32_t size = 0;
  uint32_t chunkCount = 0;
};

// What follows the path's last backslash, empty when there is none. A forward slash is an ordinary character. Deliberate.
std::string FileNameOf(const std::string& path);

// Both give the message's length.
uint32_t WriteFileDescription(const FileDescription& description, FileMessageBuffer& buffer);
// With the `count` bytes that have been put into ChunkPlace.
uint32_t WriteChunkHead(uint32_t number, uint32_t handle, bool isLast, uint32_t count,
                        FileMessageBuffer& buffer);
// Where a chunk's bytes belong.
std::span<uint8_t> ChunkPlace(FileMessageBuffer& buffer);

struct FileAnswer {
  bool isToDescription = false;
  bool isToChunk = false;
  bool isLast = false;
  uint32_t handle = 0;
  uint32_t error = 0;
};
// Missing bytes read as zeros.
FileAnswer ReadFileAnswer(const FileAnswerBuffer& answer);

}  // namespace libzel
