#include "Support.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace zelsim::test {
namespace {

constexpr int kBoundSeconds = 5;

void AppendLe(Bytes& to, uint64_t value, int count) {
  for (int i = 0; i < count; ++i) to.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

void AppendBe(Bytes& to, uint64_t value, int count) {
  for (int i = count - 1; i >= 0; --i) to.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

uint32_t BigEndian(const Bytes& bytes, size_t at, size_t count) {
  uint32_t value = 0;
  for (size_t i = 0; i < count && at + i < bytes.size(); ++i) value = value << 8 | bytes[at + i];
  return value;
}

}  // namespace

Bytes FromText(std::string_view text) { return Bytes(text.begin(), text.end()); }
std::string ToText(ByteView bytes) { return std::string(bytes.begin(), bytes.end()); }

Bytes Join(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Bytes BuildRequest(const RequestSpec& spec) {
  Bytes bytes{0, 1};
  AppendLe(bytes, spec.port, 2);
  AppendLe(bytes, spec.payload.size() + 21, 4);
  AppendBe(bytes, 0, 4);
  AppendBe(bytes, spec.invokeId, 4);
  AppendBe(bytes, spec.cmd, 2);
  AppendBe(bytes, 0, 3);
  AppendBe(bytes, spec.idGroup, 4);
  AppendBe(bytes, spec.idOffset, 4);
  bytes.insert(bytes.end(), spec.payload.begin(), spec.payload.end());
  return bytes;
}

Bytes BuildRecord(std::string_view verb, std::string_view topic, std::string_view data, uint32_t idGroup,
                  uint32_t idOffset) {
  Bytes bytes;
  for (const auto text : {verb, topic, data}) AppendLe(bytes, text.size(), 8);
  for (const auto text : {verb, topic, data}) {
    bytes.insert(bytes.end(), text.begin(), text.end());
    bytes.push_back(0);
  }
  AppendLe(bytes, idGroup, 4);
  AppendLe(bytes, idOffset, 4);
  return bytes;
}

Bytes BuildTopicRequest(std::string_view verb, std::string_view topic, std::string_view data,
                        uint32_t idGroup, uint32_t idOffset) {
  return BuildRequest({.port = 103,
                       .invokeId = 77,
                       .payload = BuildRecord(verb, topic, data, idGroup, idOffset),
                       .idGroup = idGroup,
                       .idOffset = idOffset});
}

uint32_t Frame::Error() const { return BigEndian(body, 0, 4); }
uint32_t Frame::InvokeId() const { return BigEndian(body, 4, 4); }
uint16_t Frame::Cmd() const { return static_cast<uint16_t>(BigEndian(body, 8, 2)); }
std::string Frame::Payload() const { return body.size() < 13 ? "" : ToText(ByteView(body).subspan(13)); }

RawClient::RawClient(uint16_t port, const char* address)
    : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const timeval bound{.tv_sec = kBoundSeconds, .tv_usec = 0};
  const int on = 1;
  setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound);
  setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  inet_pton(AF_INET, address, &to.sin_addr);
  EXPECT_EQ(connect(socket_, reinterpret_cast<const sockaddr*>(&to), sizeof to), 0) << "errno " << errno;
}

RawClient::~RawClient() { close(socket_); }

void RawClient::Send(ByteView bytes) {
  while (!bytes.empty()) {
    const ssize_t count = send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return;  // the server may have ended the connection; the test looks at what it reads
    bytes = bytes.subspan(static_cast<size_t>(count));
  }
}

void RawClient::HalfClose() { shutdown(socket_, SHUT_WR); }

std::optional<Bytes> RawClient::Read(size_t count) {
  Bytes bytes(count);
  size_t done = 0;
  while (done < count) {
    const ssize_t got = recv(socket_, bytes.data() + done, count - done, 0);
    if (got == 0) end_ = End::kClosed;
    if (got < 0 && errno == ECONNRESET) end_ = End::kReset;
    if (got <= 0) return std::nullopt;
    done += static_cast<size_t>(got);
  }
  return bytes;
}

std::optional<Frame> RawClient::ReadFrame() {
  const auto head = Read(8);
  if (!head) return std::nullopt;
  const Bytes& bytes = *head;
  Frame frame{.version = bytes[1], .port = static_cast<uint16_t>(bytes[2] | bytes[3] << 8)};
  for (size_t i = 8; i > 4; --i) frame.length = frame.length << 8 | bytes[i - 1];
  auto body = Read(frame.length);
  if (!body) return std::nullopt;
  frame.body = std::move(*body);
  return frame;
}

Bytes RawClient::ReadAll() {
  Bytes all;
  while (auto byte = Read(1)) all.push_back((*byte)[0]);
  return all;
}

bool RawClient::StaysSilent(int ms) {
  pollfd waiting{.fd = socket_, .events = POLLIN, .revents = 0};
  return poll(&waiting, 1, ms) == 0;
}

std::optional<Options> OptionsFrom(std::vector<std::string> arguments, std::string* errors) {
  std::vector<const char*> argv{"zelsim"};
  for (const std::string& argument : arguments) argv.push_back(argument.c_str());
  std::ostringstream out;
  int exitCode = 0;
  auto options = ParseOptions(static_cast<int>(argv.size()), argv.data(), out, out, exitCode);
  if (errors != nullptr) *errors = out.str();
  return options;
}

RunningSimulator::RunningSimulator(std::vector<std::string> arguments) {
  std::string errors;
  const auto options = OptionsFrom(std::move(arguments), &errors);
  if (!options) throw std::runtime_error(errors);
  simulator_ = std::make_unique<Simulator>(*options);
  const std::string problem = simulator_->Start();
  if (!problem.empty()) throw std::runtime_error(problem);
  thread_ = std::thread([this] { simulator_->Run(); });
}

RunningSimulator::~RunningSimulator() { Stop(); }

void RunningSimulator::Stop() {
  if (!thread_.joinable()) return;
  simulator_->RequestStop();
  thread_.join();
}

uint16_t RunningSimulator::Port(size_t listener) const {
  return simulator_->LocalEndpoints().at(listener).port();
}

TemporaryDirectory::TemporaryDirectory() {
  std::string form = std::filesystem::temp_directory_path() / "zelsim-test-XXXXXX";
  path_ = mkdtemp(form.data()) == nullptr ? "" : form;
  EXPECT_FALSE(path_.empty());
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string ReadTextFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

}  // namespace zelsim::test
