// A key in the bucket of leases that one process at a time holds: it renews the key every second, and others
// take it when it has not changed for long enough. Every write names the revision that it replaces, so that
// of two only one wins.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "LeaseTerm.h"
#include "Nats.h"

namespace zelgate {

inline constexpr const char* kLeaseBucket = "zel_leases";

// "host-1234-19ab3c": this process, and nobody else ever. A token of subjects.
std::string MakeHolderName();

// What a holder does that has lost its lease.
enum class AfterLoss { kTakeAgain, kGiveUp };

// One thread calls Step; any may ask the term, which must outlive this.
class Lease {
 public:
  // `value` is what others see in the key; it must tell this holder from all others.
  Lease(KeyValue& bucket, LeaseTerm& term, std::string key, std::string value, AfterLoss afterLoss)
      : bucket_(bucket), term_(term), key_(std::move(key)), value_(std::move(value)), afterLoss_(afterLoss) {}

  // What is to be done now: renews, takes or waits. To be called every quarter of a second or so. A failure
  // is worth a line in the log; what is held stays held until its time is over.
  NatsResult Step();
  bool IsValid() const { return term_.IsValid(GateClock::now()); }
  // It was held, and is not any more.
  bool IsLost() const { return isLost_; }
  // For the next renewal. It must still tell this holder from all others.
  void SetValue(std::string value) { value_ = std::move(value); }
  // Lets others have it at once.
  NatsResult Release();
  // Somebody else's value while it is not held; empty when nobody has it.
  const std::string& OtherHolder() const { return other_; }

 private:
  NatsResult Renew(GateClock::time_point now);
  NatsResult Take(GateClock::time_point now);
  NatsResult TakeOver(const KeyEntry& entry, GateClock::time_point now);
  void Hold(uint64_t revision, const std::string& written, GateClock::time_point askedAt);
  void Lose();

  KeyValue& bucket_;
  LeaseTerm& term_;
  std::string key_;
  std::string value_;
  AfterLoss afterLoss_;
  bool isLost_ = false;
  std::string written_;  // what the key has when it is ours
  std::string other_;
  LeaseWatch watch_;
  std::optional<uint64_t> revision_;  // while it is held
  std::optional<GateClock::time_point> renewedAt_;
};

}  // namespace zelgate
