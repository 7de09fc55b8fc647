// What a file does that becomes unreadable while it is open.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/CapturedLog.h"
#include "support/TemporaryFolder.h"
#include "support/Unreadable.h"
#include "zelcomm/ErrorCode.h"
#include "zelcomm/filesys/CFile.h"

namespace libzel {
namespace {

TEST(PosixCFileTest, AReadThatFailsIsLoggedAndEndsTheFile) {
  zeltest::TemporaryFolder folder;
  const std::string path = folder.Write("file.bin", std::string(30000, 'x'));
  CFile file(path.c_str());
  ASSERT_EQ(file.OpenFile(), 0);
  std::vector<uint8_t> buffer(8192);
  EXPECT_EQ(file.ReadFileToBuffer(buffer.data(), 8192), 8192);
  ASSERT_TRUE(zeltest::BreakReadsOf(path));
  SetErrno(0);
  const zeltest::CapturedLog log;
  EXPECT_EQ(file.ReadFileToBuffer(buffer.data(), 8192), 0);
  EXPECT_EQ(GetErrno(), 12291);
  EXPECT_TRUE(log.HasStart("ERROR", "file read size:"));
  EXPECT_TRUE(file.isAtEnd());
  EXPECT_EQ(file.ReadFileToBuffer(buffer.data(), 8192), 0);
}

}  // namespace
}  // namespace libzel
