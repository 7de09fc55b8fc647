#include "Lookup.h"

#include <algorithm>
#include <memory>

#include "Failure.h"

namespace zeltool {
namespace {

// For others that answer to the same name or identifier.
constexpr double kTwinSec = 0.3;
constexpr double kTickSec = 0.05;

[[noreturn]] void FailDiscovery(const std::string& reason) {
  throw LibraryFailure(
      "devices cannot be looked for: " + reason, ZEL_E_RESOURCE,
      "Is an adapter up, does another program hold UDP port 38897? zel doctor says more. A device's "
      "address works all the same.");
}

}  // namespace

void StartDiscovery(zel::Library& library) {
  library.StartDiscovery().Ignore();  // what follows has the reason
  RequireDiscovery(library);
}

void RequireDiscovery(const zel::Library& library) {
  const zel::DiscoveryState state = library.Discovery();
  if (!state.isRunning) FailDiscovery(state.reason);
  if (state.adapters == 0) FailDiscovery("no network adapter has an address");
}

std::vector<zel::Device> LookFor(Context& context, const DeviceTest& isWanted, zel::Milliseconds time,
                                 const std::function<bool()>& isOver) {
  StartDiscovery(*context.library);
  const auto found = std::make_shared<Mailbox<zel::Device>>(context.stopper);
  context.library->OnDevice([found](const zel::Device& device) { found->Put(device); }).Ignore();
  context.library->StartScan().Ignore();
  std::vector<zel::Device> wanted;
  Deadline end = After(std::chrono::duration<double>(time).count());
  while (Clock::now() < *end && !context.stopper.IsRequested() && !(isOver && isOver())) {
    const auto device = found->Take(std::min(*end, After(kTickSec)));
    if (!device || !isWanted(*device)) continue;
    const auto isSame = [&](const zel::Device& other) { return other.address == device->address; };
    if (std::any_of(wanted.begin(), wanted.end(), isSame)) continue;
    if (wanted.empty()) end = std::min(*end, After(kTwinSec));
    wanted.push_back(*device);
  }
  context.library->StopScan().Ignore();
  found->Close();
  context.library->OnDevice(nullptr).Ignore();
  return wanted;
}

zel::ValueOf<zel::DeviceId> AskIdentifier(const std::string& host, zel::Milliseconds time) {
  const auto half = std::max(time / 2, zel::Milliseconds(1));
  auto answer = zel::DeviceId::Of(host, half);
  if (answer.Code() == ZEL_E_TIMEOUT) answer = zel::DeviceId::Of(host, half);
  return answer;
}

}  // namespace zeltool
