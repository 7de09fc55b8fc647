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
#include <thread>

namespace {

constexpr int kThreads = 4;
constexpr int kQuestions = 100;
constexpr std::chrono::seconds kTimeout{5};

void Explain(const zel::Answer& answer) {
  std::cerr << (answer.IsAnswered() ? "the device refused: " : "no answer: ") << answer.Text() << " ("
            << answer.Code() << ") " << answer.Reason()
            << (answer.MayBeSent() ? ", may be sent\n" : ", not sent\n");
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
    std::cerr << "usage: many_requests DEVICE PORT SLOW_PORT\n";
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
        std::cerr << "the slow one answered " << answer->size() << " bytes\n";
      });
  const int right = AskAll(*connection, port(2));
  if (connection->Cancel(*slow)) std::cerr << "the slow one was given up\n";
  std::cerr << right << " of " << kThreads * kQuestions << " answers were right\n";
  return right == kThreads * kQuestions ? 0 : 1;
}
