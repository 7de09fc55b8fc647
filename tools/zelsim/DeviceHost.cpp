#include "DeviceHost.h"

namespace zelsim {

DeviceHost::DeviceHost(asio::io_context& loop, DeviceOptions options, Trace& trace)
    : options_(std::move(options)),
      discovery_(loop,
                 {.fleet = options_.fleet,
                  .description = options_.description,
                  .faults = options_.faults,
                  .answerSpread = options_.answerSpread},
                 trace),
      direct_(loop, options_.fleet, options_.faults, trace) {}

std::string DeviceHost::Open() {
  if (options_.fleet.Empty()) return {};
  std::string problem = direct_.Open();
  if (!problem.empty() || !options_.discovery) return problem;
  return discovery_.Open(options_.interfaces);
}

void DeviceHost::Close() {
  discovery_.Close();
  direct_.Close();
}

}  // namespace zelsim
