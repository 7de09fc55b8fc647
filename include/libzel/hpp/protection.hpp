/// @file
/// The options of the library, and of one connection. Included by libzel.hpp.
#pragma once

#include <libzel/hpp/basics.hpp>

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace zel {

/// Options that are a number, or 0 and 1. \ref beyond tells what each does.
enum class Option : int32_t {
  kDiscovery = LIBZELX_DISCOVERY,                  ///< of the process, in the first Library's Options only
  kCheckXml = LIBZELX_CHECK_XML,                   ///< of the process, in the first Library's Options only
  kDropBadAnswers = LIBZELX_DROP_BAD_ANSWERS,      ///< of the process
  kCheckSender = LIBZELX_CHECK_SENDER,             ///< of the process
  kMaxRoutes = LIBZELX_MAX_ROUTES,                 ///< of the process
  kKeepRoutes = LIBZELX_KEEP_ROUTES,               ///< of the process
  kAllAdapters = LIBZELX_ALL_ADAPTERS,             ///< of the process
  kFileDropUnopened = LIBZELX_FILE_DROP_UNOPENED,  ///< of the process
  kFileWorkers = LIBZELX_FILE_WORKERS,             ///< of the process
  kJitterPercent = LIBZELX_JITTER_PERCENT,         ///< of a connection
  kMaxBody = LIBZELX_MAX_BODY,                     ///< of a connection
  kFollowRoute = LIBZELX_FOLLOW_ROUTE,             ///< of a connection
};

/// Options that are a time.
enum class TimeOption : int32_t {
  kDiscoveryRetry = LIBZELX_DISCOVERY_RETRY_MS,  ///< of the process
  kFileTotal = LIBZELX_FILE_TOTAL_MS,            ///< of the process
  kWriteStall = LIBZELX_WRITE_STALL_MS,          ///< of a connection
  kCloseWait = LIBZELX_CLOSE_WAIT_MS,            ///< of a connection
  kHeaderWait = LIBZELX_HEADER_WAIT_MS,          ///< of a connection
  kBodyWait = LIBZELX_BODY_WAIT_MS,              ///< of a connection
  kReconnectMax = LIBZELX_RECONNECT_MAX_SEC,     ///< of a connection; in whole seconds, rounded up
  kDeadPeer = LIBZELX_DEAD_PEER_MS,              ///< of a connection
};

namespace detail {

inline int64_t OptionValue(TimeOption option, Milliseconds time) {
  if (option != TimeOption::kReconnectMax || IsNegative(time)) return time.count();
  return std::chrono::ceil<std::chrono::seconds>(time).count();
}

/// Instance 0: of the process, or what connections made later begin with.
inline Result SetOption(ZelInstance instance, Option option, int64_t value) {
  return Result(libzelx_setOption(instance, static_cast<int32_t>(option), value));
}
inline Result SetOption(ZelInstance instance, TimeOption option, Milliseconds time) {
  return Result(libzelx_setOption(instance, static_cast<int32_t>(option), OptionValue(option, time)));
}
inline ValueOf<int64_t> GetOption(ZelInstance instance, Option option) {
  int64_t value = 0;
  const Result result(libzelx_getOption(instance, static_cast<int32_t>(option), &value));
  return {result, value};
}
inline ValueOf<Milliseconds> GetOption(ZelInstance instance, TimeOption option) {
  int64_t value = 0;
  const Result result(libzelx_getOption(instance, static_cast<int32_t>(option), &value));
  return {result, option == TimeOption::kReconnectMax ? std::chrono::seconds(value) : Milliseconds(value)};
}

/// What a Library wants the library to begin with.
struct Protection {
  bool isByTheLetter = false;
  std::vector<std::pair<int32_t, int64_t>> values;
  bool hasNetworks = false;
  std::string peers;
  std::string adapters;

  bool IsDefault() const { return *this == Protection(); }

  /// Sets what can be set; gives the first failure.
  Result Apply() const {
    int32_t first = isByTheLetter ? ZEL_OK : libzelx_protect();
    const auto note = [&first](int32_t code) { first = first != ZEL_OK ? first : code; };
    for (const auto& [option, value] : values) note(libzelx_setOption(0, option, value));
    const auto textOrAll = [](const std::string& text) { return text.empty() ? nullptr : text.c_str(); };
    if (hasNetworks) note(libzelx_setNetworks(textOrAll(peers), textOrAll(adapters)));
    return Result(first);
  }

  friend bool operator==(const Protection& left, const Protection& right) {
    return left.isByTheLetter == right.isByTheLetter && left.values == right.values &&
           left.hasNetworks == right.hasNetworks && left.peers == right.peers &&
           left.adapters == right.adapters;
  }
};

}  // namespace detail

}  // namespace zel
