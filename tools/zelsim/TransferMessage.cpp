#include "TransferMessage.h"

namespace zelsim {
namespace {

constexpr size_t kInfoHeadSize = 15;
constexpr size_t kChunkHeadSize = 9;

std::string PathText(ByteView bytes) { return std::string(bytes.begin(), bytes.end()); }

}  // namespace

std::optional<FileInfo> ParseFileInfo(ByteView payload) {
  if (payload.size() < kInfoHeadSize || payload[0] != kInfoType) return std::nullopt;
  const size_t nameSize = payload[1];
  const size_t destinationSize = payload[2];
  if (payload.size() != kInfoHeadSize + nameSize + destinationSize) return std::nullopt;
  return FileInfo{.name = PathText(payload.subspan(kInfoHeadSize, nameSize)),
                  .destination = PathText(payload.subspan(kInfoHeadSize + nameSize)),
                  .size = GetBe<uint32_t>(&payload[3]),
                  .chunkSize = GetBe<uint32_t>(&payload[7]),
                  .chunkCount = GetBe<uint32_t>(&payload[11])};
}

std::optional<FileChunk> ParseFileChunk(ByteView payload) {
  if (payload.size() <= kChunkHeadSize || payload.size() > kChunkHeadSize + kChunkSize) return std::nullopt;
  if ((payload[0] & ~kLastFlag) != kChunkType) return std::nullopt;
  return FileChunk{.endOfFile = (payload[0] & kLastFlag) != 0,
                   .number = GetBe<uint32_t>(&payload[1]),
                   .handle = GetBe<uint32_t>(&payload[5]),
                   .data = payload.subspan(kChunkHeadSize)};
}

Bytes EncodeTransferAnswer(const TransferAnswer& answer) {
  Bytes bytes(9);
  bytes[0] = static_cast<uint8_t>(answer.type | (answer.last ? kLastFlag : 0));
  PutBe(&bytes[1], answer.handle);
  PutBe(&bytes[5], answer.error);
  return bytes;
}

uint32_t ChunkCount(uint32_t size) { return size == 0 ? 0 : (size - 1) / uint32_t{kChunkSize} + 1; }

}  // namespace zelsim
