// A direct request over UDP, library against a raw socket, to a process that answers at once:
//   bench_direct_request LOG [ROUNDS]
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>

#include "Support.h"

namespace {

constexpr uint16_t kDirectPort = 38898;
constexpr const char* kHost = "127.0.0.4";
constexpr int kRequests = 4000;
constexpr size_t kRequestSize = bench::kRequestOverhead;
constexpr size_t kAnswerSize = bench::kOuterSize + bench::kInnerSize + sizeof(ZelDeviceId);

sockaddr_in Address() {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(kDirectPort);
  address.sin_addr.s_addr = inet_addr(kHost);
  return address;
}

int OpenSocket() {
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  bench::Require(fd >= 0, "socket");
  return fd;
}

// Answers each request with an identifier, under the request's invoke identifier.
[[noreturn]] void Answer(int fd) {
  std::array<uint8_t, 2048> buffer;
  for (;;) {
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    (void)recvfrom(fd, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&peer), &size);
    buffer[4] = kAnswerSize - bench::kOuterSize;
    std::memset(&buffer[kAnswerSize - sizeof(ZelDeviceId)], 7, sizeof(ZelDeviceId));
    (void)sendto(fd, buffer.data(), kAnswerSize, 0, reinterpret_cast<sockaddr*>(&peer), size);
  }
}

class Responder {
 public:
  Responder() {
    const int fd = OpenSocket();
    const sockaddr_in address = Address();
    bench::Require(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "bind");
    pid_ = fork();
    bench::Require(pid_ >= 0, "fork");
    if (pid_ == 0) {
      (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
      Answer(fd);
    }
    (void)close(fd);
  }
  ~Responder() {
    (void)kill(pid_, SIGKILL);
    (void)waitpid(pid_, nullptr, 0);
  }
  Responder(const Responder&) = delete;
  Responder& operator=(const Responder&) = delete;

 private:
  pid_t pid_ = -1;
};

// As the library does it: a socket for each request, a wait, one receive.
void AskRaw() {
  const auto frame = bench::RequestFrame(101, {});
  static_assert(kRequestSize == 29);
  const sockaddr_in address = Address();
  const int fd = OpenSocket();
  (void)sendto(fd, frame.data(), frame.size(), 0, reinterpret_cast<const sockaddr*>(&address),
               sizeof address);
  std::array<uint8_t, 4096> answer;
  bench::Require(recv(fd, answer.data(), answer.size(), 0) == static_cast<ssize_t>(kAnswerSize),
                 "raw answer");
  (void)close(fd);
}

void AskLibrary() {
  ZelDeviceId id;
  bench::Require(libzel_getRemoteZelDeviceId(kHost, 1000, &id) == 0 && id.bytes[0] == 7, "library answer");
}

}  // namespace

int main(int argc, char** argv) {
  bench::Require(argc >= 2, "usage: bench_direct_request LOG [ROUNDS]");
  FILE* out = bench::MoveLogTo(argv[1]);
  const Responder responder;
  (void)libzel_init();
  const int rounds = argc > 2 ? std::atoi(argv[2]) : 15;
  bench::Row row{"direct request", "us", {}, {}};
  for (int round = 0; round <= rounds; ++round) {
    const auto many = [](void (*ask)()) {
      return bench::Seconds([&] {
        for (int i = 0; i < kRequests; ++i) ask();
      });
    };
    const double rawSec = many(AskRaw);
    const double librarySec = many(AskLibrary);
    if (round == 0) continue;  // warms both up
    row.Add(librarySec * 1e6 / kRequests, rawSec * 1e6 / kRequests);
  }
  row.Print(out);
  (void)libzel_destory();
  return std::fclose(out) == 0 ? 0 : 1;
}
