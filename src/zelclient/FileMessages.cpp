#include "zelclient/FileMessages.h"

#include <cstring>

#include "zelcomm/Frame.h"

namespace libzel {

namespace {

constexpr size_t kFileInfoHeadSize = 15;
constexpr size_t kChunkHeadSize = 9;

constexpr uint8_t kTypeFileInfo = 1;
constexpr uint8_t kTypeChunk = 2;
constexpr uint8_t kLastFlag = 0x80;

}  // namespace

std::string FileNameOf(const std::string& path) {
  const size_t backslash = path.rfind('\\');
  return backslash == std::string::npos ? std::string() : path.substr(backslash + 1);
}

uint32_t WriteFileDescription(const FileDescription& description, FileMessageBuffer& buffer) {
  const auto nameSize = static_cast<uint8_t>(description.name.size());
  const auto pathSize = static_cast<uint8_t>(description.remotePath.size());
  buffer[0] = kTypeFileInfo;
  buffer[1] = nameSize;
  buffer[2] = pathSize;
  PutBe32(&buffer[3], description.size);
  PutBe32(&buffer[7], kFileChunkSize);
  PutBe32(&buffer[11], description.chunkCount);
  std::memcpy(&buffer[kFileInfoHeadSize], description.name.data(), nameSize);
  std::memcpy(&buffer[kFileInfoHeadSize + nameSize], description.remotePath.data(), pathSize);
  return static_cast<uint32_t>(kFileInfoHeadSize + nameSize + pathSize);
}

uint32_t WriteChunkHead(uint32_t number, uint32_t handle, bool isLast, uint32_t count,
                        FileMessageBuffer& buffer) {
  buffer[0] = isLast ? kTypeChunk | kLastFlag : kTypeChunk;
  PutBe32(&buffer[1], number);
  PutBe32(&buffer[5], handle);
  return static_cast<uint32_t>(kChunkHeadSize) + count;
}

std::span<uint8_t> ChunkPlace(FileMessageBuffer& buffer) {
  return std::span(buffer).subspan(kChunkHeadSize, kFileChunkSize);
}

FileAnswer ReadFileAnswer(const FileAnswerBuffer& answer) {
  const auto type = static_cast<uint8_t>(answer[0] & ~kLastFlag);
  return {type == kTypeFileInfo, type == kTypeChunk, (answer[0] & kLastFlag) != 0, GetBe32(&answer[1]),
          GetBe32(&answer[5])};
}

}  // namespace libzel
