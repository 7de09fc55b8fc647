#include "zelcomm/filesys/RegularFile.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <string>

#include "support/BrokenFile.h"
#include "support/TemporaryFolder.h"

namespace libzel {
namespace {

namespace fs = std::filesystem;

class RegularFileTest : public testing::Test {
 protected:
  void ExpectRefused(const std::string& path) {
    RegularFile file;
    EXPECT_NE(file.Open(path.c_str()), 0) << path;
    EXPECT_EQ(file.size(), 0U);
  }
  std::string Read(const RegularFile& file, uint64_t offset, size_t size) {
    const int64_t count = file.ReadAt(offset, std::span(buffer_).first(size));
    return count < 0 ? "failed" : std::string(buffer_.begin(), buffer_.begin() + count);
  }

  zeltest::TemporaryFolder folder_;
  std::array<uint8_t, 100> buffer_{};
};

TEST_F(RegularFileTest, AnOpenedFileKnowsItsSize) {
  RegularFile file;
  ASSERT_EQ(file.Open(folder_.Write("file", "0123456789").c_str()), 0);
  EXPECT_EQ(file.size(), 10U);
}

TEST_F(RegularFileTest, ReadsFromWhereItIsTold) {
  RegularFile file;
  ASSERT_EQ(file.Open(folder_.Write("file", "0123456789").c_str()), 0);
  EXPECT_EQ(Read(file, 3, 4), "3456");
  EXPECT_EQ(Read(file, 0, 2), "01");
}

TEST_F(RegularFileTest, ReadsLessAtTheEndAndNothingBehindIt) {
  RegularFile file;
  ASSERT_EQ(file.Open(folder_.Write("file", "0123456789").c_str()), 0);
  EXPECT_EQ(Read(file, 8, 50), "89");
  EXPECT_EQ(Read(file, 10, 50), "");
  EXPECT_EQ(Read(file, 1000, 50), "");
}

TEST_F(RegularFileTest, ReadsBytesAsTheyAre) {
  const std::string content("a\r\nb\n\x1A\0c", 8);
  RegularFile file;
  ASSERT_EQ(file.Open(folder_.Write("file", content).c_str()), 0);
  EXPECT_EQ(Read(file, 0, 50), content);
}

TEST_F(RegularFileTest, PathsAreUtf8) {
  const char8_t* const name = u8"\u00FC\u20AC\u65E5\U0001F4C4";
  const fs::path path = fs::path(folder_.Path("")) / name;
  std::ofstream(path, std::ios::binary) << "content";
  const std::u8string text = path.u8string();
  RegularFile file;
  EXPECT_EQ(file.Open(std::string(text.begin(), text.end()).c_str()), 0);
  EXPECT_EQ(Read(file, 0, 50), "content");
}

TEST_F(RegularFileTest, WhatIsNotThereIsRefused) {
  ExpectRefused(folder_.Path("none"));
  ExpectRefused("");
}

TEST_F(RegularFileTest, ADirectoryIsRefused) { ExpectRefused(folder_.Path("")); }

TEST_F(RegularFileTest, AFileOfTwoGibibytesIsRefusedAndOneByteLessIsNot) {
  const std::string path = folder_.Write("file", "");
  std::error_code error;
  fs::resize_file(path, 2147483648ULL, error);
  if (error) GTEST_SKIP() << "no room for a file of 2 GiB: " << error.message();
  ExpectRefused(path);
  fs::resize_file(path, 2147483647ULL);
  RegularFile file;
  EXPECT_EQ(file.Open(path.c_str()), 0);
  EXPECT_EQ(file.size(), 2147483647U);
  EXPECT_EQ(Read(file, 2147483646, 50).size(), 1U);
}

TEST_F(RegularFileTest, APipeIsRefusedAtOnce) {
  const zeltest::NamedPipe pipe(folder_.Path("pipe"));
  ExpectRefused(pipe.path());
}

TEST_F(RegularFileTest, AnotherFileUnderItsPathIsNotRead) {
  const std::string path = folder_.Write("file", "first");
  RegularFile file;
  ASSERT_EQ(file.Open(path.c_str()), 0);
  fs::rename(path, folder_.Path("moved"));
  (void)folder_.Write("file", "second");
  EXPECT_EQ(Read(file, 0, 50), "first");
}

TEST_F(RegularFileTest, AReadThatFailsIsToldOfByItself) {
  RegularFile file;
  ASSERT_EQ(file.Adopt(zeltest::OpenUnreadable(folder_.Write("file", "0123456789"))), 0);
  EXPECT_EQ(file.size(), 10U);
  EXPECT_EQ(Read(file, 0, 50), "failed");
}

TEST_F(RegularFileTest, AMovedFileIsReadOn) {
  RegularFile first;
  ASSERT_EQ(first.Open(folder_.Write("file", "0123456789").c_str()), 0);
  const RegularFile second(std::move(first));
  EXPECT_EQ(Read(second, 0, 50), "0123456789");
  EXPECT_EQ(second.size(), 10U);
}

TEST_F(RegularFileTest, ItIsClosedWithTheObject) {
  const std::string path = folder_.Write("file", "0123456789");
  for (int i = 0; i < 5000; ++i) {
    RegularFile file;
    ASSERT_EQ(file.Open(path.c_str()), 0) << i;
  }
}

}  // namespace
}  // namespace libzel
