// What only files of this system can do to libzelx_sendFile.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "support/CapturedLog.h"
#include "support/Deadline.h"
#include "support/LibraryStart.h"
#include "support/Options.h"
#include "support/OwnProcess.h"
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

// Leaves room for little, and for no thread's stack.
class TightMemory {
 public:
  TightMemory() {
    (void)getrlimit(RLIMIT_AS, &earlier_);
    std::ifstream pages("/proc/self/statm");
    rlim_t count = 0;
    pages >> count;
    const rlimit tight{count * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + (rlim_t{2} << 20),
                       earlier_.rlim_max};
    (void)setrlimit(RLIMIT_AS, &tight);
  }
  ~TightMemory() { (void)setrlimit(RLIMIT_AS, &earlier_); }
  TightMemory(const TightMemory&) = delete;
  TightMemory& operator=(const TightMemory&) = delete;

 private:
  rlimit earlier_{};
};

TEST(NoThreadTest, AFileThatNoThreadCanSendIsRefusedWith8195) {
  UseFreshProcesses();
  IN_OWN_PROCESS({
    EXPECT_EQ(StartLibrary().result, 0);
    const FileDevice device;
    const SentFile file(10);
    FileEventRecorder seen;
    uint64_t ticket = 9;
    {
      const TightMemory tight;
      EXPECT_EQ(SendFile(device.Target(), file.path(), seen, &ticket), ZEL_E_RESOURCE);
    }
    EXPECT_EQ(ticket, 0U);
    EXPECT_EQ(libzel_destory(), 0);
    EXPECT_EQ(seen.Count(), 0U);
    EXPECT_EQ(SendFile(device.Target(), file.path(), seen, &ticket), 0);
    EXPECT_EQ(seen.End().result, 0);
  });
}

// A thread that could not be had for a second device is not missed.
TEST(NoThreadTest, WithoutAFurtherThreadTheFirstOneSendsAll) {
  UseFreshProcesses();
  IN_OWN_PROCESS({
    EXPECT_EQ(StartLibrary().result, 0);
    const FileDevice devices[3];
    const SentFile file(20000);
    FileEventRecorder seen;
    // One thread that sends, and one for each connection.
    for (const FileDevice& device : devices) EXPECT_EQ(SendFile(device.Target(), file.path(), seen), 0);
    EXPECT_TRUE(seen.AwaitEnds(3));
    const OptionSet workers(LIBZELX_FILE_WORKERS, 8);
    const CapturedLog log;
    {
      const TightMemory tight;
      for (const FileDevice& device : devices) EXPECT_EQ(SendFile(device.Target(), file.path(), seen), 0);
      EXPECT_TRUE(seen.AwaitEnds(6));
    }
    for (const libzelx_FileEvent& end : seen.EndEvents()) EXPECT_EQ(end.result, 0);
    EXPECT_TRUE(log.HasStart("ERROR", "no further thread:"));
  });
}

}  // namespace
}  // namespace zeltest
