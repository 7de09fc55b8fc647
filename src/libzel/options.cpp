// Beyond the letter: the options by their numbers, their ranges, and what protects.
#include "utils/Options.h"

#include <span>

#include "libzel/CodeGuard.h"
#include "libzel/libzelx.h"

using namespace libzel;

namespace {

constexpr int64_t kMost = INT32_MAX;

enum class When { kBeforeInit, kAnyTime };

struct Range {
  int64_t least;
  int64_t most;
};
constexpr Range kSwitch{0, 1};
constexpr Range kNumber{0, kMost};

template <typename Options>
struct Row {
  int64_t number;
  Setting Options::*setting;
  Range range;
  int64_t protective;
  When when = When::kAnyTime;
};

constexpr Row<ProcessOptions> kProcessRows[] = {
    {LIBZELX_DISCOVERY, &ProcessOptions::discovery, kSwitch, 0, When::kBeforeInit},
    {LIBZELX_CHECK_XML, &ProcessOptions::checkXml, kSwitch, 1, When::kBeforeInit},
    {LIBZELX_DROP_BAD_ANSWERS, &ProcessOptions::dropBadAnswers, kSwitch, 1},
    {LIBZELX_CHECK_SENDER, &ProcessOptions::checkSender, kSwitch, 1},
    {LIBZELX_MAX_ROUTES, &ProcessOptions::maxRoutes, kNumber, 100000},
    {LIBZELX_KEEP_ROUTES, &ProcessOptions::keepRoutes, kSwitch, 1},
    {LIBZELX_ALL_ADAPTERS, &ProcessOptions::allAdapters, kSwitch, 0},
    {LIBZELX_DISCOVERY_RETRY_MS, &ProcessOptions::discoveryRetryMs, kNumber, 5000},
    {LIBZELX_FILE_DROP_UNOPENED, &ProcessOptions::fileDropUnopened, kSwitch, 1},
    {LIBZELX_FILE_TOTAL_MS, &ProcessOptions::fileTotalMs, kNumber, 3600000},
    {LIBZELX_FILE_WORKERS, &ProcessOptions::fileWorkers, {1, 64}, 1},
};

constexpr Row<InstanceOptions> kInstanceRows[] = {
    {LIBZELX_WRITE_STALL_MS, &InstanceOptions::writeStallMs, kNumber, 5000},
    {LIBZELX_CLOSE_WAIT_MS, &InstanceOptions::closeWaitMs, kNumber, 1000},
    {LIBZELX_HEADER_WAIT_MS, &InstanceOptions::headerWaitMs, {1, kMost}, 30000},
    {LIBZELX_BODY_WAIT_MS, &InstanceOptions::bodyWaitMs, kNumber, 30000},
    {LIBZELX_JITTER_PERCENT, &InstanceOptions::jitterPercent, {0, 100}, 50},
    {LIBZELX_RECONNECT_MAX_SEC, &InstanceOptions::reconnectMaxSec, kNumber, 60},
    {LIBZELX_MAX_BODY, &InstanceOptions::maxBody, {0, kMaxReceivedBody}, kMaxReceivedBody},
    {LIBZELX_DEAD_PEER_MS, &InstanceOptions::deadPeerMs, kNumber, 30000},
    {LIBZELX_FOLLOW_ROUTE, &InstanceOptions::followRoute, kSwitch, 1},
};

template <typename Options>
const Row<Options>* Find(std::span<const Row<Options>> rows, int32_t number) {
  for (const auto& row : rows) {
    if (row.number == number) return &row;
  }
  return nullptr;
}

template <typename Options>
void Protect(std::span<const Row<Options>> rows, Options& options) {
  for (const auto& row : rows) (options.*row.setting).Set(row.protective);
}

template <typename Options>
int32_t Set(const Row<Options>& row, Options& options, int64_t value) {
  if (value < row.range.least || value > row.range.most) return ZEL_E_PARAM;
  if (row.when == When::kBeforeInit && OptionsOfProcess().hasStarted) return LIBZELX_E_TOO_LATE;
  (options.*row.setting).Set(value);
  return ZEL_OK;
}

// Runs `use` with the row of an option and the options that it is one of; gives its code.
template <typename Use>
int32_t WithOption(ZelInstance instance, int32_t number, Use use, ExportSite site = ExportSite::Here()) {
  const auto give = [site](auto body) { return GuardCode(body, site); };
  if (const auto* const row = Find<ProcessOptions>(kProcessRows, number)) {
    return give([&] { return instance == 0 ? use(*row, OptionsOfProcess()) : ZEL_E_HANDLE; });
  }
  const auto* const row = Find<InstanceOptions>(kInstanceRows, number);
  if (row == nullptr) return give([] { return ZEL_E_PARAM; });
  if (instance == 0) return give([&] { return use(*row, OptionsOfNewInstances()); });
  const auto ofInstance = [&](CTcpclient& connection) { return use(*row, connection.options()); };
  return WithConnection(instance, ofInstance, site);
}

}  // namespace

int32_t libzelx_setOption(ZelInstance instance, int32_t option, int64_t value) {
  const int32_t result = WithOption(
      instance, option, [value](const auto& row, auto& options) { return Set(row, options, value); });
  if (result != ZEL_OK || instance == 0) return result;
  return WithConnection(instance, [](CTcpclient& connection) {
    connection.OptionsChanged();
    return ZEL_OK;
  });
}

int32_t libzelx_getOption(ZelInstance instance, int32_t option, int64_t* value) {
  return WithOption(instance, option, [value](const auto& row, auto& options) -> int32_t {
    if (value == nullptr) return ZEL_E_PARAM;
    *value = options.*row.setting;
    return ZEL_OK;
  });
}

int32_t libzelx_protect() {
  return GuardCode([]() -> int32_t {
    if (OptionsOfProcess().hasStarted) return LIBZELX_E_TOO_LATE;
    Protect<ProcessOptions>(kProcessRows, OptionsOfProcess());
    Protect<InstanceOptions>(kInstanceRows, OptionsOfNewInstances());
    return ZEL_OK;
  });
}
