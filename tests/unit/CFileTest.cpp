#include "zelcomm/filesys/CFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/CapturedLog.h"
#include "support/TemporaryFolder.h"
#include "zelcomm/ErrorCode.h"

namespace libzel {
namespace {

constexpr int32_t kChunk = 8192;

class CFileTest : public testing::Test {
 protected:
  void SetUp() override { SetErrno(0); }

  std::string Make(size_t size) { return folder_.Write("file.bin", std::string(size, 'x')); }
  int32_t Read(CFile& file) { return file.ReadFileToBuffer(buffer_.data(), kChunk); }
  void ExpectRefused(const std::string& path) {
    CFile file(path.c_str());
    const zeltest::CapturedLog log;
    EXPECT_EQ(file.OpenFile(), ZEL_E_FILE_OPEN) << path;
    EXPECT_EQ(GetErrno(), ZEL_E_FILE_OPEN);
    EXPECT_FALSE(file.isOpened());
    EXPECT_TRUE(log.HasStart("ERROR", "fopen file:" + path + " fail,error:")) << path;
    EXPECT_EQ(log.Lines().size(), 1U);
    EXPECT_EQ(log.Lines()[0].function, "CFile::OpenFile");
  }

  zeltest::TemporaryFolder folder_;
  std::vector<uint8_t> buffer_ = std::vector<uint8_t>(kChunk);
};

TEST_F(CFileTest, AFreshFileIsClosedAndEmpty) {
  const CFile file("anything");
  EXPECT_FALSE(file.isOpened());
  EXPECT_FALSE(file.isAtEnd());
  EXPECT_EQ(file.size(), 0);
}

TEST_F(CFileTest, AnOpenedFileKnowsItsSize) {
  const std::string path = Make(10);
  CFile file(path.c_str());
  const zeltest::CapturedLog log;
  EXPECT_EQ(file.OpenFile(), 0);
  EXPECT_TRUE(file.isOpened());
  EXPECT_EQ(file.size(), 10);
  EXPECT_TRUE(log.Has("DEBUG", "open File:" + path + " Success,file Size:10"));
}

TEST_F(CFileTest, AShortFileEndsAtItsFirstRead) {
  CFile file(Make(10).c_str());
  ASSERT_EQ(file.OpenFile(), 0);
  const zeltest::CapturedLog log;
  EXPECT_EQ(Read(file), 10);
  EXPECT_EQ(std::string(buffer_.begin(), buffer_.begin() + 10), std::string(10, 'x'));
  EXPECT_TRUE(file.isAtEnd());
  EXPECT_TRUE(file.isOpened());
  EXPECT_TRUE(log.Has("DEBUG", "file read EOF end,buff Size:8192,read Size:10"));
  EXPECT_EQ(GetErrno(), 0);
  EXPECT_EQ(Read(file), 0);
  EXPECT_EQ(GetErrno(), ZEL_E_FILE_HANDLE);
}

TEST_F(CFileTest, AFileOfOneWholeReadEndsAtTheNext) {
  CFile file(Make(kChunk).c_str());
  ASSERT_EQ(file.OpenFile(), 0);
  const zeltest::CapturedLog log;
  EXPECT_EQ(Read(file), kChunk);
  EXPECT_FALSE(file.isAtEnd());
  EXPECT_TRUE(log.Lines().empty());
  EXPECT_EQ(Read(file), 0);
  EXPECT_TRUE(file.isAtEnd());
  EXPECT_TRUE(log.Has("DEBUG", "file read EOF end,buff Size:8192,read Size:0"));
}

TEST_F(CFileTest, AnEmptyFileOpensAndEndsAtOnce) {
  CFile file(Make(0).c_str());
  ASSERT_EQ(file.OpenFile(), 0);
  EXPECT_EQ(file.size(), 0);
  EXPECT_FALSE(file.isAtEnd());
  EXPECT_EQ(Read(file), 0);
  EXPECT_TRUE(file.isAtEnd());
}

TEST_F(CFileTest, BytesAreReadAsTheyAre) {
  const std::string content = std::string(
      "a\r\nb\nc\x1A"
      "d\0e",
      10);
  CFile file(folder_.Write("binary.bin", content).c_str());
  ASSERT_EQ(file.OpenFile(), 0);
  EXPECT_EQ(file.size(), static_cast<int32_t>(content.size()));
  ASSERT_EQ(Read(file), static_cast<int32_t>(content.size()));
  EXPECT_EQ(std::string(buffer_.begin(), buffer_.begin() + static_cast<ptrdiff_t>(content.size())), content);
}

TEST_F(CFileTest, AFileThatShrinksEndsEarly) {
  const std::string path = Make(3 * kChunk);
  CFile file(path.c_str());
  ASSERT_EQ(file.OpenFile(), 0);
  std::filesystem::resize_file(path, 100);
  EXPECT_EQ(Read(file), 100);
  EXPECT_TRUE(file.isAtEnd());
}

TEST_F(CFileTest, ReadingWithoutAnOpenFileFails) {
  CFile file("anything");
  EXPECT_EQ(Read(file), 0);
  EXPECT_EQ(GetErrno(), ZEL_E_FILE_HANDLE);
  EXPECT_FALSE(file.isAtEnd());
}

TEST_F(CFileTest, ASuccessLeavesTheErrorNumberAlone) {
  SetErrno(77);
  CFile file(Make(5).c_str());
  ASSERT_EQ(file.OpenFile(), 0);
  EXPECT_EQ(Read(file), 5);
  EXPECT_EQ(GetErrno(), 77);
}

TEST_F(CFileTest, WhatIsNotThereIsRefused) {
  ExpectRefused(folder_.Path("none.bin"));
  ExpectRefused("");
}

TEST_F(CFileTest, ADirectoryIsRefused) { ExpectRefused(folder_.Path("")); }

TEST_F(CFileTest, APathOf256BytesIsRefused) {
  ExpectRefused(std::string(256, 'p'));
  ExpectRefused(std::string(5000, 'p'));
}

TEST_F(CFileTest, AFileOfTwoGibibytesIsRefusedAndOneByteLessIsNot) {
  const std::string path = Make(0);
  std::error_code error;
  std::filesystem::resize_file(path, 2147483648ULL, error);
  if (error) GTEST_SKIP() << "no room for a file of 2 GiB: " << error.message();
  ExpectRefused(path);
  std::filesystem::resize_file(path, 2147483647ULL);
  CFile file(path.c_str());
  EXPECT_EQ(file.OpenFile(), 0);
  EXPECT_EQ(file.size(), 2147483647);
}

TEST_F(CFileTest, TheNameIsWhatFollowsTheLastBackslash) {
  CFile file("C:\\data\\log.bin");
  const zeltest::CapturedLog log;
  EXPECT_EQ(file.GetFileName(), "log.bin");
  EXPECT_EQ(file.GetFileName(), "log.bin");
  EXPECT_EQ(log.Count("DEBUG", "fileName:log.bin"), 1);
  EXPECT_EQ(CFile("a\\b/c.bin").GetFileName(), "b/c.bin");
}

TEST_F(CFileTest, APathWithoutABackslashHasNoName) {
  const zeltest::CapturedLog log;
  EXPECT_EQ(CFile("/tmp/log.bin").GetFileName(), "");
  EXPECT_EQ(CFile("log.bin").GetFileName(), "");
  EXPECT_EQ(CFile("").GetFileName(), "");
  EXPECT_TRUE(log.Lines().empty());
}

TEST_F(CFileTest, APathThatEndsInABackslashHasAnEmptyNameThatIsLogged) {
  CFile file("C:\\data\\");
  const zeltest::CapturedLog log;
  EXPECT_EQ(file.GetFileName(), "");
  EXPECT_TRUE(log.Has("DEBUG", "fileName:"));
}

}  // namespace
}  // namespace libzel
