#include "zelclient/ScanLimits.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "utils/Forever.h"

namespace libzel {

namespace {

std::string_view WithoutBlanks(std::string_view text) {
  const size_t begin = text.find_first_not_of(' ');
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

// Without a list there are no elements, and with one at least one; it may be empty.
std::vector<std::string_view> Elements(const char* list) {
  std::vector<std::string_view> elements;
  if (list == nullptr) return elements;
  for (std::string_view rest = list;;) {
    const size_t comma = rest.find(',');
    elements.push_back(WithoutBlanks(rest.substr(0, comma)));
    if (comma == std::string_view::npos) return elements;
    rest.remove_prefix(comma + 1);
  }
}

}  // namespace

ScanLimits& ScanLimits::Instance() {
  static Forever<ScanLimits> limits;
  return *limits;
}

bool ScanLimits::Set(const char* peers, const char* adapters) {
  std::vector<Ipv4Network> networks;
  for (const std::string_view element : Elements(peers)) {
    const auto network = ParseIpv4Network(element);
    if (!network) return false;
    networks.push_back(*network);
  }
  std::vector<std::string> names;
  for (const std::string_view element : Elements(adapters)) {
    if (element.empty()) return false;
    names.emplace_back(element);
  }
  const MutexLock lock(mutex_);
  limitsPeers_ = peers != nullptr;
  peers_ = std::move(networks);
  adapters_ = std::move(names);
  return true;
}

bool ScanLimits::MayAnswer(const std::string& host) {
  const MutexLock lock(mutex_);
  if (!limitsPeers_) return true;
  const auto address = ParseIpv4(host);
  return address && std::ranges::any_of(peers_, [&](const auto& peer) { return peer.Contains(*address); });
}

bool ScanLimits::LimitsAdapters() {
  const MutexLock lock(mutex_);
  return !adapters_.empty();
}

bool ScanLimits::MayAsk(const AdapterRecord& adapter) {
  const MutexLock lock(mutex_);
  return adapters_.empty() || std::ranges::any_of(adapters_, [&](const std::string& name) {
           return name == adapter.name || name == adapter.ip;
         });
}

}  // namespace libzel
