// What the options change of ZelFileTransfer, and what it does without them.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include <chrono>
#include <string>
#include <thread>

#include "support/CapturedLog.h"
#include "support/Deadline.h"
#include "support/ElapsedTime.h"
#include "support/LibraryStart.h"
#include "support/Options.h"
#include "support/OwnProcess.h"
#include "support/SendingFile.h"

namespace zeltest {
namespace {

class FileOptionsTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }
  void SetUp() override { UseFreshProcesses(); }

  static void SubmitOld(const FileDevice& device, const std::string& path, ProgressRecorder& recorder) {
    (void)ZelFileTransfer(device.Target(), 0, 0, path.c_str(), "r", ProgressRecorder::Callback, &recorder);
  }

  const Deadline deadline{100};
};

TEST_F(FileOptionsTest, ByTheLetterAFileThatCannotBeOpenedBlocksTheLaterOnes) {
  IN_OWN_PROCESS({
    const FileDevice device;
    const SentFile file(10);
    static auto& missing = *new ProgressRecorder;
    static auto& later = *new ProgressRecorder;
    SubmitOld(device, "no such file", missing);
    SubmitOld(device, file.path(), later);
    EXPECT_FALSE(later.Await(2, 300));
  });
}

TEST_F(FileOptionsTest, WithDropUnopenedItIsReportedAndDropped) {
  IN_OWN_PROCESS({
    const OptionSet drop(LIBZELX_FILE_DROP_UNOPENED, 1);
    const FileDevice device;
    const SentFile file(10);
    static auto& missing = *new ProgressRecorder;
    static auto& later = *new ProgressRecorder;
    SubmitOld(device, "no such file", missing);
    SubmitOld(device, file.path(), later);
    EXPECT_TRUE(later.Await(3));
    EXPECT_EQ(later.All().back().state, 2);
    EXPECT_EQ(missing.Count(), 1U);
    EXPECT_EQ(missing.All()[0].error, static_cast<uint32_t>(ZEL_E_FILE_OPEN));
    EXPECT_EQ(device.messages.Count(), 2U);
  });
}

TEST_F(FileOptionsTest, SetLaterDropUnopenedFreesTheQueue) {
  IN_OWN_PROCESS({
    const FileDevice device;
    const SentFile file(10);
    static auto& missing = *new ProgressRecorder;
    static auto& later = *new ProgressRecorder;
    SubmitOld(device, "no such file", missing);
    SubmitOld(device, file.path(), later);
    EXPECT_FALSE(later.Await(2, 100));
    const OptionSet drop(LIBZELX_FILE_DROP_UNOPENED, 1);
    EXPECT_TRUE(later.Await(3));
  });
}

TEST_F(FileOptionsTest, ByTheLetterASlowTransferHasAllTheTime) {
  IN_OWN_PROCESS({
    const FileDevice device([](const Bytes& message, size_t) {
      std::this_thread::sleep_for(std::chrono::milliseconds(150));
      return GoodFileAnswer(message);
    });
    const SentFile file(20000);
    static auto& progress = *new ProgressRecorder;
    SubmitOld(device, file.path(), progress);
    EXPECT_TRUE(progress.Await(5));
    EXPECT_EQ(progress.All().back().state, 2);
  });
}

TEST_F(FileOptionsTest, ATotalTimeEndsASlowTransferWith4104) {
  IN_OWN_PROCESS({
    const OptionSet total(LIBZELX_FILE_TOTAL_MS, 300);
    const FileDevice device([](const Bytes& message, size_t) {
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      return GoodFileAnswer(message);
    });
    const SentFile file(20000);
    static auto& progress = *new ProgressRecorder;
    const CapturedLog log;
    SubmitOld(device, file.path(), progress);
    EXPECT_TRUE(log.Await("INFO", "transfer over"));
    EXPECT_EQ(progress.All().back().state, 3);
    EXPECT_EQ(progress.All().back().error, static_cast<uint32_t>(ZEL_E_TIMEOUT));
    EXPECT_LT(progress.Count(), 5U);
  });
}

TEST_F(FileOptionsTest, ATotalTimeEndsTheWaitForASilentDevice) {
  IN_OWN_PROCESS({
    const OptionSet total(LIBZELX_FILE_TOTAL_MS, 100);
    const FileDevice device([](const Bytes&, size_t) { return Bytes{}; });
    const SentFile file(10);
    static auto& progress = *new ProgressRecorder;
    const ElapsedTime time;
    SubmitOld(device, file.path(), progress);
    EXPECT_TRUE(progress.Await(2));
    EXPECT_LT(time.AwakeMs(), 900);
    EXPECT_EQ(progress.All().back().error, static_cast<uint32_t>(ZEL_E_TIMEOUT));
  });
}

TEST_F(FileOptionsTest, ATotalTimeEndsAFileThatCannotBeOpenedToo) {
  IN_OWN_PROCESS({
    const OptionSet total(LIBZELX_FILE_TOTAL_MS, 100);
    const FileDevice device;
    const SentFile file(10);
    static auto& missing = *new ProgressRecorder;
    static auto& later = *new ProgressRecorder;
    SubmitOld(device, "no such file", missing);
    SubmitOld(device, file.path(), later);
    EXPECT_TRUE(later.Await(3));
    EXPECT_EQ(missing.Count(), 2U);
    EXPECT_EQ(missing.All().back().error, static_cast<uint32_t>(ZEL_E_TIMEOUT));
    EXPECT_EQ(missing.All().back().state, 3);
  });
}

}  // namespace
}  // namespace zeltest
