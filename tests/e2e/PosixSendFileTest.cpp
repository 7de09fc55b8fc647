// What only files of this system can do to libzelx_sendFile.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "support/Deadline.h"
#include "support/LibraryStart.h"
#include "support/SendingFile.h"
#include "support/TemporaryFolder.h"
#include "support/Unreadable.h"

namespace zeltest {
namespace {

class PosixSendFileTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  void ExpectRefused(const std::string& path) {
    FileEventRecorder seen;
    EXPECT_EQ(SendFile({DeviceWithoutServer(), 700}, path, seen), ZEL_E_FILE_OPEN) << path;
    EXPECT_EQ(seen.Count(), 0U);
  }

  const Deadline deadline_{60};
  TemporaryFolder folder_;
};

TEST_F(PosixSendFileTest, APipeIsRefusedAtOnce) {
  const std::string path = folder_.Path("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  ExpectRefused(path);
}

TEST_F(PosixSendFileTest, DevicesAreRefused) {
  ExpectRefused("/dev/null");
  ExpectRefused("/dev/zero");
}

TEST_F(PosixSendFileTest, ALinkToAFileIsFollowed) {
  const std::string path = folder_.Write("file", "content");
  std::filesystem::create_symlink(path, folder_.Path("link"));
  const FileDevice device;
  FileEventRecorder seen;
  ASSERT_EQ(SendFile(device.Target(), folder_.Path("link"), seen), 0);
  EXPECT_EQ(seen.End().result, 0);
  EXPECT_EQ(seen.End().sent, 7U);
}

TEST_F(PosixSendFileTest, APathOf256BytesAndMoreIsTaken) {
  std::string folder = "f";
  for (int i = 0; i < 3; ++i) folder += "/" + std::string(120, 'f');
  std::filesystem::create_directories(folder_.Path(folder));
  const FileDevice device;
  FileEventRecorder seen;
  ASSERT_EQ(SendFile(device.Target(), folder_.Write(folder + "/file", "content"), seen), 0);
  EXPECT_EQ(seen.End().result, 0);
}

TEST_F(PosixSendFileTest, AReadErrorEndsItWithItsOffset) {
  const std::string path = folder_.Write("broken", std::string(50000, 'x'));
  bool isBroken = false;
  const FileDevice device([&](const Bytes& message, size_t number) {
    if (number == 2) isBroken = BreakReadsOf(path);
    return GoodFileAnswer(message);
  });
  FileEventRecorder seen;
  ASSERT_EQ(SendFile(device.Target(), path, seen), 0);
  const libzelx_FileEvent end = seen.End();
  ASSERT_TRUE(isBroken);
  EXPECT_EQ(end.result, ZEL_E_FILE_READ);
  EXPECT_EQ(end.readOffset, 2 * kSentChunk);
  EXPECT_EQ(end.sent, 2 * kSentChunk);
  EXPECT_EQ(seen.Ends(), 1U);
  EXPECT_EQ(device.messages.Count(), 3U);
}

TEST_F(PosixSendFileTest, TheNextFileIsSentAfterAReadError) {
  const std::string path = folder_.Write("broken", std::string(50000, 'x'));
  const FileDevice device([&](const Bytes& message, size_t number) {
    if (number == 1) {
      EXPECT_TRUE(BreakReadsOf(path));
    }
    return GoodFileAnswer(message);
  });
  FileEventRecorder seen;
  FileEventRecorder next;
  ASSERT_EQ(SendFile(device.Target(), path, seen), 0);
  ASSERT_EQ(SendFile(device.Target(), folder_.Write("other", "other"), next), 0);
  EXPECT_EQ(seen.End().result, ZEL_E_FILE_READ);
  EXPECT_EQ(next.End().result, 0);
}

TEST_F(PosixSendFileTest, NoDescriptorIsLeft) {
  const auto open = [] {
    size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
    return count;
  };
  const FileDevice device;
  const std::string path = folder_.Write("file", "content");
  FileEventRecorder first;
  ASSERT_EQ(SendFile(device.Target(), path, first), 0);
  ASSERT_EQ(first.End().result, 0);
  const size_t before = open();
  FileEventRecorder seen;
  for (int i = 0; i < 50; ++i) ASSERT_EQ(SendFile(device.Target(), path, seen), 0);
  ExpectRefused("/dev/null");
  ASSERT_TRUE(seen.AwaitEnds(50));
  EXPECT_TRUE(Eventually([&] { return open() <= before; }));
}

}  // namespace
}  // namespace zeltest
