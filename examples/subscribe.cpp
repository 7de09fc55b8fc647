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

int main(int argc, char** argv) {
  const auto device = argc == 3 || argc == 4 ? zel::DeviceId::Parse(argv[1]) : std::nullopt;
  if (!device) {
    std::cerr << "usage: subscribe DEVICE TOPIC [COUNT]\n";
    return 2;
  }
  zel::Library library;
  zel::Connection::Options options;
  options.onEvent = [](const zel::DeviceId& server, zel::Event event) {
    if (event == zel::Event::kConnected) std::cerr << "connected to " << server.ToString() << "\n";
    if (event == zel::Event::kDisconnected) std::cerr << "lost " << server.ToString() << "\n";
  };

  // What the callback refers to is declared before the connection, and so outlives it.
  int left = argc == 4 ? std::atoi(argv[3]) : 10;
  std::promise<void> done;
  auto connection = zel::Connection::Create(*device, options);
  if (!connection || !connection->StartLoop()) {
    std::cerr << connection.Code() << ": " << connection.Text() << "\n";
    return 1;
  }
  const zel::Result subscribed = connection->Subscribe(argv[2], [&](const zel::TopicMessage& message) {
    if (left <= 0) return;
    std::cerr << message.topic << ": " << message.data.AsText() << "\n";
    if (--left == 0) done.set_value();
  });
  // Not fatal: the topic is subscribed when the connection is there.
  if (!subscribed) std::cerr << subscribed.Code() << ": " << subscribed.Text() << "\n";
  done.get_future().wait();
  return 0;
}
