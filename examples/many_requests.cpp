// Several threads ask a device on one connection, while one more request is not waited for.
//
//   many_requests DEVICE PORT SLOW_PORT
//
// Each thread asks PORT, where a device answers with what it was sent, and counts the answers that are right.
// SLOW_PORT is asked without waiting, and given up when the threads are done. Exit status: 0 all were right,
// 1 they were not, 2 usage.
#include <atomic>
#include <cstdlib>
#include <iostream>
#include <libzel/libzel.hpp>
#include <sstream>
#include <thread>

namespace {

constexpr int kThreads = 4;
constexpr int kQuestions = 100;
constexpr std::chrono::seconds kTimeout{5};

// In one piece: the library's failures go there, too, from other threads.
void Say(const std::string& text) { std::cerr << text + "\n"; }

void Explain(const zel::Answer& answer) {
  std::ostringstream text;
  text << (answer.IsAnswered() ? "the device refused: " : "no answer: ") << answer << " " << answer.Reason()
       << (answer.MayBeSent() ? ", may be sent" : ", not sent");
  Say(text.str());
}

int Ask(zel::Connection& connection, uint16_t port, int thread) {
  for (int i = 0; i < kQuestions; ++i) {
    const std::string question = "thread " + std::to_string(thread) + " asks " + std::to_string(i);
    const zel::Answer answer = connection.Request(port, {1, 2}, question, kTimeout);
    if (!answer) Explain(answer);
    if (!answer || zel::Bytes(*answer).AsText() != question) return i;
  }
  return kQuestions;
}

int AskAll(zel::Connection& connection, uint16_t port) {
  std::atomic<int> right{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] { right += Ask(connection, port, i); });
  }
  for (auto& thread : threads) thread.join();
  return right;
}

}  // namespace

int main(int argc, char** argv) {
  const auto device = argc == 4 ? zel::DeviceId::Parse(argv[1]) : std::nullopt;
  if (!device) {
    Say("usage: many_requests DEVICE PORT SLOW_PORT");
    return 2;
  }
  zel::Library library;
  auto connection = zel::Connection::Create(*device);
  if (!connection) return 1;
  const auto port = [&](int i) { return static_cast<uint16_t>(std::atoi(argv[i])); };

  // The callback runs once, on the connection's receive thread, unless Cancel gives true.
  const auto slow =
      connection->RequestAsync(port(3), {1, 2}, "slow", kTimeout, [](const zel::Answer& answer) {
        if (!answer) return Explain(answer);
        Say("the slow one answered " + std::to_string(answer->size()) + " bytes");
      });
  const int right = AskAll(*connection, port(2));
  if (connection->Cancel(*slow)) Say("the slow one was given up");
  Say(std::to_string(right) + " of " + std::to_string(kThreads * kQuestions) + " answers were right");
  return right == kThreads * kQuestions ? 0 : 1;
}
