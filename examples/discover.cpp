// Lists the devices on the networks of this machine.
//
//   discover [SECONDS]
//
// Looks for 5 seconds or as told and prints each device once, on standard error. Exit status: 0 found some, 1
// none or an error.
#include <cstdlib>
#include <iostream>
#include <libzel/libzel.hpp>
#include <set>

int main(int argc, char** argv) {
  const std::chrono::seconds duration(argc > 1 ? std::atoi(argv[1]) : 5);
  // Only the scan thread touches it until the callback is gone, and that goes with the library.
  std::set<std::string> seen;
  zel::Library library;
  if (!library.Start()) {
    std::cerr << library.Start().Text() << "\n";
    return 1;
  }
  library.OnDevice([&seen](const zel::Device& device) {
    if (!seen.insert(device.idText + " " + device.address).second) return;
    std::cerr << device.idText << "  " << device.address << "  " << device.hostName << "  "
              << device.protocolVersion << "\n";
  });
  if (const zel::Result started = library.StartScan(); !started) {
    std::cerr << started << ": " << library.Discovery().reason << "\n";
    return 1;
  }
  std::this_thread::sleep_for(duration);
  library.StopScan();
  library.OnDevice(nullptr);
  return seen.empty() ? 1 : 0;
}
