// A file to a device, library against a raw socket that sends the same messages in the same lockstep:
//   bench_file_transfer LOG FOLDER [ROUNDS]
// zelsim receives on 127.0.0.5:9999, port 700.
#include <algorithm>
#include <cstdlib>
#include <semaphore>
#include <string>

#include "RawClient.h"
#include "Support.h"

namespace {

constexpr uint16_t kPort = 700;
constexpr uint32_t kFileSize = 32 * 1024 * 1024 + 100;
constexpr uint32_t kChunk = 8192;
constexpr uint32_t kChunks = (kFileSize - 1) / kChunk + 1;
constexpr size_t kAnswerSize = bench::kOuterSize + bench::kInnerSize + 9;

void PutBe32(uint8_t* at, uint32_t value) {
  for (int i = 0; i < 4; ++i) at[i] = static_cast<uint8_t>(value >> (8 * (3 - i)));
}

std::vector<uint8_t> TransferFrame(const std::vector<uint8_t>& payload) {
  auto frame = bench::RequestFrame(kPort, payload);
  PutBe32(&frame[bench::kOuterSize + bench::kInnerSize], 0x1002);
  PutBe32(&frame[bench::kOuterSize + bench::kInnerSize + 4], 1);
  return frame;
}

void MakeFile(const std::string& path) {
  FILE* file = std::fopen(path.c_str(), "wb");
  bench::Require(file != nullptr, "file to send");
  const std::vector<uint8_t> content(kFileSize, 'x');
  bench::Require(std::fwrite(content.data(), 1, content.size(), file) == content.size(), "file to send");
  (void)std::fclose(file);
}

void SendRaw(const std::string& path) {
  const bench::RawClient client("127.0.0.5");
  std::vector<uint8_t> answer(kAnswerSize);
  const auto ask = [&](const std::vector<uint8_t>& payload) {
    client.Write(TransferFrame(payload));
    client.Read(answer.data(), answer.size());
    return &answer[bench::kOuterSize + bench::kInnerSize];
  };
  const std::string name = "raw.bin";
  std::vector<uint8_t> info(15 + name.size());
  info[0] = 1;
  info[2] = static_cast<uint8_t>(name.size());
  PutBe32(&info[3], kFileSize);
  PutBe32(&info[7], kChunk);
  PutBe32(&info[11], kChunks);
  std::copy(name.begin(), name.end(), &info[15]);
  const std::vector<uint8_t> handle(ask(info) + 1, answer.data() + bench::kOuterSize + bench::kInnerSize + 5);

  FILE* file = std::fopen(path.c_str(), "rb");
  bench::Require(file != nullptr, "file to send");
  std::vector<uint8_t> chunk(9 + kChunk);
  for (uint32_t number = 1; number <= kChunks; ++number) {
    chunk.resize(9 + kChunk);
    chunk.resize(9 + std::fread(&chunk[9], 1, kChunk, file));
    chunk[0] = number == kChunks ? 130 : 2;
    PutBe32(&chunk[1], number);
    std::copy(handle.begin(), handle.end(), &chunk[5]);
    const uint8_t* said = ask(chunk);
    bench::Require(said[5] == 0 && said[8] == 0, "raw chunk");
  }
  (void)std::fclose(file);
}

std::binary_semaphore g_done{0};

int32_t OnProgress(const ZelDeviceId*, uint32_t, float, uint32_t error, uint8_t state, void*) {
  bench::Require(error == 0, "library transfer");
  if (state == 2) g_done.release();
  return 0;
}

// Looks at the memory on the sending thread, every 64 chunks.
int32_t OnProgressWithMemory(const ZelDeviceId* device, uint32_t id, float progress, uint32_t error,
                             uint8_t state, void* most) {
  static int steps = 0;
  auto& mostKiB = *static_cast<long*>(most);
  if (steps++ % 64 == 0) mostKiB = std::max(mostKiB, bench::ResidentKiB());
  return OnProgress(device, id, progress, error, state, nullptr);
}

void SendLibrary(const std::string& path, FileTransferCallback callback = OnProgress, void* user = nullptr) {
  const ZelDeviceAddr target{bench::LocalDevice(0, 0, 5), kPort};
  (void)ZelFileTransfer(target, 0, 0, path.c_str(), "library.bin", callback, user);
  g_done.acquire();
}

// The connection and its worker have been there for some rounds: what comes on top belongs to the transfer.
void ReportMemory(FILE* out, const std::string& path) {
  const long before = bench::ResidentKiB();
  long most = before;
  SendLibrary(path, OnProgressWithMemory, &most);
  (void)std::fprintf(out, "%-30s %9ld KiB\n", "  memory on top while sending", most - before);
}

}  // namespace

int main(int argc, char** argv) {
  bench::Require(argc >= 3, "usage: bench_file_transfer LOG FOLDER [ROUNDS]");
  FILE* out = bench::MoveLogTo(argv[1]);
  const std::string path = std::string(argv[2]) + "/to-send";
  MakeFile(path);
  (void)libzel_init();
  const int rounds = argc > 3 ? std::atoi(argv[3]) : 9;
  bench::Row row{"file transfer", "MB/s", {}, {}};
  for (int round = 0; round <= rounds; ++round) {
    const double rawSec = bench::Seconds([&] { SendRaw(path); });
    const double librarySec = bench::Seconds([&] { SendLibrary(path); });
    if (round == 0) continue;  // warms both up, and makes the library's connection
    row.Add(kFileSize / librarySec / 1e6, kFileSize / rawSec / 1e6);
  }
  row.Print(out);
  ReportMemory(out, path);
  (void)libzel_destory();
  return std::fclose(out) == 0 ? 0 : 1;
}
