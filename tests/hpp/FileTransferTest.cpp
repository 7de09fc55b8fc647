// Files on their way to a device, which stores them in the lab's directory.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Device.h"
#include "Gathered.h"

#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace zeltest {
namespace {

constexpr uint16_t kPort = 700;
constexpr zel::Milliseconds kLong{20000};

std::string InLab(const std::string& name) {
#ifdef _WIN32
  return std::string(std::getenv("ZEL_LAB")) + "\\" + name;
#else
  return std::string(std::getenv("ZEL_LAB")) + "/" + name;
#endif
}

std::string Write(const std::string& name, size_t size) {
  std::string content;
  for (size_t i = 0; i < size; ++i) content += static_cast<char>(i * 31 + i / 8192);
  std::ofstream(InLab(name), std::ios::binary) << content;
  return content;
}

std::string Read(const std::string& name) {
  std::ifstream file(InLab(name), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class FileTransferTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(TheLibrary().Start()); }
};

TEST_F(FileTransferTest, FileArrivesAndProgressIsTold) {
  const std::string content = Write("three", 20000);
  Gathered<zel::FileProgress> steps;
  auto transfer =
      zel::SendFile(TheDevice(), kPort, InLab("three"), "three.stored", [&](const zel::FileProgress& step) {
        steps.Add(step);
        return true;
      });
  const auto result = transfer.Wait(kLong);
  ASSERT_TRUE(result.has_value());
  EXPECT_TRUE(*result) << result->Text();
  EXPECT_TRUE(transfer.IsOver());
  EXPECT_EQ(Read("three.stored"), content);
  const auto all = steps.All();
  ASSERT_EQ(all.size(), 4U);
  EXPECT_EQ(all.at(0).state, zel::FileState::kGoingOn);
  EXPECT_EQ(all.at(2).sent, 16384U);
  EXPECT_EQ(all.at(2).progress, static_cast<float>(16384.0 / 20000.0));
  EXPECT_EQ(all.at(3).progress, 1.0F);
  EXPECT_EQ(all.at(3).total, 20000U);
  EXPECT_EQ(all.at(3).state, zel::FileState::kFinished);
  EXPECT_EQ(all.at(3).device, TheDevice());
  EXPECT_EQ(all.at(3).transfer, transfer.Number());
}

TEST_F(FileTransferTest, EveryStepButTheLastGoesOn) {
  (void)Write("steps", 16384);
  Gathered<zel::FileState> states;
  auto transfer = zel::SendFile(TheDevice(), kPort, InLab("steps"), "steps.stored",
                                [&](const zel::FileProgress& step) { return states.Add(step.state), true; });
  EXPECT_TRUE(transfer.Wait(kLong).value_or(zel::Result(-1)));
  using State = zel::FileState;
  EXPECT_EQ(states.All(),
            (std::vector<State>{State::kGoingOn, State::kGoingOn, State::kGoingOn, State::kFinished}));
}

TEST_F(FileTransferTest, AnEmptyFileIsWhollySent) {
  (void)Write("empty", 0);
  Gathered<float> progress;
  auto transfer =
      zel::SendFile(TheDevice(), kPort, InLab("empty"), "empty.stored",
                    [&](const zel::FileProgress& step) { return progress.Add(step.progress), true; });
  EXPECT_TRUE(transfer.Wait(kLong).value_or(zel::Result(-1)));
  EXPECT_EQ(progress.All(), (std::vector<float>{0, 1}));
}

TEST_F(FileTransferTest, ADevicesErrorIsTheEnd) {
  (void)Write("refused", 20000);
  Gathered<zel::FileProgress> steps;
  auto transfer = zel::SendFile(TheDevice(), 601, InLab("refused"), "x", [&](const zel::FileProgress& step) {
    steps.Add(step);
    return true;
  });
  EXPECT_EQ(transfer.Wait(kLong).value_or(zel::Result()).Code(), 5);
  EXPECT_EQ(transfer.DeviceError(), 5U);
  ASSERT_EQ(steps.All().size(), 1U);
  EXPECT_EQ(steps.All()[0].state, zel::FileState::kFailed);
  EXPECT_EQ(steps.All()[0].deviceError, 5U);
}

TEST_F(FileTransferTest, SilenceIsANetworkFailure) {
  (void)Write("unheard", 20000);
  auto transfer = zel::SendFile(TheDevice(), 602, InLab("unheard"), "x");
  EXPECT_EQ(transfer.Wait(kLong).value_or(zel::Result()).Code(), ZEL_E_FILE_TRANSFER);
  EXPECT_EQ(transfer.DeviceError(), 0U);
}

// What a device that never marks its last answer would leave open for ever.
TEST_F(FileTransferTest, TheEndIsNotTheDevicesWord) {
  const std::string content = Write("echoed", 20000);
  auto transfer =
      zel::SendFile(TheDevice(), 600, InLab("echoed"), "x");  // a port that answers what it was sent
  EXPECT_TRUE(transfer.Wait(kLong).has_value());
}

TEST_F(FileTransferTest, AWaitMayBeAsLongAsATimeCanBe) {
  (void)Write("patient", 20 * 8192);
  auto transfer = zel::SendFile(TheDevice(), kPort, InLab("patient"), "patient.stored");
  EXPECT_EQ(transfer.Wait((zel::Milliseconds::max)()), zel::Result());
}

TEST_F(FileTransferTest, AWaitNeedsNoTime) {
  (void)Write("untimed", 20000);
  auto transfer = zel::SendFile(TheDevice(), kPort, InLab("untimed"), "untimed.stored");
  EXPECT_TRUE(transfer.Wait());
  EXPECT_TRUE(transfer.IsOver());
}

TEST_F(FileTransferTest, ANegativeWaitIsRefused) {
  (void)Write("impatient", 8192);
  auto transfer = zel::SendFile(TheDevice(), 602, InLab("impatient"), "x");  // silent: it lasts
  EXPECT_EQ(transfer.Wait(zel::Milliseconds(-1)), zel::Result(ZEL_E_PARAM));
  EXPECT_EQ(transfer.Wait(zel::Milliseconds(0)), std::nullopt);
  EXPECT_EQ(transfer.Wait().Code(), ZEL_E_FILE_TRANSFER);
}

TEST_F(FileTransferTest, AFileThatShrinksIsToldOf) {
  (void)Write("shrinking", 50000);
  auto transfer = zel::SendFile(TheDevice(), kPort, InLab("shrinking"), "shrinking.stored",
                                [&](const zel::FileProgress& step) {
                                  if (step.sent == 8192)
                                    std::filesystem::resize_file(InLab("shrinking"), 10000);
                                  return true;
                                });
  EXPECT_EQ(transfer.Wait(kLong).value_or(zel::Result()).Code(), LIBZELX_E_FILE_CHANGED);
}

TEST_F(FileTransferTest, PathsAreUtf8) {
  const std::string name =
      "Pr\xC3\xBC"
      "fung \xE6\x97\xA5";
  std::ofstream(std::filesystem::u8path(InLab(name)), std::ios::binary) << "content";
  auto transfer = zel::SendFile(TheDevice(), kPort, InLab(name), "named.stored");
  EXPECT_TRUE(transfer.Wait(kLong).value_or(zel::Result(-1)));
  EXPECT_EQ(Read("named.stored"), "content");
}

TEST_F(FileTransferTest, APathMayBeTheSystemsOwn) {
  const std::filesystem::path path = std::filesystem::u8path(InLab("own \xE6\x97\xA5"));
  std::ofstream(path, std::ios::binary) << "content";
  auto transfer = zel::SendFile(TheDevice(), kPort, path, "own.stored");
  EXPECT_TRUE(transfer.Wait());
  EXPECT_EQ(Read("own.stored"), "content");
}

TEST_F(FileTransferTest, ALongRemotePathIsRefused) {
  (void)Write("far", 1);
  auto transfer = zel::SendFile(TheDevice(), kPort, InLab("far"), std::string(256, 'r'));
  EXPECT_TRUE(transfer.IsOver());
  EXPECT_EQ(transfer.Wait(zel::Milliseconds(0)).value_or(zel::Result()).Code(), ZEL_E_PARAM);
}

#ifndef _WIN32
TEST_F(FileTransferTest, APipeIsRefusedAtOnce) {
  ASSERT_EQ(mkfifo(InLab("pipe").c_str(), 0600), 0);
  auto transfer = zel::SendFile(TheDevice(), kPort, InLab("pipe"), "x");
  EXPECT_TRUE(transfer.IsOver());
  EXPECT_EQ(transfer.Wait(zel::Milliseconds(0)).value_or(zel::Result()).Code(), ZEL_E_FILE_OPEN);
}
#endif

TEST_F(FileTransferTest, SizesAtTheEdgesOfAChunkArrive) {
  for (const size_t size : {size_t{0}, size_t{1}, size_t{8191}, size_t{8192}, size_t{8193}, size_t{16384}}) {
    const std::string name = "edge" + std::to_string(size);
    const std::string content = Write(name, size);
    auto transfer = zel::SendFile(TheDevice(), kPort, InLab(name), name + ".stored");
    const auto result = transfer.Wait(kLong);
    ASSERT_TRUE(result.has_value()) << size;
    EXPECT_TRUE(*result) << size << ": " << result->Text();
    EXPECT_EQ(Read(name + ".stored"), content);
  }
}

TEST_F(FileTransferTest, MissingFileIsOverAtOnceAndHoldsUpNothing) {
  Gathered<zel::FileProgress> steps;
  auto missing = zel::SendFile(TheDevice(), kPort, InLab("missing"), "x",
                               [&](const zel::FileProgress& step) { return steps.Add(step), true; });
  EXPECT_TRUE(missing.IsOver());
  EXPECT_EQ(missing.Number(), 0U);
  ASSERT_EQ(steps.All().size(), 1U);
  EXPECT_EQ(steps.All()[0].state, zel::FileState::kFailed);
  EXPECT_EQ(steps.All()[0].result.Code(), ZEL_E_FILE_OPEN);
  EXPECT_EQ(missing.Wait(zel::Milliseconds(0))->Code(), ZEL_E_FILE_OPEN);
  const std::string content = Write("after", 10);
  auto next = zel::SendFile(TheDevice(), kPort, InLab("after"), "after.stored");
  EXPECT_TRUE(next.Wait(kLong).value_or(zel::Result(-1)));
  EXPECT_EQ(Read("after.stored"), content);
}

TEST_F(FileTransferTest, CallbackStopsTheTransfer) {
  (void)Write("stopped", 10 * 8192);
  Gathered<zel::FileProgress> steps;
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> seen = held;
  auto transfer = zel::SendFile(TheDevice(), kPort, InLab("stopped"), "stopped.stored",
                                [&, kept = std::move(held)](const zel::FileProgress& step) {
                                  steps.Add(step);
                                  return step.progress < 0.25F;
                                });
  EXPECT_EQ(transfer.Wait(kLong).value_or(zel::Result()).Code(), zel::kErrorCancelled);
  EXPECT_EQ(steps.All().back().progress, 0.3F);
  EXPECT_EQ(steps.All().back().state, zel::FileState::kFailed);
  EXPECT_EQ(Read("stopped.stored"), "");
  EXPECT_TRUE(seen.expired());
}

TEST_F(FileTransferTest, CancelAndAThrowingCallbackStopItToo) {
  (void)Write("cancelled", 200 * 8192);
  Gathered<int> steps;
  auto transfer =
      zel::SendFile(TheDevice(), kPort, InLab("cancelled"), "cancelled.stored",
                    [&](const zel::FileProgress&) { return steps.Add(1), steps.All().size() < 1000; });
  transfer.Cancel();
  EXPECT_EQ(transfer.Wait(kLong).value_or(zel::Result()).Code(), zel::kErrorCancelled);

  Gathered<int> thrown;
  zel::SetExceptionHandler([&](std::exception_ptr) { thrown.Add(1); });
  auto second = zel::SendFile(TheDevice(), kPort, InLab("cancelled"), "thrown.stored",
                              [](const zel::FileProgress& step) -> bool {
                                if (step.state == zel::FileState::kGoingOn) throw std::runtime_error("no");
                                return true;
                              });
  EXPECT_EQ(second.Wait(kLong).value_or(zel::Result()).Code(), zel::kErrorCancelled);
  EXPECT_EQ(thrown.All().size(), 1U);
  zel::SetExceptionHandler(nullptr);
}

TEST_F(FileTransferTest, AbsentDeviceIsANetworkFailure) {
  (void)Write("nowhere", 10);
  auto transfer = zel::SendFile(*zel::DeviceId::Parse("127.0.0.9.0.1"), kPort, InLab("nowhere"), "x");
  EXPECT_EQ(transfer.Wait(kLong).value_or(zel::Result()).Code(), ZEL_E_FILE_TRANSFER);
}

}  // namespace
}  // namespace zeltest
