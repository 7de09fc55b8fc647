#include "FileReceiver.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "SafeName.h"
#include "Support.h"

namespace zelsim {
namespace {

namespace fs = std::filesystem;
using test::ReadTextFile;

constexpr uint64_t kClient = 1;

// Built here by hand, not by the receiver's own code.
Bytes InfoMessage(uint32_t size, uint32_t count, std::string_view destination, std::string_view name = "",
                  uint32_t chunkSize = 8192) {
  Bytes message{1, static_cast<uint8_t>(name.size()), static_cast<uint8_t>(destination.size())};
  for (const uint32_t number : {size, chunkSize, count}) {
    for (int shift = 24; shift >= 0; shift -= 8) message.push_back(static_cast<uint8_t>(number >> shift));
  }
  message.insert(message.end(), name.begin(), name.end());
  message.insert(message.end(), destination.begin(), destination.end());
  return message;
}

Bytes ChunkMessage(uint8_t type, uint32_t number, uint32_t handle, std::string_view data) {
  Bytes message{type};
  for (const uint32_t word : {number, handle}) {
    for (int shift = 24; shift >= 0; shift -= 8) message.push_back(static_cast<uint8_t>(word >> shift));
  }
  message.insert(message.end(), data.begin(), data.end());
  return message;
}

std::string Content(size_t size) {
  std::string text(size, ' ');
  for (size_t i = 0; i < size; ++i) text[i] = static_cast<char>('a' + i % 23 + i / 8192 % 3);
  return text;
}

class FileReceiverTest : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directory(Stored());
    ASSERT_EQ(receiver_.Open(Stored()), "");
  }
  std::string Stored(const std::string& name = "") const { return directory_.Path() + "/in/" + name; }

  TransferAnswer Send(const Bytes& message) { return receiver_.Handle(kClient, message).answer; }
  // The handle, or 0 when the information was refused.
  uint32_t Begin(uint32_t size, std::string_view destination, std::string_view name = "") {
    return Send(InfoMessage(size, (size + 8191) / 8192, destination, name)).handle;
  }
  // Sends every chunk of the text as a client does; the last answer.
  TransferAnswer SendAll(uint32_t handle, std::string_view text) {
    TransferAnswer answer;
    for (uint32_t number = 1; !text.empty(); ++number) {
      const auto part = text.substr(0, 8192);
      answer = Send(ChunkMessage(part.size() < 8192 ? 0x82 : 0x02, number, handle, part));
      EXPECT_EQ(answer.error, 0u) << number;
      text.remove_prefix(part.size());
    }
    return answer;
  }
  size_t EntryCount() const {
    return static_cast<size_t>(std::distance(fs::directory_iterator(Stored()), fs::directory_iterator()));
  }

  test::TemporaryDirectory directory_;
  FileReceiver receiver_;
};

TEST_F(FileReceiverTest, StoresAFileOfSeveralChunks) {
  const std::string text = Content(20000);
  const uint32_t handle = Begin(20000, "/data/f.bin");
  ASSERT_NE(handle, 0u);
  EXPECT_TRUE(SendAll(handle, text).last);
  EXPECT_EQ(ReadTextFile(Stored("f.bin")), text);
  EXPECT_EQ(EntryCount(), 1u);
}

TEST_F(FileReceiverTest, SmallSizes) {
  for (const uint32_t size : {1u, 8191u, 8193u, 16383u}) {
    const std::string text = Content(size);
    EXPECT_TRUE(SendAll(Begin(size, "f"), text).last) << size;
    EXPECT_EQ(ReadTextFile(Stored("f")), text) << size;
  }
}

TEST_F(FileReceiverTest, WholeNumberOfChunksEndsWithTheEmptyMessage) {
  for (const uint32_t size : {8192u, 16384u}) {
    const std::string text = Content(size);
    EXPECT_FALSE(SendAll(Begin(size, "f"), text).last);
    EXPECT_EQ(ReadTextFile(Stored("f")), text);
    const TransferAnswer end = Send({});
    EXPECT_EQ(end.type, 2);
    EXPECT_TRUE(end.last);
    EXPECT_EQ(end.error, 0u);
  }
}

TEST_F(FileReceiverTest, EmptyFileIsThereAtOnceAndEndsWithTheEmptyMessage) {
  ASSERT_NE(Begin(0, "empty"), 0u);
  EXPECT_TRUE(fs::exists(Stored("empty")));
  const TransferAnswer end = Send({});
  EXPECT_TRUE(end.last);
  EXPECT_EQ(end.error, 0u);
}

TEST_F(FileReceiverTest, EmptyMessageTooEarlyDropsTheFile) {
  const uint32_t handle = Begin(20000, "f");
  Send(ChunkMessage(2, 1, handle, Content(8192)));
  const TransferAnswer end = Send({});
  EXPECT_FALSE(end.last);
  EXPECT_EQ(end.error, kSenderStopped);
  EXPECT_EQ(EntryCount(), 0u);
  EXPECT_EQ(Send(ChunkMessage(2, 2, handle, Content(8192))).error, kUnknownHandle);
}

TEST_F(FileReceiverTest, EmptyMessageWithoutAFileIsAnError) { EXPECT_EQ(Send({}).error, kUnknownHandle); }

TEST_F(FileReceiverTest, WrongChunksAreRefusedAndTheRightOneIsStillTaken) {
  const std::string text = Content(8200);
  const uint32_t handle = Begin(8200, "f");
  const auto first = text.substr(0, 8192);
  EXPECT_EQ(Send(ChunkMessage(2, 2, handle, first)).error, kWrongNumber);
  EXPECT_EQ(Send(ChunkMessage(2, 0, handle, first)).error, kWrongNumber);
  EXPECT_EQ(Send(ChunkMessage(2, 1, handle, text.substr(0, 8191))).error, kWrongSize);
  EXPECT_EQ(Send(ChunkMessage(2, 1, handle + 1, first)).error, kUnknownHandle);
  EXPECT_EQ(Send(ChunkMessage(2, 1, handle, first)).error, 0u);
  EXPECT_EQ(Send(ChunkMessage(2, 1, handle, first)).error, kWrongNumber);
  EXPECT_EQ(Send(ChunkMessage(0x82, 2, handle, text.substr(8192))).error, 0u);
  EXPECT_EQ(ReadTextFile(Stored("f")), text);
}

TEST_F(FileReceiverTest, EndTooEarlyDropsTheFile) {
  const uint32_t handle = Begin(20000, "f");
  const TransferAnswer answer = Send(ChunkMessage(0x82, 1, handle, "short"));
  EXPECT_EQ(answer.error, kWrongSize);
  EXPECT_TRUE(answer.last);
  EXPECT_EQ(EntryCount(), 0u);
}

TEST_F(FileReceiverTest, ChunkBeyondTheLastIsRefused) {
  const uint32_t handle = Begin(8192, "f");
  Send(ChunkMessage(2, 1, handle, Content(8192)));
  EXPECT_EQ(Send(ChunkMessage(2, 2, handle, Content(8192))).error, kWrongNumber);
}

TEST_F(FileReceiverTest, InformationThatDoesNotAddUpIsRefused) {
  EXPECT_EQ(Send(InfoMessage(20000, 2, "f")).error, kWrongNumber);
  EXPECT_EQ(Send(InfoMessage(20000, 3, "f", "", 4096)).error, kWrongNumber);
  EXPECT_EQ(Send(InfoMessage(0xFFFFFFFF, 1, "f")).error, kWrongNumber);
  EXPECT_EQ(EntryCount(), 0u);
}

TEST_F(FileReceiverTest, MalformedMessagesAreRefused) {
  Bytes info = InfoMessage(1, 1, "f");
  info.push_back(0);
  for (const Bytes& message : {info, Bytes{1}, Bytes(14, 1), Bytes{2}, Bytes(9, 2), Bytes{3, 0}, Bytes{0},
                               ChunkMessage(2, 1, 1, Content(8193))}) {
    EXPECT_EQ(Send(message).error, kMalformed);
  }
  EXPECT_EQ(EntryCount(), 0u);
}

TEST_F(FileReceiverTest, UnfinishedFileGoesWithItsConnection) {
  const uint32_t handle = Begin(20000, "f");
  Send(ChunkMessage(2, 1, handle, Content(8192)));
  EXPECT_EQ(EntryCount(), 1u);
  receiver_.Forget(kClient);
  EXPECT_EQ(EntryCount(), 0u);
}

TEST_F(FileReceiverTest, HandleOfAnotherConnectionIsUnknown) {
  const uint32_t handle = Begin(10, "f");
  EXPECT_EQ(receiver_.Handle(2, ChunkMessage(0x82, 1, handle, Content(10))).answer.error, kUnknownHandle);
}

TEST_F(FileReceiverTest, FilesMayOverlap) {
  const uint32_t first = Begin(3, "one");
  const uint32_t second = Begin(3, "two");
  EXPECT_TRUE(Send(ChunkMessage(0x82, 1, second, "222")).last);
  EXPECT_TRUE(Send(ChunkMessage(0x82, 1, first, "111")).last);
  EXPECT_EQ(ReadTextFile(Stored("one")), "111");
  EXPECT_EQ(ReadTextFile(Stored("two")), "222");
}

TEST_F(FileReceiverTest, TooManyUnfinishedFilesAreRefused) {
  for (int i = 0; i < 64; ++i) ASSERT_NE(Begin(3, "f"), 0u);
  EXPECT_EQ(Send(InfoMessage(3, 1, "f")).error, kTooManyFiles);
}

TEST_F(FileReceiverTest, NothingIsEverWrittenOutsideTheDirectory) {
  const std::string_view names[] = {"../escape",
                                    "..",
                                    "/etc/escape",
                                    "..\\..\\escape",
                                    "C:\\x\\escape",
                                    "a/../../escape",
                                    "../",
                                    "/",
                                    "",
                                    ".",
                                    "./..",
                                    std::string_view("a\0/../escape", 12)};
  for (const std::string_view destination : names) {
    for (const std::string_view name : names) SendAll(Begin(3, destination, name), "abc");
  }
  std::vector<std::string> found;
  for (const auto& entry : fs::recursive_directory_iterator(directory_.Path())) {
    if (entry.is_regular_file()) found.push_back(entry.path().parent_path().string() + "/");
  }
  ASSERT_EQ(found.size(), 2u);
  for (const std::string& parent : found) EXPECT_EQ(parent, Stored());
  EXPECT_TRUE(fs::exists(Stored("escape")));
  EXPECT_TRUE(fs::exists(Stored("unnamed")));
}

TEST_F(FileReceiverTest, SymbolicLinkIsReplacedAndNotFollowed) {
  const std::string outside = directory_.Path() + "/outside";
  std::ofstream(outside) << "mine";
  fs::create_symlink(outside, Stored("f"));
  EXPECT_TRUE(SendAll(Begin(3, "f"), "abc").last);
  EXPECT_EQ(ReadTextFile(outside), "mine");
  EXPECT_EQ(ReadTextFile(Stored("f")), "abc");
  EXPECT_FALSE(fs::is_symlink(Stored("f")));
}

TEST_F(FileReceiverTest, DirectoryOfThatNameIsAnError) {
  fs::create_directory(Stored("f"));
  const uint32_t handle = Begin(3, "f");
  EXPECT_EQ(Send(ChunkMessage(0x82, 1, handle, "abc")).error, kCreateFailed);
  EXPECT_EQ(EntryCount(), 1u);
}

TEST(FileReceiver, DirectoryMustExist) { EXPECT_NE(FileReceiver().Open("/nonexistent/dir"), ""); }

TEST(SafeName, DestinationComesBeforeTheOwnName) {
  EXPECT_EQ(SafeName("/data/x.bin", "y.bin"), "x.bin");
  EXPECT_EQ(SafeName("/data/", "y.bin"), "y.bin");
  EXPECT_EQ(SafeName("C:\\data\\x.bin", ""), "x.bin");
  EXPECT_EQ(SafeName("", ""), "unnamed");
}

TEST(SafeName, ControlCharactersAndHiddenPartsAreHarmless) {
  EXPECT_EQ(SafeName("a\nb\x7f", ""), "a_b_");
  EXPECT_EQ(SafeName(".zelsim-1-1.part", ""), "_.zelsim-1-1.part");
  EXPECT_EQ(SafeName(std::string(300, 'x'), "").size(), 255u);
}

// The receiver on its port, over loopback.
class FileService : public FileReceiverTest {
 protected:
  void StartServer(std::vector<std::string> more = {}) {
    std::vector<std::string> arguments{"--listen", "127.0.0.1:0", "--files", Stored()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    simulator_ = std::make_unique<test::RunningSimulator>(arguments);
    client_ = std::make_unique<test::RawClient>(simulator_->Port());
  }
  void Post(Bytes message, uint32_t group = 0x1002, uint32_t offset = 1, uint16_t port = 700) {
    client_->Send(test::BuildRequest({.port = port,
                                      .invokeId = ++invokeId_,
                                      .payload = std::move(message),
                                      .idGroup = group,
                                      .idOffset = offset}));
  }
  Bytes Answer() {
    const auto frame = client_->ReadFrame();
    if (!frame) return {};
    EXPECT_EQ(frame->InvokeId(), invokeId_);
    EXPECT_EQ(frame->Error(), 0u);
    return test::FromText(frame->Payload());
  }
  Bytes Ask(Bytes message) {
    Post(std::move(message));
    return Answer();
  }

  std::unique_ptr<test::RunningSimulator> simulator_;
  std::unique_ptr<test::RawClient> client_;
  uint32_t invokeId_ = 0;
};

TEST_F(FileService, AnswersEveryMessageWithNineBytes) {
  StartServer();
  EXPECT_EQ(Ask(InfoMessage(8195, 2, "f")), (Bytes{1, 0, 0, 0, 1, 0, 0, 0, 0}));
  EXPECT_EQ(Ask(ChunkMessage(2, 1, 1, Content(8192))), (Bytes{2, 0, 0, 0, 1, 0, 0, 0, 0}));
  EXPECT_EQ(Ask(ChunkMessage(0x82, 2, 1, "end")), (Bytes{0x82, 0, 0, 0, 1, 0, 0, 0, 0}));
  EXPECT_EQ(ReadTextFile(Stored("f")), Content(8192) + "end");
}

TEST_F(FileService, OtherAddressingWordsAreRefused) {
  StartServer();
  Post(InfoMessage(3, 1, "f"), 0x1003, 1);
  EXPECT_EQ(Answer().back(), 0x02);
  Post(InfoMessage(3, 1, "f"), 0x1002, 2);
  EXPECT_EQ(Answer().back(), 0x03);
  EXPECT_EQ(EntryCount(), 0u);
}

TEST_F(FileService, PortMayBeChosen) {
  StartServer({"--transfer-port", "900"});
  Post(InfoMessage(3, 1, "f"), 0x1002, 1, 900);
  EXPECT_EQ(Answer().size(), 9u);
}

TEST_F(FileService, FaultsSelectTheirMessage) {
  StartServer({"--transfer-fault", "error:8201@1", "--transfer-fault", "short@2", "--transfer-fault",
               "silent@3", "--transfer-fault", "close@4"});
  EXPECT_EQ(Ask(InfoMessage(8192 * 4, 4, "f")).size(), 9u);
  EXPECT_EQ(Ask(ChunkMessage(2, 1, 1, Content(8192))), (Bytes{2, 0, 0, 0, 1, 0, 0, 0x20, 0x09}));
  EXPECT_EQ(Ask(ChunkMessage(2, 2, 1, Content(8192))), (Bytes{2}));
  Post(ChunkMessage(2, 3, 1, Content(8192)));
  EXPECT_TRUE(client_->StaysSilent(50));
  Post(ChunkMessage(2, 4, 1, Content(8192)));
  EXPECT_TRUE(client_->ReadAll().empty());
  EXPECT_EQ(client_->State(), test::End::kClosed);
  EXPECT_EQ(ReadTextFile(Stored("f")).size(), 4u * 8192);
}

TEST_F(FileService, LateAnswerComesLate) {
  StartServer({"--transfer-fault", "late:80@0"});
  Post(InfoMessage(3, 1, "f"));
  EXPECT_TRUE(client_->StaysSilent(40));
  EXPECT_EQ(Answer().size(), 9u);
}

TEST_F(FileService, EveryMessageWithoutASelection) {
  StartServer({"--transfer-fault", "error:5"});
  EXPECT_EQ(Ask(InfoMessage(3, 1, "f")), (Bytes{1, 0, 0, 0, 1, 0, 0, 0, 5}));
  EXPECT_EQ(Ask(ChunkMessage(0x82, 1, 1, "abc")), (Bytes{0x82, 0, 0, 0, 1, 0, 0, 0, 5}));
}

TEST_F(FileService, ClientThatLeavesTakesItsUnfinishedFileAlong) {
  StartServer();
  Ask(InfoMessage(20000, 3, "f"));
  EXPECT_EQ(EntryCount(), 1u);
  client_.reset();
  EXPECT_TRUE(test::Eventually([&] { return EntryCount() == 0; }));
}

}  // namespace
}  // namespace zelsim
