// Beyond the letter: why links failed, and what has been counted.

#include "libzel/CodeGuard.h"
#include "libzel/Structures.h"
#include "libzel/libzelx.h"

using namespace libzel;

namespace {

constexpr size_t kFirstStatsSize = 152;

libzelx_Stats StatsOf(const Counts& counts) {
  libzelx_Stats stats{};
  stats.framesIn = counts.Of(Count::kFramesIn);
  stats.framesOut = counts.Of(Count::kFramesOut);
  stats.bytesIn = counts.Of(Count::kBytesIn);
  stats.bytesOut = counts.Of(Count::kBytesOut);
  stats.connects = counts.Of(Count::kConnects);
  stats.failedConnects = counts.Of(Count::kFailedConnects);
  stats.losses = counts.Of(Count::kLosses);
  stats.lateAnswers = counts.Of(Count::kLateAnswers);
  stats.shortHeaders = counts.Of(Count::kShortHeaders);
  stats.badLengths = counts.Of(Count::kBadLengths);
  stats.shortBodies = counts.Of(Count::kShortBodies);
  stats.badRecords = counts.Of(Count::kBadRecords);
  stats.noPort = counts.Of(Count::kNoPort);
  stats.noTopic = counts.Of(Count::kNoTopic);
  stats.tooLong = counts.Of(Count::kTooLong);
  stats.stalledWrites = counts.Of(Count::kStalledWrites);
  return stats;
}

libzelx_Stats StatsOfProcess() {
  libzelx_Stats stats = StatsOf(ConnectionNotes::ReadAll());
  for (const auto& connection : CPeerConnMgr::Instance().AllInstances()) {
    stats.connected += connection->IsConnected() ? 1 : 0;
    stats.inFlight += static_cast<CTcpclient&>(*connection).requests().InFlight();
  }
  return stats;
}

libzelx_Stats StatsOf(CTcpclient& connection) {
  const auto link = connection.PresentLink();
  libzelx_Stats stats = StatsOf(connection.notes().Read());
  stats.connected = link->connected() ? 1 : 0;
  stats.inFlight = connection.requests().InFlight();
  stats.connectedMs = link->ConnectedMs();
  return stats;
}

}  // namespace

int32_t libzelx_lastFailure(ZelInstance instance, char* text, size_t size) {
  return WithConnection(instance, [&](CTcpclient& connection) -> int32_t {
    if (text == nullptr || size == 0) return ZEL_E_PARAM;
    CopyText(connection.notes().Failure(), text, size);
    return ZEL_OK;
  });
}

int32_t libzelx_getStats(ZelInstance instance, libzelx_Stats* out) {
  if (instance == 0) {
    return GuardCode([&]() -> int32_t {
      return FillStructure(StatsOfProcess(), kFirstStatsSize, out) ? ZEL_OK : ZEL_E_PARAM;
    });
  }
  return WithConnection(instance, [&](CTcpclient& connection) -> int32_t {
    return FillStructure(StatsOf(connection), kFirstStatsSize, out) ? ZEL_OK : ZEL_E_PARAM;
  });
}
