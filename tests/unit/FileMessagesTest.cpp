#include "zelclient/FileMessages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "support/Wire.h"

namespace libzel {
namespace {

using zeltest::Be;
using zeltest::Bytes;
using zeltest::Text;
using zeltest::operator+;

Bytes FirstOf(const FileMessageBuffer& buffer, uint32_t size) {
  return Bytes(buffer.begin(), buffer.begin() + size);
}

TEST(FileMessagesTest, ADescriptionHasNamesAndNumbers) {
  FileMessageBuffer buffer{};
  const uint32_t size = WriteFileDescription({"log.bin", "/data/x", 20000, 3}, buffer);
  const Bytes wanted =
      Bytes{1, 7, 7} + Be(20000, 4) + Be(8192, 4) + Be(3, 4) + Text("log.bin") + Text("/data/x");
  EXPECT_EQ(FirstOf(buffer, size), wanted);
}

TEST(FileMessagesTest, TheLongestDescriptionFits) {
  FileMessageBuffer buffer{};
  EXPECT_EQ(WriteFileDescription({std::string(255, 'n'), std::string(255, 'p'), 1, 1}, buffer), 525U);
  EXPECT_EQ(buffer[524], 'p');
  EXPECT_EQ(buffer[525], 0);
}

TEST(FileMessagesTest, AChunkHasNumberHandleAndBytes) {
  FileMessageBuffer buffer{};
  const auto place = ChunkPlace(buffer);
  ASSERT_EQ(place.size(), 8192U);
  std::fill_n(place.begin(), 3, uint8_t{'x'});
  EXPECT_EQ(FirstOf(buffer, WriteChunkHead(7, 0xA1B2C3D4, false, 3, buffer)),
            Bytes{2} + Be(7, 4) + Be(0xA1B2C3D4, 4) + Text("xxx"));
  EXPECT_EQ(FirstOf(buffer, WriteChunkHead(8, 1, true, 3, buffer)),
            Bytes{130} + Be(8, 4) + Be(1, 4) + Text("xxx"));
}

TEST(FileMessagesTest, AnAnswerHasATypeAFlagAHandleAndAnError) {
  FileAnswerBuffer buffer{};
  const Bytes bytes = Bytes{0x81} + Be(0xA1B2C3D4, 4) + Be(8201, 4);
  std::copy(bytes.begin(), bytes.end(), buffer.begin());
  const FileAnswer answer = ReadFileAnswer(buffer);
  EXPECT_TRUE(answer.isToDescription);
  EXPECT_FALSE(answer.isToChunk);
  EXPECT_TRUE(answer.isLast);
  EXPECT_EQ(answer.handle, 0xA1B2C3D4U);
  EXPECT_EQ(answer.error, 8201U);
}

TEST(FileMessagesTest, AnAnswerOfAnotherTypeIsToNothing) {
  for (const uint8_t type : Bytes{0, 3, 0x7F}) {
    FileAnswerBuffer buffer{};
    buffer[0] = type;
    EXPECT_FALSE(ReadFileAnswer(buffer).isToDescription);
    EXPECT_FALSE(ReadFileAnswer(buffer).isToChunk);
  }
}

TEST(FileMessagesTest, TheNameIsWhatFollowsTheLastBackslash) {
  EXPECT_EQ(FileNameOf("C:\\data\\log.bin"), "log.bin");
  EXPECT_EQ(FileNameOf("a\\b/c.bin"), "b/c.bin");
  EXPECT_EQ(FileNameOf("C:\\data\\"), "");
  EXPECT_EQ(FileNameOf("/tmp/log.bin"), "");
  EXPECT_EQ(FileNameOf(""), "");
}

}  // namespace
}  // namespace libzel
