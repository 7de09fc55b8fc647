// Devices as the user names them, and the connection to one.
#pragma once

#include <libzel/libzel.hpp>

#include <string>

#include "Commands.h"
#include "Patience.h"

namespace zeltool {

// Four numbers from 0 to 255 joined by points.
bool IsAddress(const std::string& text);

// Empty when `text` may name a device, else what is wrong: for the command line's checks.
std::string CheckDevice(const std::string& text);
std::string CheckDeviceId(const std::string& text);

struct Opened {
  zel::DeviceId id;
  std::string host;
  zel::Connection connection;
};

enum class WhenDown { kFail, kGoOn };

// Finds a device by its identifier, its address, a host name, or its own name or serial number, and connects
// to its server. An identifier is first asked for at the address that it is made of; when another one is
// there, or nobody, it is looked for on the networks. Throws LibraryFailure with the reason when nothing is
// found, and with kFail when the server cannot be reached, but not before it was tried again as often as the
// user wants. With kGoOn the connection may be down.
Opened OpenDevice(const std::string& device, const Patience& patience, const Budget& budget, Context& context,
                  const zel::EventCallback& onEvent = {}, WhenDown whenDown = WhenDown::kFail);

// The address of a device that is named so, and is not connected to.
std::string FindHost(const std::string& device, const Patience& patience, const Budget& budget,
                     Context& context);

// What connects to an address whose device does not tell its identifier, once the route is pinned.
zel::DeviceId PlaceholderId(const std::string& address);

// True for a device's own name and serial numbers.
bool IsCalled(const zel::Device& device, const std::string& name);

// True when the server of a host takes a connection.
bool IsServerThere(const std::string& host, zel::Library& library);

bool IsUp(const zel::Connection& connection);

}  // namespace zeltool
