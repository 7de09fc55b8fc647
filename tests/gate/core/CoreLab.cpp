#include "CoreLab.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>
#include <utility>

#include "DeviceTable.h"
#include "Streams.h"
#include "Subjects.h"
#include "Verdict.h"

namespace gatecore {
namespace {

const std::string kSite = "core";
const std::string kUrl = "nats://127.0.0.1:4222";

std::string LabFolder() {
  const char* const lab = std::getenv("ZEL_LAB");
  return lab != nullptr ? lab : "/nowhere";
}

std::string NextPath(const std::string& name) {
  static int last = 0;
  return LabFolder() + "/" + name + std::to_string(++last);
}

std::string ReadText(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

[[noreturn]] void Become(std::vector<std::string>& words, const std::string& errors) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const int file = open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (file < 0 || dup2(file, STDERR_FILENO) < 0 || dup2(file, STDOUT_FILENO) < 0) _exit(96);
  (void)execvp(arguments[0], arguments.data());
  _exit(95);
}

}  // namespace

bool Until(const std::function<bool()>& holds, std::chrono::milliseconds most) {
  const auto end = std::chrono::steady_clock::now() + most;
  while (!holds()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

// ---- Child ------------------------------------------------------------------------------------------------

Child::Child(std::vector<std::string> words, std::string name) : path_(NextPath(name) + ".err") {
  process_ = fork();
  if (process_ == 0) Become(words, path_);
}

Child::~Child() {
  if (HasEnded()) return;
  Signal(SIGKILL);
  (void)waitpid(process_, nullptr, 0);
}

void Child::Signal(int number) const { (void)kill(process_, number); }

bool Child::HasEnded() {
  int status = 0;
  if (status_ == -1 && waitpid(process_, &status, WNOHANG) == process_) {
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  }
  return status_ != -1;
}

void Child::Stop() const {
  Signal(SIGSTOP);
  siginfo_t info{};
  (void)waitid(P_PID, static_cast<id_t>(process_), &info, WSTOPPED | WEXITED | WNOWAIT);
}

int Child::Wait() {
  (void)Until([this] { return HasEnded(); });
  return status_;
}

bool Child::Says(const std::string& text) const {
  return Until([&] { return Errors().find(text) != std::string::npos; });
}

std::string Child::Errors() const { return ReadText(path_); }

// ---- The site ---------------------------------------------------------------------------------------------

SiteLab::SiteLab() : folder_(NextPath("site")) {
  StartServer();
  zelgate::Config config;
  config.site = kSite;
  config.nats.urls = {kUrl};
  config.stream.maxBytes = int64_t{64} << 20;
  EXPECT_TRUE(nats_.Start(config.nats, "test").IsOk());
  EXPECT_TRUE(nats_.WaitUntilUp(std::chrono::seconds(30)));
  zelgate::NatsResult made;
  EXPECT_TRUE(Until([&] { return (made = zelgate::MakeSiteStreams(nats_, config)).IsOk(); })) << made.why;
  EXPECT_TRUE(devices_.Open(nats_, zelgate::kDeviceBucket).IsOk());
  EXPECT_TRUE(profiles_.Open(nats_, zelgate::kProfileBucket).IsOk());
}

SiteLab::~SiteLab() = default;

void SiteLab::StartServer() {
  server_ = std::make_unique<Child>(
      std::vector<std::string>{"nats-server", "-js", "-sd", folder_ + ".js", "-a", "127.0.0.1", "-p", "4222"},
      "nats");
}

void SiteLab::KillServer() { server_.reset(); }

std::unique_ptr<Child> SiteLab::StartGate(const std::string& name) {
  const std::string path = NextPath(name) + ".toml";
  std::ofstream(path) << "site = \"" << kSite << "\"\n[nats]\nurls = [\"" << kUrl
                      << "\"]\n[stream]\nmax_bytes = 67108864\n"
                      << more_;
  const char* const program = std::getenv("ZEL_GATE");
  return std::make_unique<Child>(
      std::vector<std::string>{program != nullptr ? program : "zelgate", "run", "--config", path}, name);
}

void SiteLab::AddDevice(const std::string& address, const std::string& twin) {
  zelgate::DeviceFinding finding;
  finding.id = address + ".0.1";
  finding.address = address;
  finding.name = "press-" + address.substr(address.rfind('.') + 1);
  finding.serial = "S" + finding.name;
  if (!twin.empty()) finding.twins = {address, twin};
  const zelgate::NatsResult put =
      devices_.Put(zelgate::FindingKey(TokenOf(address)), zelgate::ToJson(finding));
  EXPECT_TRUE(put.IsOk()) << put.why;
}

void SiteLab::RemoveDevice(const std::string& address) {
  EXPECT_TRUE(devices_.Delete(zelgate::FindingKey(TokenOf(address))).IsOk());
}

void SiteLab::SetProfile(const std::string& name, const std::string& json) {
  const zelgate::NatsResult put = profiles_.Put(name, json);
  EXPECT_TRUE(put.IsOk()) << put.why;
}

std::string SiteLab::TokenOf(const std::string& address) { return *zelgate::DeviceToken(address + ".0.1"); }

std::string SiteLab::LinkOf(const std::string& address) {
  zelgate::KeyEntry entry;
  return devices_.Get(zelgate::LinkKey(TokenOf(address)), entry).IsOk() ? entry.value : "";
}

bool SiteLab::IsUp(const std::string& address) {
  const auto link = zelgate::ParseLink(LinkOf(address));
  return link && link->state == zelgate::LinkState::kUp;
}

// ---- Events -----------------------------------------------------------------------------------------------

std::string SiteLab::EventSubject(const std::string& address, const std::string& rest) const {
  return "zel." + kSite + ".ev." + TokenOf(address) + "." + rest;
}

std::vector<StreamEvent> SiteLab::Events(const std::string& subject) {
  std::vector<StreamEvent> events;
  jsSubOptions options;
  (void)jsSubOptions_Init(&options);
  options.Ordered = true;
  natsSubscription* raw = nullptr;
  if (js_SubscribeSync(&raw, nats_.JetStream(), subject.c_str(), nullptr, &options, nullptr) != NATS_OK)
    return events;
  const std::unique_ptr<natsSubscription, zelgate::NatsDeleter<natsSubscription_Destroy>> subscription(raw);
  const uint64_t count = CountEvents(subject);
  while (events.size() < count) {
    natsMsg* got = nullptr;
    if (natsSubscription_NextMsg(&got, raw, 5000) != NATS_OK) break;
    const zelgate::NatsMessage message(got);
    events.push_back({std::string(message.Subject()), std::string(message.Data()),
                      message.Header("Nats-Msg-Id"), message.Header("Zel-Group"),
                      message.Header("Zel-Offset"), message.Header("Zel-Time"), message.Header("Zel-Seq")});
  }
  return events;
}

uint64_t SiteLab::CountEvents(const std::string& subject) {
  jsOptions options;
  (void)jsOptions_Init(&options);
  options.Stream.Info.SubjectsFilter = subject.c_str();
  jsStreamInfo* raw = nullptr;
  const std::string stream = zelgate::EventStreamName(kSite);
  if (js_GetStreamInfo(&raw, nats_.JetStream(), stream.c_str(), &options, nullptr) != NATS_OK) return 0;
  const std::unique_ptr<jsStreamInfo, zelgate::NatsDeleter<jsStreamInfo_Destroy>> info(raw);
  uint64_t count = 0;
  const jsStreamStateSubjects* const subjects = info->State.Subjects;
  for (int i = 0; subjects != nullptr && i < subjects->Count; ++i) count += subjects->List[i].Msgs;
  return count;
}

// ---- Requests ---------------------------------------------------------------------------------------------

Reply SiteLab::RequestOf(zelgate::NatsMessage& message, std::chrono::milliseconds patience) {
  zelgate::NatsMessage answer;
  Reply reply;
  reply.status = nats_.Request(message, patience, answer).code;
  if (!answer) return reply;
  reply.verdict = answer.Header(zelgate::kVerdictHeader);
  reply.error = answer.Header(zelgate::kErrorHeader);
  reply.reason = answer.Header(zelgate::kReasonHeader);
  reply.data = answer.Data();
  return reply;
}

Reply SiteLab::Ask(const std::string& address, int port, std::string_view data, const std::string& timeout,
                   std::chrono::milliseconds patience) {
  const zelgate::Subjects subjects(kSite);
  zelgate::NatsMessage message(subjects.Ask(TokenOf(address), static_cast<uint16_t>(port), 1, 2), "", data);
  if (!timeout.empty()) message.SetHeader(zelgate::kTimeoutHeader, timeout);
  return RequestOf(message, patience);
}

Reply SiteLab::Publish(const std::string& address, const std::string& topic, std::string_view data) {
  const zelgate::Subjects subjects(kSite);
  zelgate::NatsMessage message(*subjects.Publication(TokenOf(address), topic), "", data);
  message.SetHeader(zelgate::kGroupHeader, "7");
  message.SetHeader(zelgate::kOffsetHeader, "8");
  return RequestOf(message, std::chrono::seconds(20));
}

}  // namespace gatecore
