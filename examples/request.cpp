// Asks a device and prints its answer.
//
//   request DEVICE PORT TEXT
//
// DEVICE is an identifier (192.168.1.20.0.1), PORT the router port of whoever answers there. Prints on
// standard error, where the library's failures go, too. Exit status: 0 answered, 1 an error, 2 usage.
#include <cstdlib>
#include <iostream>
#include <libzel/libzel.hpp>

namespace {

// In one piece: the library's failures go there, too, from other threads.
void Say(const std::string& text) { std::cerr << text + "\n"; }

}  // namespace

int main(int argc, char** argv) {
  const auto device = argc == 4 ? zel::DeviceId::Parse(argv[1]) : std::nullopt;
  if (!device) {
    Say("usage: request DEVICE PORT TEXT");
    return 2;
  }
  zel::Library library;
  auto connection = zel::Connection::Create(*device);
  if (!connection) {
    Say(std::to_string(connection.Code()) + ": " + connection.Text());
    return 1;
  }
  const auto port = static_cast<uint16_t>(std::atoi(argv[2]));
  const auto answer = connection->Request(port, {1, 2}, argv[3], std::chrono::seconds(2));
  if (!answer) {
    Say(std::to_string(answer.Code()) + ": " + answer.Text());
    if (!answer.Reason().empty()) Say(answer.Reason());
    return 1;
  }
  Say(std::string(zel::Bytes(*answer).AsText()));
  return 0;
}
