// Files on their way to a device, which stores them in the lab's directory.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "Device.h"
#include "Gathered.h"

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
  ASSERT_EQ(all.size(), 5U);
  EXPECT_EQ(all.at(0).state, zel::FileState::kRegistered);
  EXPECT_EQ(all.at(3).progress, static_cast<float>(2.0 / 3.0));
  EXPECT_EQ(all.at(4).progress, 1.0F);
  EXPECT_EQ(all.at(4).state, zel::FileState::kFinished);
  EXPECT_EQ(all.at(4).device, TheDevice());
  EXPECT_EQ(all.at(4).transfer, transfer.Number());
}

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
  auto missing =
      zel::SendFile(TheDevice(), kPort, InLab("missing"), "x", [](const zel::FileProgress&) { return true; });
  EXPECT_TRUE(missing.IsOver());
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
  EXPECT_EQ(Read("stopped.stored"), "");
  // The end is told before the callback is let go of.
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!seen.expired() && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
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
