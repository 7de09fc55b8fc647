// Sends a file to a device and shows how far it is.
//
//   send_file DEVICE PORT FILE REMOTE
//
// PORT is the device's port for files, REMOTE the name that the file gets there. Progress goes to standard
// error. Exit status: 0 sent, 1 an error, 2 usage.
#include <cstdlib>
#include <iostream>
#include <libzel/libzel.hpp>

int main(int argc, char** argv) {
  const auto device = argc == 5 ? zel::DeviceId::Parse(argv[1]) : std::nullopt;
  if (!device) {
    std::cerr << "usage: send_file DEVICE PORT FILE REMOTE\n";
    return 2;
  }
  zel::Library library;
  const auto port = static_cast<uint16_t>(std::atoi(argv[2]));
  auto transfer = zel::SendFile(*device, port, argv[3], argv[4], [](const zel::FileProgress& step) {
    std::cerr << "\r" << static_cast<int>(step.progress * 100) << " %";
    return true;
  });
  std::optional<zel::Result> result;
  while (!result) result = transfer.Wait(std::chrono::seconds(1));
  std::cerr << "\n" << (*result ? "sent" : result->Text()) << "\n";
  return *result ? 0 : 1;
}
