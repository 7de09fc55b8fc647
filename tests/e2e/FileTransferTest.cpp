// File transfers to devices that the test plays: messages, progress, faults.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "support/CapturedLog.h"
#include "support/FileDevice.h"
#include "support/LibraryStart.h"
#include "support/OwnProcess.h"

namespace zeltest {
namespace {

using Step = std::tuple<int, float, uint32_t>;  // state, progress, error

constexpr size_t kChunk = 8192;

Bytes Content(size_t size) {
  Bytes content(size);
  for (size_t i = 0; i < size; ++i) content[i] = static_cast<uint8_t>(i * 7 + i / 251);
  return content;
}

// A file of the lab's scratch directory, removed with this object.
class LocalFile {
 public:
  explicit LocalFile(size_t size) : LocalFile(size, "file" + std::to_string(++count_)) {}
  LocalFile(size_t size, const std::string& name)
      : path_((std::filesystem::path(std::getenv("ZEL_LAB")) / name).string()), content_(Content(size)) {
    std::ofstream file(path_, std::ios::binary);
    file.write(reinterpret_cast<const char*>(content_.data()), static_cast<std::streamsize>(size));
    if (!file.good()) throw std::runtime_error("no file " + path_);
  }
  ~LocalFile() {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }
  LocalFile(const LocalFile&) = delete;
  LocalFile& operator=(const LocalFile&) = delete;

  const char* path() const { return path_.c_str(); }
  // What follows the last backslash.
  std::string name() const {
    const size_t backslash = path_.rfind('\\');
    return backslash == std::string::npos ? "" : path_.substr(backslash + 1);
  }
  Bytes Part(size_t from, size_t size) const {
    const auto begin = content_.begin() + static_cast<ptrdiff_t>(from);
    return Bytes(begin, begin + static_cast<ptrdiff_t>(size));
  }
  void CutTo(size_t size) const { std::filesystem::resize_file(path_, size); }

 private:
  inline static int count_ = 0;
  std::string path_;
  Bytes content_;
};

Bytes InfoMessage(const LocalFile& file, uint32_t size, uint32_t chunks, const std::string& remote) {
  const std::string name = file.name();
  return Bytes{1, static_cast<uint8_t>(name.size()), static_cast<uint8_t>(remote.size())} + Be(size, 4) +
         Be(kChunk, 4) + Be(chunks, 4) + Text(name) + Text(remote);
}

Bytes ChunkMessage(uint8_t type, uint32_t number, const Bytes& data) {
  return Bytes{type} + Be(number, 4) + Be(kFileHandle, 4) + data;
}

class FileTransferTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  // A transfer behind the ones under way is over when they are.
  void TearDown() override { AwaitIdle(); }

  static void AwaitIdle() {
    const FileDevice device;
    const LocalFile file(0);
    static auto& recorder = *new ProgressRecorder;
    const size_t before = recorder.Count();
    (void)Submit(device, file, recorder);
    ASSERT_TRUE(recorder.Await(before + 3, 30000));
  }
  static uint32_t Submit(const FileDevice& device, const LocalFile& file, ProgressRecorder& recorder,
                         const char* remote = "remote.bin", uint16_t port = 700) {
    return ZelFileTransfer(device.Target(port), 0, 0, file.path(), remote, ProgressRecorder::Callback,
                           &recorder);
  }
  std::vector<Bytes> Messages(const FileDevice& device) const {
    std::vector<Bytes> messages;
    for (const Request& request : device.messages.All()) messages.push_back(request.payload);
    return messages;
  }
  std::vector<Step> Steps() const {
    std::vector<Step> steps;
    for (const SeenProgress& seen : progress_.All())
      steps.emplace_back(seen.state, seen.progress, seen.error);
    return steps;
  }

  ProgressRecorder progress_;
};

// ---- Messages ---------------------------------------------------------------------------------------------

TEST_F(FileTransferTest, AFileOf20000BytesGoesInThreeChunks) {
  const FileDevice device;
  const LocalFile file(20000);
  (void)Submit(device, file, progress_);
  ASSERT_TRUE(progress_.Await(5));
  EXPECT_EQ(Messages(device), (std::vector<Bytes>{InfoMessage(file, 20000, 3, "remote.bin"),
                                                  ChunkMessage(2, 1, file.Part(0, kChunk)),
                                                  ChunkMessage(2, 2, file.Part(kChunk, kChunk)),
                                                  ChunkMessage(130, 3, file.Part(2 * kChunk, 3616))}));
}

TEST_F(FileTransferTest, AFileOf16384BytesEndsWithAnEmptyMessage) {
  const FileDevice device;
  const LocalFile file(16384);
  (void)Submit(device, file, progress_);
  ASSERT_TRUE(progress_.Await(5));
  EXPECT_EQ(Messages(device), (std::vector<Bytes>{InfoMessage(file, 16384, 2, "remote.bin"),
                                                  ChunkMessage(2, 1, file.Part(0, kChunk)),
                                                  ChunkMessage(2, 2, file.Part(kChunk, kChunk)),
                                                  {}}));
}

TEST_F(FileTransferTest, AnEmptyFileIsItsInformationAndAnEmptyMessage) {
  const FileDevice device;
  const LocalFile file(0);
  (void)Submit(device, file, progress_);
  ASSERT_TRUE(progress_.Await(3));
  EXPECT_EQ(Messages(device), (std::vector<Bytes>{InfoMessage(file, 0, 0, "remote.bin"), {}}));
}

TEST_F(FileTransferTest, TheNameIsWhatFollowsTheLastBackslash) {
  const FileDevice device;
  const LocalFile file(1, "directory\\..\\named.bin");
  ASSERT_EQ(file.name(), "named.bin");
  (void)Submit(device, file, progress_);
  ASSERT_TRUE(progress_.Await(3));
  EXPECT_EQ(Messages(device).at(0), InfoMessage(file, 1, 1, "remote.bin"));
}

TEST_F(FileTransferTest, ARemotePathOf255BytesIsSentWhole) {
  const FileDevice device;
  const LocalFile file(1);
  const std::string remote(255, 'r');
  (void)Submit(device, file, progress_, remote.c_str());
  ASSERT_TRUE(progress_.Await(3));
  EXPECT_EQ(Messages(device).at(0), InfoMessage(file, 1, 1, remote));
}

TEST_F(FileTransferTest, ALongerRemotePathIsCutTo255Bytes) {
  const FileDevice device;
  const LocalFile file(1);
  (void)Submit(device, file, progress_, std::string(300, 'r').c_str());
  ASSERT_TRUE(progress_.Await(3));
  EXPECT_EQ(Messages(device).at(0), InfoMessage(file, 1, 1, std::string(255, 'r')));
}

TEST_F(FileTransferTest, EveryMessageGoesToTheTargetsPortAndAddress) {
  const FileDevice device;
  const LocalFile file(9000);
  (void)Submit(device, file, progress_, "r", 812);
  ASSERT_TRUE(progress_.Await(4));
  for (const Request& request : device.messages.All()) {
    EXPECT_EQ(request.port, 812);
    EXPECT_EQ(request.idGroup, 0x1002U);
    EXPECT_EQ(request.idOffset, 1U);
  }
}

TEST_F(FileTransferTest, WithoutACallbackTheFileIsSentAllTheSame) {
  const FileDevice device;
  const LocalFile file(10);
  (void)ZelFileTransfer(device.Target(), 1, 2, file.path(), "r", nullptr, nullptr);
  ASSERT_TRUE(device.messages.Await(2));
  EXPECT_EQ(Messages(device).at(1), ChunkMessage(130, 1, file.Part(0, 10)));
}

// ---- Progress ---------------------------------------------------------------------------------------------

TEST_F(FileTransferTest, ProgressIsChunksByChunkCount) {
  const FileDevice device;
  const LocalFile file(20000);
  (void)Submit(device, file, progress_);
  ASSERT_TRUE(progress_.Await(5));
  EXPECT_EQ(Steps(), (std::vector<Step>{{0, 0.0F, 0},
                                        {1, 0.0F, 0},
                                        {1, static_cast<float>(1.0 / 3), 0},
                                        {1, static_cast<float>(2.0 / 3), 0},
                                        {2, 1.0F, 0}}));
}

TEST_F(FileTransferTest, AnEmptyFilesProgressStaysAt0) {
  const FileDevice device;
  const LocalFile file(0);
  (void)Submit(device, file, progress_);
  ASSERT_TRUE(progress_.Await(3));
  EXPECT_EQ(Steps(), (std::vector<Step>{{0, 0.0F, 0}, {1, 0.0F, 0}, {2, 0.0F, 0}}));
}

TEST_F(FileTransferTest, ADeviceThatNeverSaysLastLeavesTheStateAtGoingOn) {
  const FileDevice device([](const Bytes& message, size_t) { return FileAnswer(message.at(0) & 0x7F); });
  const LocalFile file(10);
  (void)Submit(device, file, progress_);
  ASSERT_TRUE(progress_.Await(3));
  EXPECT_EQ(Steps().back(), (Step{1, 1.0F, 0}));
}

TEST_F(FileTransferTest, TheFirstCallIsOnTheCallersThreadAndAllOthersAreNot) {
  const FileDevice device;
  const LocalFile file(10);
  (void)Submit(device, file, progress_);
  ASSERT_TRUE(progress_.Await(3));
  const auto seen = progress_.All();
  EXPECT_EQ(seen[0].thread, std::this_thread::get_id());
  EXPECT_NE(seen[1].thread, std::this_thread::get_id());
  EXPECT_EQ(seen[1].thread, seen[2].thread);
}

TEST_F(FileTransferTest, EveryCallTellsTheDeviceAndTheTransfer) {
  const FileDevice device;
  const LocalFile file(10);
  const uint32_t id = Submit(device, file, progress_);
  ASSERT_TRUE(progress_.Await(3));
  for (const SeenProgress& seen : progress_.All()) {
    EXPECT_EQ(seen.transfer, id);
    EXPECT_TRUE(std::ranges::equal(seen.device.bytes, device.Target().id.bytes));
  }
}

TEST_F(FileTransferTest, TransfersCountFrom0InEveryProcess) {
  UseFreshProcesses();
  IN_OWN_PROCESS({
    const FileDevice device;
    const LocalFile file(10);
    static auto& recorder = *new ProgressRecorder;
    EXPECT_EQ(Submit(device, file, recorder), 0U);
    EXPECT_EQ(Submit(device, file, recorder), 1U);
    EXPECT_TRUE(recorder.Await(6));
  });
}

TEST_F(FileTransferTest, TheEndIsLogged) {
  const CapturedLog log;
  const FileDevice device;
  const LocalFile file(10);
  (void)Submit(device, file, progress_);
  EXPECT_TRUE(log.Await("INFO", "transfer over"));
}

// ---- The device's faults ----------------------------------------------------------------------------------

TEST_F(FileTransferTest, ADevicesErrorIsReportedAndDoesNotStop) {
  const FileDevice device([](const Bytes& message, size_t number) {
    return number == 1 ? FileAnswer(2, 8201) : GoodFileAnswer(message);
  });
  const LocalFile file(20000);
  (void)Submit(device, file, progress_);
  ASSERT_TRUE(progress_.Await(5));
  EXPECT_EQ(Steps()[2], (Step{3, static_cast<float>(1.0 / 3), 8201}));
  EXPECT_EQ(Steps()[4], (Step{2, 1.0F, 0}));
}

TEST_F(FileTransferTest, AnErrorToTheFileInformationDoesNotStop) {
  const FileDevice device([](const Bytes& message, size_t number) {
    return number == 0 ? FileAnswer(1, 4098) : GoodFileAnswer(message);
  });
  const LocalFile file(10);
  (void)Submit(device, file, progress_);
  ASSERT_TRUE(progress_.Await(3));
  EXPECT_EQ(Steps(), (std::vector<Step>{{0, 0.0F, 0}, {3, 0.0F, 4098}, {2, 1.0F, 0}}));
}

TEST_F(FileTransferTest, AnErrorToTheEmptyMessageIsNotTaken) {
  const FileDevice device([](const Bytes& message, size_t) {
    return message.empty() ? FileAnswer(2, 12291) : GoodFileAnswer(message);
  });
  const LocalFile file(0);
  (void)Submit(device, file, progress_);
  ASSERT_TRUE(progress_.Await(3));
  EXPECT_EQ(Steps().back(), (Step{1, 0.0F, 0}));
}

TEST_F(FileTransferTest, AnAnswerOfOneByteReadsAsZeros) {
  const FileDevice device([](const Bytes& message, size_t) { return Bytes{message.at(0)}; });
  const LocalFile file(10);
  (void)Submit(device, file, progress_);
  ASSERT_TRUE(progress_.Await(3));
  EXPECT_EQ(Messages(device).at(1), Bytes{130} + Be(1, 4) + Be(0, 4) + file.Part(0, 10));
  EXPECT_EQ(Steps().back(), (Step{2, 1.0F, 0}));
}

TEST_F(FileTransferTest, AnAnswerOfAnotherTypeChangesNothing) {
  const FileDevice device([](const Bytes&, size_t) { return FileAnswer(5, 8201); });
  const LocalFile file(10);
  (void)Submit(device, file, progress_);
  ASSERT_TRUE(progress_.Await(3));
  EXPECT_EQ(Messages(device).at(1), Bytes{130} + Be(1, 4) + Be(0, 4) + file.Part(0, 10));
  EXPECT_EQ(Steps().back(), (Step{1, 1.0F, 0}));
}

TEST_F(FileTransferTest, TheHandleIsTakenFromTheFirstAnswerOnly) {
  const FileDevice device([](const Bytes& message, size_t number) {
    return number == 0 ? FileAnswer(1) : Bytes{message.at(0)} + Be(0x99, 4) + Be(0, 4);
  });
  const LocalFile file(9000);
  (void)Submit(device, file, progress_);
  ASSERT_TRUE(progress_.Await(4));
  EXPECT_EQ(Messages(device).at(2), ChunkMessage(130, 2, file.Part(kChunk, 9000 - kChunk)));
}

// A device that goes away, or keeps silent, instead of answering message `number`.
class DyingDeviceTest : public FileTransferTest, public testing::WithParamInterface<size_t> {
 protected:
  void ExpectFailureAtThatMessage(const FileDevice& device) {
    const LocalFile file(20000);
    (void)Submit(device, file, progress_);
    ASSERT_TRUE(progress_.Await(GetParam() + 2));
    AwaitIdle();
    ASSERT_EQ(progress_.Count(), GetParam() + 2);
    const auto [state, progress, error] = Steps().back();
    EXPECT_EQ(state, 3);
    EXPECT_EQ(error, static_cast<uint32_t>(ZEL_E_FILE_TRANSFER));
    EXPECT_EQ(progress, static_cast<float>(static_cast<double>(GetParam()) / 3));
  }
};

TEST_P(DyingDeviceTest, AClosedConnectionFailsTheTransfer) {
  ExpectFailureAtThatMessage(FileDevice([](const Bytes& message, size_t number) -> std::optional<Bytes> {
    if (number == GetParam()) return std::nullopt;
    return GoodFileAnswer(message);
  }));
}

TEST_P(DyingDeviceTest, SilenceFailsTheTransfer) {
  ExpectFailureAtThatMessage(FileDevice([](const Bytes& message, size_t number) -> std::optional<Bytes> {
    if (number == GetParam()) return Bytes{};
    return GoodFileAnswer(message);
  }));
}

INSTANTIATE_TEST_SUITE_P(Messages, DyingDeviceTest, testing::Range<size_t>(0, 4));

TEST_F(FileTransferTest, ADeviceThatIsNotThereFailsTheTransfer) {
  const LocalFile file(10);
  (void)ZelFileTransfer({DeviceWithoutServer(), 700}, 0, 0, file.path(), "r", ProgressRecorder::Callback,
                        &progress_);
  ASSERT_TRUE(progress_.Await(2));
  EXPECT_EQ(Steps(), (std::vector<Step>{{0, 0.0F, 0}, {3, 0.0F, ZEL_E_FILE_TRANSFER}}));
}

TEST_F(FileTransferTest, ALateAnswerIsNotTakenForTheNextTransfers) {
  const FileDevice device([](const Bytes& message, size_t number) {
    if (number == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1300));
    return GoodFileAnswer(message);
  });
  const LocalFile file(10);
  ProgressRecorder second;
  (void)Submit(device, file, progress_);
  (void)Submit(device, file, second);
  ASSERT_TRUE(second.Await(3));
  EXPECT_EQ(Steps().back(), (Step{3, 0.0F, ZEL_E_FILE_TRANSFER}));
  EXPECT_EQ(second.All().back().state, 2);
  AwaitIdle();
}

// ---- The callback's -1 ------------------------------------------------------------------------------------

class StoppedTransferTest : public FileTransferTest, public testing::WithParamInterface<size_t> {};

TEST_P(StoppedTransferTest, EndsAfterTheStepThatFollowsTheFirstCallOrTheStepItself) {
  const FileDevice device;
  const LocalFile file(20000);
  progress_.refusedCall = GetParam();
  (void)Submit(device, file, progress_);
  AwaitIdle();
  // A refused registration still lets one step run.
  EXPECT_EQ(device.messages.Count(), std::max<size_t>(GetParam(), 1));
  EXPECT_EQ(progress_.Count(), std::max<size_t>(GetParam(), 1) + 1);
}

INSTANTIATE_TEST_SUITE_P(Calls, StoppedTransferTest, testing::Range<size_t>(0, 5));

// ---- Files that cannot be sent ----------------------------------------------------------------------------

class RefusedFileTest : public FileTransferTest {
 protected:
  void ExpectRefused(const std::string& path) {
    const FileDevice device;
    progress_.refusedCall = 0;
    (void)ZelFileTransfer(device.Target(), 0, 0, path.c_str(), "r", ProgressRecorder::Callback, &progress_);
    AwaitIdle();
    EXPECT_EQ(Steps(), (std::vector<Step>{{0, 0.0F, ZEL_E_FILE_OPEN}}));
    EXPECT_EQ(device.messages.Count(), 0U);
  }
};

TEST_F(RefusedFileTest, AMissingFile) { ExpectRefused("no such file"); }
TEST_F(RefusedFileTest, ADirectory) { ExpectRefused(std::getenv("ZEL_LAB")); }
TEST_F(RefusedFileTest, AnEmptyPath) { ExpectRefused(""); }
TEST_F(RefusedFileTest, APathOf256Bytes) {
  // Long enough by blank steps alone, so that a shorter form of it would open.
  const LocalFile file(1);
  std::string path = file.path();
  const size_t name = path.find_last_of("/\\") + 1;
  while (path.size() < 255) path.insert(name, "./");
  path.insert(name, path.size() < 256 ? "/" : "");
  ASSERT_EQ(path.size(), 256U);
  ExpectRefused(path);
}

TEST_F(FileTransferTest, AFileThatCannotBeOpenedHoldsUpAllOthersUnlessRefused) {
  UseFreshProcesses();
  IN_OWN_PROCESS({
    const FileDevice device;
    const LocalFile file(10);
    static auto& missing = *new ProgressRecorder;
    static auto& later = *new ProgressRecorder;
    (void)ZelFileTransfer(device.Target(), 0, 0, "no such file", "r", ProgressRecorder::Callback, &missing);
    (void)Submit(device, file, later);
    EXPECT_FALSE(later.Await(2, 300));
    EXPECT_EQ(missing.Count(), 1U);
    EXPECT_EQ(device.messages.Count(), 0U);
  });
}

TEST_F(FileTransferTest, AFileThatShrinksEndsWithAnEmptyMessage) {
  const LocalFile file(20000);
  const FileDevice device([&](const Bytes& message, size_t number) {
    if (number == 1) file.CutTo(kChunk);
    return GoodFileAnswer(message);
  });
  (void)Submit(device, file, progress_);
  ASSERT_TRUE(progress_.Await(4));
  EXPECT_EQ(Messages(device).at(2), Bytes{});
  EXPECT_EQ(Steps().back(), (Step{2, static_cast<float>(1.0 / 3), 0}));
}

// ---- Several ----------------------------------------------------------------------------------------------

TEST_F(FileTransferTest, TwentyTransfersToTwoDevicesRunInTheOrderOfSubmission) {
  const FileDevice devices[2];
  const LocalFile file(9000);
  for (int i = 0; i < 20; ++i) (void)Submit(devices[i % 2], file, progress_);
  ASSERT_TRUE(progress_.Await(80));
  uint32_t last = 0;
  for (const SeenProgress& seen : progress_.All()) {
    if (seen.state == 0) continue;
    EXPECT_GE(seen.transfer, last);
    last = seen.transfer;
  }
}

TEST_F(FileTransferTest, TwentyTransfersUseOneConnectionPerDevice) {
  const FileDevice devices[2];
  const LocalFile file(9000);
  for (int i = 0; i < 20; ++i) (void)Submit(devices[i % 2], file, progress_);
  ASSERT_TRUE(progress_.Await(80));
  EXPECT_EQ(devices[0].connections(), 1);
  EXPECT_EQ(devices[1].connections(), 1);
}

TEST_F(FileTransferTest, ThreadsThatSubmitToANewDeviceShareItsConnection) {
  const FileDevice device;
  const LocalFile file(9000);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back([&] { (void)Submit(device, file, progress_); });
  for (std::thread& thread : threads) thread.join();
  ASSERT_TRUE(progress_.Await(16));
  for (const SeenProgress& seen : progress_.All()) EXPECT_EQ(seen.error, 0U);
  EXPECT_EQ(device.connections(), 1);
}

TEST_F(FileTransferTest, AfterTheLibraryWasEndedATransferGetsANewConnection) {
  const FileDevice device;
  const LocalFile file(10);
  (void)Submit(device, file, progress_);
  ASSERT_TRUE(progress_.Await(3));
  AwaitIdle();
  ASSERT_EQ(libzel_destory(), 0);
  (void)Submit(device, file, progress_);
  ASSERT_TRUE(progress_.Await(6));
  EXPECT_EQ(Steps().back(), (Step{2, 1.0F, 0}));
}

TEST_F(FileTransferTest, AfterTheLibraryWasEndedNoTransferGoesToAnotherDevice) {
  const FileDevice device;
  const FileDevice other;
  const LocalFile file(10);
  (void)Submit(device, file, progress_);
  ASSERT_TRUE(progress_.Await(3));
  AwaitIdle();
  ASSERT_EQ(libzel_init(), 0);  // one start more, so that the test's own sockets outlive the end
  ASSERT_EQ(libzel_destory(), 0);
  const ZelDeviceId otherId = other.Target().id;
  std::vector<ZelInstance> instances;
  for (int i = 0; i < 20; ++i) instances.push_back(libzel_createInstance(&otherId, 0));
  (void)Submit(device, file, progress_);
  ASSERT_TRUE(progress_.Await(6));
  EXPECT_EQ(device.messages.Count(), 4U);
  EXPECT_EQ(other.messages.Count(), 0U);
  for (const ZelInstance instance : instances) (void)libzel_releaseInstance(instance);
}

}  // namespace
}  // namespace zeltest
