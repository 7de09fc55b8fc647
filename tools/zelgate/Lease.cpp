#include "Lease.h"

#include <unistd.h>

#include <array>
#include <cctype>
#include <random>
#include <utility>

namespace zelgate {

std::string MakeHolderName() {
  std::array<char, 64> host{};
  if (gethostname(host.data(), host.size() - 1) != 0) host = {'h', 'o', 's', 't'};
  std::string name;
  for (const char* at = host.data(); *at != '\0'; ++at) {
    name += std::isalnum(static_cast<unsigned char>(*at)) != 0 || *at == '-' ? *at : '_';
  }
  std::random_device random;
  std::array<char, 16> unique{};
  (void)std::snprintf(unique.data(), unique.size(), "%08x", random());
  return name + "-" + std::to_string(getpid()) + "-" + unique.data();
}

NatsResult Lease::Step() {
  const auto now = GateClock::now();
  if (revision_ && !term_.IsValid(now)) Lose();
  if (!revision_) return isLost_ && afterLoss_ == AfterLoss::kGiveUp ? NatsResult() : Take(now);
  if (now - *renewedAt_ < kRenewEvery) return {};
  return Renew(now);
}

NatsResult Lease::Renew(GateClock::time_point now) {
  renewedAt_ = now;
  uint64_t revision = 0;
  const std::string written = value_;
  NatsResult result = bucket_.Update(key_, written, *revision_, revision);
  if (result) {
    Hold(revision, written, now);
    return {};
  }
  if (!IsConflict(result)) return result;  // tried again in a second, as long as it is held
  // An earlier renewal whose answer was lost made this revision, or somebody else has the key.
  KeyEntry entry;
  const NatsResult read = bucket_.Get(key_, entry);
  const bool isOurs = read && (entry.value == written_ || entry.value == written);
  if (isOurs) {
    revision_ = entry.revision;
    written_ = entry.value;
    renewedAt_ = now - kRenewEvery;  // at once, again
    return {};
  }
  if (read || read.code == NATS_NOT_FOUND) Lose();
  return result;
}

NatsResult Lease::Take(GateClock::time_point now) {
  KeyEntry entry;
  NatsResult read = bucket_.Get(key_, entry);
  if (read) return TakeOver(entry, now);
  other_.clear();
  if (read.code != NATS_NOT_FOUND) return read;
  watch_.Forget(key_);
  uint64_t revision = 0;
  const NatsResult made = bucket_.Create(key_, value_, revision);
  if (made) Hold(revision, value_, now);
  return made || IsConflict(made) ? NatsResult() : made;
}

NatsResult Lease::TakeOver(const KeyEntry& entry, GateClock::time_point now) {
  other_ = entry.value;
  watch_.See(key_, entry.revision, now);
  if (watch_.Over(now).empty()) return {};
  uint64_t revision = 0;
  const NatsResult taken = bucket_.Update(key_, value_, entry.revision, revision);
  if (taken) Hold(revision, value_, now);
  return taken || IsConflict(taken) ? NatsResult() : taken;
}

void Lease::Hold(uint64_t revision, const std::string& written, GateClock::time_point askedAt) {
  isLost_ = false;
  revision_ = revision;
  written_ = written;
  renewedAt_ = askedAt;
  other_.clear();
  term_.Renew(askedAt);
}

void Lease::Lose() {
  isLost_ = true;
  revision_.reset();
  renewedAt_.reset();
  term_.End();
  watch_.Forget(key_);
}

NatsResult Lease::Release() {
  if (!revision_) return {};
  // Not by revision: between our last write and this one nobody else has had the time to take it.
  const bool isOurs = term_.IsValid(GateClock::now());
  Lose();
  return isOurs ? bucket_.Delete(key_) : NatsResult();
}

}  // namespace zelgate
