// Prints what is published on a topic, and when the connection is lost and found again.
//
//   subscribe DEVICE TOPIC [COUNT]
//
// Ends after COUNT publications (default 10), each of which it prints on standard error. Exit status: 0 all
// seen, 1 an error, 2 usage.
#include <cstdlib>
#include <future>
#include <iostream>
#include <libzel/libzel.hpp>

namespace {

// In one piece: the library's failures go there, too, from other threads.
void Say(const std::string& text) { std::cerr << text + "\n"; }

}  // namespace

int main(int argc, char** argv) {
  const auto device = argc == 3 || argc == 4 ? zel::DeviceId::Parse(argv[1]) : std::nullopt;
  if (!device) {
    Say("usage: subscribe DEVICE TOPIC [COUNT]");
    return 2;
  }
  zel::Library library;
  zel::Connection::Options options;
  options.onEvent = [](const zel::DeviceId& server, zel::Event event) {
    if (event == zel::Event::kConnected) Say("connected to " + server.ToString());
    if (event == zel::Event::kDisconnected) Say("lost " + server.ToString());
  };

  // What the callback refers to is declared before the connection, and so outlives it.
  int left = argc == 4 ? std::atoi(argv[3]) : 10;
  std::promise<void> done;
  auto connection = zel::Connection::Create(*device, options);
  if (!connection || !connection->StartLoop()) {
    Say(std::to_string(connection.Code()) + ": " + connection.Text());
    return 1;
  }
  const zel::Result subscribed = connection->Subscribe(argv[2], [&](const zel::TopicMessage& message) {
    if (left <= 0) return;
    Say(std::string(message.topic) + ": " + std::string(message.data.AsText()));
    if (--left == 0) done.set_value();
  });
  // Not fatal: the topic is subscribed when the connection is there.
  if (!subscribed) Say(std::to_string(subscribed.Code()) + ": " + subscribed.Text());
  done.get_future().wait();
  return 0;
}
