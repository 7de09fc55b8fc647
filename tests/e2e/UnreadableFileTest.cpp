// A file that becomes unreadable while it is sent.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <string>

#include "support/CapturedLog.h"
#include "support/FileDevice.h"
#include "support/LibraryStart.h"
#include "support/TemporaryFolder.h"
#include "support/Unreadable.h"

namespace zeltest {
namespace {

// The device breaks the file before it answers the first chunk: what was sent until then has arrived, an
// empty message ends the transfer, and the next transfer is carried out.
TEST(UnreadableFileTest, EndsItsTransferAndLeavesTheNextOneAlone) {
  ASSERT_EQ(StartLibrary().result, 0);
  TemporaryFolder folder;
  const std::string path = folder.Write("broken.bin", std::string(50000, 'x'));
  const std::string other = folder.Write("other.bin", "other");
  bool broken = false;
  const FileDevice device([&](const Bytes& message, size_t number) {
    if (number == 1) broken = BreakReadsOf(path);
    return GoodFileAnswer(message);
  });
  const CapturedLog log;
  static auto& first = *new ProgressRecorder;
  static auto& second = *new ProgressRecorder;
  (void)ZelFileTransfer(device.Target(), 0, 0, path.c_str(), "a", ProgressRecorder::Callback, &first);
  (void)ZelFileTransfer(device.Target(), 0, 0, other.c_str(), "b", ProgressRecorder::Callback, &second);
  ASSERT_TRUE(device.messages.Await(5));
  ASSERT_TRUE(broken);
  const auto messages = device.messages.All();
  EXPECT_EQ(messages[1].payload.size(), 9U + 8192U);
  EXPECT_TRUE(messages[2].payload.empty());
  EXPECT_EQ(messages[3].payload.at(0), 1);
  EXPECT_EQ(messages[4].payload.size(), 9U + 5U);
  EXPECT_TRUE(log.HasStart("ERROR", "file read size:"));
  ASSERT_TRUE(second.Await(3));
  EXPECT_EQ(second.All().back().state, 2);
}

}  // namespace
}  // namespace zeltest
