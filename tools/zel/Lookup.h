// Looks for devices on the networks: by discovery, and by asking one host.
#pragma once

#include <libzel/libzel.hpp>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Commands.h"

namespace zeltool {

// Throws LibraryFailure when discovery cannot run: a port is taken, there is no network.
void StartDiscovery(zel::Library& library);
void RequireDiscovery(const zel::Library& library);

using DeviceTest = std::function<bool(const zel::Device&)>;

// The devices that `isWanted` is true for, one for each address. Returns soon after the first, and with none
// when the time is over or `isOver` says so.
std::vector<zel::Device> LookFor(Context& context, const DeviceTest& isWanted, zel::Milliseconds time,
                                 const std::function<bool()>& isOver = {});

// Asks a host for its identifier, again when the first question or its answer seems lost. A failure has the
// code of the last answer, or ZEL_E_TIMEOUT.
zel::ValueOf<zel::DeviceId> AskIdentifier(const std::string& host, zel::Milliseconds time);

}  // namespace zeltool
