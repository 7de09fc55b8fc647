// Every message of the devices, counted from the device to the hub, while servers and gateways are killed
// with -9 and the network is parted. $ZEL_LEDGER_ROUNDS says how many faults; 4 when it is not set.
//
// Port 700 of each device ticks, with a number that counts from 1 on each connection. So in the hub's stream
// the numbers of a device go up by one; they begin with 1 again where the stream says that the link is a new
// one; and a number may be left out only where the stream says that there is a gap.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "DeviceTable.h"
#include "GateProcess.h"
#include "PlainNats.h"
#include "Servers.h"

namespace gatelab {
namespace {

constexpr int kDevices = 20;
constexpr const char* kSiteStream = "ZEL_EV_north";
constexpr const char* kAll = "ZEL_ALL";
constexpr std::chrono::seconds kLong{90};

int Rounds() {
  const char* const text = std::getenv("ZEL_LEDGER_ROUNDS");
  return text != nullptr ? std::atoi(text) : 4;
}

std::string Address(int device) { return "127.0.1." + std::to_string(device); }

struct LedgerEvent {
  std::string subject;
  std::string data;
  bool operator==(const LedgerEvent&) const = default;
};
using Ledger = std::map<std::string, std::vector<LedgerEvent>>;  // by device

// All of a stream. Each message costs a round trip.
Ledger ReadLedger(PlainNats& nats, const std::string& stream, uint64_t last) {
  Ledger ledger;
  for (uint64_t i = 1; i <= last; ++i) {
    PlainMessage message;
    if (!Until([&] { return (message = nats.StreamMessage(stream, i)) != nullptr; })) {
      ADD_FAILURE() << "no message " << i << " in " << stream;
      return ledger;
    }
    const std::string subject = natsMsg_GetSubject(message.get());
    const size_t begin = std::string("zel.north.ev.").size();
    const std::string device = subject.substr(begin, subject.find('.', begin) - begin);
    ledger[device].push_back(
        {subject, std::string(natsMsg_GetData(message.get()),
                              static_cast<size_t>(natsMsg_GetDataLength(message.get())))});
  }
  return ledger;
}

struct Verdict {
  uint64_t ticks = 0;
  uint64_t links = 0;
  uint64_t gaps = 0;
};

// Goes through a device's events; every fault of order is a failure.
Verdict Judge(const std::string& device, const std::vector<LedgerEvent>& events) {
  Verdict verdict;
  uint64_t last = 0;
  bool isFresh = true;  // a new link, or a gap: the next number may be another one
  for (const LedgerEvent& event : events) {
    if (event.subject.ends_with(".link")) {
      const auto text = nlohmann::json::parse(event.data, nullptr, false);
      const bool isGap = text.value("event", "") == "gap";
      ++(isGap ? verdict.gaps : verdict.links);
      isFresh = true;
      continue;
    }
    const uint64_t number = std::stoull(event.data);
    ++verdict.ticks;
    if (number != last + 1 && !(isFresh && (number == 1 || number > last))) {
      ADD_FAILURE() << device << ": " << number << " behind " << last
                    << (isFresh ? ", after a link event" : ", with nothing said");
    }
    last = number;
    isFresh = false;
  }
  return verdict;
}

class LedgerTest : public testing::Test {
 protected:
  void SetUp() override {
    servers_.StartAll();
    gates_.push_back(StartGate());
    gates_.push_back(StartGate());
    north_ = std::make_unique<PlainNats>("north", Access{"gate"});
    hub_ = std::make_unique<PlainNats>("hub", Access{"admin"});
    ASSERT_EQ(north_->Status(), NATS_OK) << Servers::Log("north");
    ASSERT_EQ(hub_->Status(), NATS_OK) << Servers::Log("hub-1");
    PutDevices();
    // Behind [stream]: the hub goes on without any one of its servers.
    const std::string config = WriteSiteConfig("hub-1", "replicas = 3\n", "admin");
    ASSERT_TRUE(Until([&] { return RunGate({"hub", "--config", config, "north"}).status == 0; }));
    ASSERT_TRUE(Grows(200)) << gates_[0]->Errors();
  }

  std::unique_ptr<GateProcess> StartGate() const {
    return std::make_unique<GateProcess>(std::vector<std::string>{"run", "--config", config_});
  }

  void PutDevices() {
    ASSERT_TRUE(Until([&] { return north_->Stream("KV_zel_profiles") != nullptr; })) << gates_[0]->Errors();
    ASSERT_TRUE(
        north_->PublishEvent("$KV.zel_profiles.all", R"({"ports": [{"port": 700, "policy": "block"}]})"));
    for (int i = 1; i <= kDevices; ++i) {
      const std::string token = "127-0-1-" + std::to_string(i) + "-0-1";
      const zelgate::DeviceFinding finding = {Address(i) + ".0.1", Address(i), "", "", false, {}};
      ASSERT_TRUE(north_->PublishEvent("$KV.zel_devices." + zelgate::FindingKey(token), ToJson(finding)));
    }
  }

  // So many more events are at the hub.
  bool Grows(uint64_t by) {
    const uint64_t before = AtHub();
    return Until([&] { return AtHub() >= before + by; }, kLong);
  }
  // The last count that could be read: servers are away now and then.
  uint64_t AtHub() {
    atHub_ = std::max(atHub_, hub_->Count(kAll));
    return atHub_;
  }

  void Fault(int round) {
    const std::string hub = "hub-" + std::to_string(round / 4 % 3 + 1);
    switch (round % 4) {
      case 0:
        gates_[static_cast<size_t>(round / 4 % 2)] = StartGate();  // the earlier one is killed with -9
        break;
      case 1:
        servers_.Kill("north");
        servers_.Start("north");
        break;
      case 2:
        servers_.Kill(hub);
        EXPECT_TRUE(Grows(50)) << "without " << hub;
        servers_.Start(hub);
        break;
      default: PartAWhile();
    }
  }

  // Until the site's stream has gone on without the hub.
  void PartAWhile() {
    Servers::PartFromHub("north");
    const uint64_t before = north_->Count(kSiteStream);
    EXPECT_TRUE(Until([&] { return north_->Count(kSiteStream) >= before + 200; }, kLong));
    Servers::JoinToHub("north");
  }

  std::string config_ = WriteSiteConfig("north");
  Servers servers_;
  std::vector<std::unique_ptr<GateProcess>> gates_;
  std::unique_ptr<PlainNats> north_;
  std::unique_ptr<PlainNats> hub_;
  uint64_t atHub_ = 0;
};

TEST_F(LedgerTest, NothingAcknowledgedIsLostAndOrderIsKept) {
  for (int round = 0; round < Rounds(); ++round) {
    Fault(round);
    ASSERT_TRUE(Grows(200)) << "after fault " << round << "\n" << gates_[0]->Errors() << gates_[1]->Errors();
  }
  for (const auto& gate : gates_) {
    gate->Signal(SIGTERM);
    EXPECT_EQ(gate->Wait(), 0) << gate->Errors();
  }
  const uint64_t last = north_->Count(kSiteStream);
  ASSERT_TRUE(Until([&] { return AtHub() == last; }, kLong)) << AtHub() << " of " << last;
  const Ledger hub = ReadLedger(*hub_, kAll, last);
  EXPECT_EQ(hub, ReadLedger(*north_, kSiteStream, last)) << "the hub has something else than the site";
  EXPECT_EQ(hub.size(), static_cast<size_t>(kDevices));
  Verdict all;
  for (const auto& [device, events] : hub) {
    const Verdict verdict = Judge(device, events);
    all.ticks += verdict.ticks;
    all.links += verdict.links;
    all.gaps += verdict.gaps;
  }
  std::cout << Rounds() << " faults: " << all.ticks << " messages, " << all.links << " link events, "
            << all.gaps << " gaps\n";
}

}  // namespace
}  // namespace gatelab
