#include "NetLab.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace zelsim::test {
namespace {

bool g_private = false;

bool WriteFile(const std::string& path, const std::string& text) {
  std::ofstream file(path);
  file << text;
  return file.flush().good();
}

sockaddr_in SystemAddress(const char* address, uint16_t port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_port = htons(port);
  inet_pton(AF_INET, address, &result.sin_addr);
  return result;
}

bool BecomeRootOfOwnUsers() {
  const auto user = std::to_string(getuid());
  const auto group = std::to_string(getgid());
  return unshare(CLONE_NEWUSER) == 0 && WriteFile("/proc/self/setgroups", "deny") &&
         WriteFile("/proc/self/uid_map", "0 " + user + " 1") &&
         WriteFile("/proc/self/gid_map", "0 " + group + " 1");
}

}  // namespace

bool EnterPrivateNetwork() {
  if (unshare(CLONE_NEWNET) != 0 && !(BecomeRootOfOwnUsers() && unshare(CLONE_NEWNET) == 0)) return false;
  g_private = std::system("ip link set lo up") == 0;
  return g_private;
}

void RunCommand(const std::string& command) { ASSERT_EQ(std::system(command.c_str()), 0) << command; }

Host::Host() : thread_([this] { Live(); }) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return threadId_ != 0; });
}

Host::~Host() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void Host::Live() {
  const bool apart = unshare(CLONE_NEWNET) == 0;
  std::unique_lock lock(mutex_);
  EXPECT_TRUE(apart);
  threadId_ = static_cast<pid_t>(syscall(SYS_gettid));
  changed_.notify_all();
  while (!ending_) {
    changed_.wait(lock, [this] { return ending_ || task_ != nullptr; });
    if (task_ != nullptr) (*task_)();
    task_ = nullptr;
    changed_.notify_all();
  }
}

void Host::Do(const std::function<void()>& task) {
  std::unique_lock lock(mutex_);
  task_ = &task;
  changed_.notify_all();
  changed_.wait(lock, [this] { return task_ == nullptr; });
}

void Host::Command(const std::string& command) {
  Do([&] { RunCommand(command); });
}

UdpClient::UdpClient(const char* address, uint16_t port)
    : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  const int on = 1;
  const int room = 4 * 1024 * 1024;
  setsockopt(socket_, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
  setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
  const sockaddr_in local = SystemAddress(address, port);
  EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr*>(&local), sizeof local), 0);
}

UdpClient::~UdpClient() { close(socket_); }

void UdpClient::SendTo(ByteView bytes, const char* address, uint16_t port) {
  const sockaddr_in to = SystemAddress(address, port);
  const ssize_t count =
      sendto(socket_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  EXPECT_EQ(count, static_cast<ssize_t>(bytes.size()));
}

void UdpClient::MulticastVia(const char* address, int ttl) {
  const in_addr interface = SystemAddress(address, 0).sin_addr;
  EXPECT_EQ(setsockopt(socket_, IPPROTO_IP, IP_MULTICAST_IF, &interface, sizeof interface), 0);
  EXPECT_EQ(setsockopt(socket_, IPPROTO_IP, IP_MULTICAST_TTL, &ttl, sizeof ttl), 0);
}

std::optional<Received> UdpClient::Receive(int ms) {
  pollfd waiting{.fd = socket_, .events = POLLIN, .revents = 0};
  if (poll(&waiting, 1, ms) != 1) return std::nullopt;
  sockaddr_in from{};
  socklen_t size = sizeof from;
  Received received{.from = {}, .port = 0, .bytes = Bytes(65536)};
  const ssize_t count = recvfrom(socket_, received.bytes.data(), received.bytes.size(), 0,
                                 reinterpret_cast<sockaddr*>(&from), &size);
  if (count < 0) return std::nullopt;
  char text[INET_ADDRSTRLEN];
  received.from = inet_ntop(AF_INET, &from.sin_addr, text, sizeof text);
  received.port = ntohs(from.sin_port);
  received.bytes.resize(static_cast<size_t>(count));
  return received;
}

uint16_t UdpClient::Port() const {
  sockaddr_in local{};
  socklen_t size = sizeof local;
  getsockname(socket_, reinterpret_cast<sockaddr*>(&local), &size);
  return ntohs(local.sin_port);
}

void TwoHosts::SetUp() {
  if (!g_private) GTEST_SKIP() << "this system does not allow a private network";
  host_ = std::make_unique<Host>();
  RunCommand("ip link add zsa type veth peer name zsb");
  RunCommand("ip link set zsb netns " + std::to_string(host_->ThreadId()));
  RunCommand("ip addr add 10.77.0.1/16 brd + dev zsa && ip link set zsa up");
  RunCommand("ip route add default via 10.77.0.2");
  host_->Command("ip link set lo up && ip addr add 10.77.0.2/16 brd + dev zsb && ip link set zsb up");
  // The system takes a moment to see that the cable is in; until then it drops what is sent.
  const std::string untilUp =
      "i=0; until ip link show %s | grep -q 'state UP'; do i=$((i+1)); [ $i -lt 500 ] || exit 1; "
      "sleep 0.02; done";
  RunCommand(std::string(untilUp).replace(untilUp.find("%s"), 2, "zsa"));
  host_->Command(std::string(untilUp).replace(untilUp.find("%s"), 2, "zsb"));
}

void TwoHosts::TearDown() {
  device_.reset();
  if (host_) RunCommand("ip link del zsa");
  host_.reset();
}

void TwoHosts::StartDevice(std::vector<std::string> arguments) {
  arguments.insert(arguments.end(), {"--trace", directory_.Path() + "/trace"});
  host_->Do([&] { device_ = std::make_unique<RunningSimulator>(arguments); });
}

std::vector<std::string> TwoHosts::TraceLines(std::initializer_list<std::string_view> pieces) const {
  std::istringstream trace(ReadTextFile(directory_.Path() + "/trace"));
  std::vector<std::string> lines;
  for (std::string line; std::getline(trace, line);) {
    bool all = true;
    for (const std::string_view piece : pieces) all = all && line.find(piece) != line.npos;
    if (all) lines.push_back(line);
  }
  return lines;
}

}  // namespace zelsim::test
