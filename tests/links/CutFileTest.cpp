// A link that is cut, or falls silent, while a file is on its way: the lab's relay does it behind so many
// bytes to the library, whose answers have 30 bytes each.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include "support/Deadline.h"
#include "support/ElapsedTime.h"
#include "support/LibraryStart.h"
#include "support/SendingFile.h"

namespace zeltest {
namespace {

constexpr size_t kLarge = 100 * kSentChunk;

class CutFileTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  // The file's end, which is the network's in the middle of it.
  void ExpectNetwork() {
    ASSERT_EQ(SendFile(device_.Target(), file_.path(), seen_), 0);
    const libzelx_FileEvent end = seen_.End();
    EXPECT_EQ(end.result, ZEL_E_FILE_TRANSFER);
    EXPECT_GT(end.sent, 0U);
    EXPECT_LT(end.sent, kLarge);
    EXPECT_EQ(seen_.Ends(), 1U);
  }
  // A later file goes over a new link.
  void ExpectNextOnANewLink() {
    EXPECT_TRUE(Eventually([&] {
      FileEventRecorder next;
      EXPECT_EQ(SendFile(device_.Target(), small_.path(), next), 0);
      return next.End().result == 0;
    }));
  }

  const Deadline deadline_{60};
  const SentFile file_{kLarge};
  const SentFile small_{100};
  const FileDevice device_;
  FileEventRecorder seen_;
};

using CutLinkTest = CutFileTest;

TEST_F(CutLinkTest, EndsTheFileAndLeavesTheNextOneAlone) {
  ExpectNetwork();
  ExpectNextOnANewLink();
}

using SilentFileLinkTest = CutFileTest;

TEST_F(SilentFileLinkTest, EndsTheFileAfterASecond) {
  const ElapsedTime time;
  ExpectNetwork();
  EXPECT_GE(time.Ms(), 900);
  EXPECT_LT(time.AwakeMs(), 5000);
}

}  // namespace
}  // namespace zeltest
