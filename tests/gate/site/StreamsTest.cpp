#include "Streams.h"

#include <gtest/gtest.h>

#include <chrono>

#include "GateProcess.h"
#include "PlainNats.h"
#include "SiteConfig.h"

namespace gatelab {
namespace {

using zelgate::Config;
using zelgate::Nats;
using zelgate::NatsResult;

constexpr std::chrono::seconds kPatience{40};

class StreamsTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    servers = new Servers;
    servers->StartAll();
    site = new Nats;
    hub = new Nats;
    ASSERT_TRUE(site->Start(ConfigOf("north", "north", "gate").nats, "test"));
    ASSERT_TRUE(hub->Start(ConfigOf("hub", "hub-1", "admin").nats, "test"));
    ASSERT_TRUE(site->WaitUntilUp(kPatience)) << Servers::Log("north");
    ASSERT_TRUE(hub->WaitUntilUp(kPatience)) << Servers::Log("hub-1");
  }
  static void TearDownTestSuite() {
    delete hub;
    delete site;
    delete servers;
  }

  // Servers that have just been started choose a leader first.
  static NatsResult MadeSoon(Nats& nats, const Config& config) {
    NatsResult result;
    (void)Until([&] { return (result = zelgate::MakeSiteStreams(nats, config)).IsOk(); });
    return result;
  }
  static NatsResult HubMadeSoon(const std::vector<std::string>& sites) {
    NatsResult result;
    zelgate::StreamConfig config;
    config.maxBytes = int64_t{64} << 20;
    config.replicas = 3;
    (void)Until([&] { return (result = zelgate::MakeHubStream(*hub, sites, config)).IsOk(); });
    return result;
  }

  static inline Servers* servers = nullptr;
  static inline Nats* site = nullptr;
  static inline Nats* hub = nullptr;
};

TEST_F(StreamsTest, ASiteGetsItsStreamAndItsBuckets) {
  const NatsResult made = MadeSoon(*site, ConfigOf("north", "north", "gate"));
  ASSERT_TRUE(made) << made.why;
  PlainNats plain("north", {"gate"});
  const auto info = plain.Stream("ZEL_EV_north");
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->Config->Discard, js_DiscardNew);
  EXPECT_EQ(info->Config->MaxBytes, int64_t{64} << 20);
  EXPECT_EQ(info->Config->Duplicates, 60'000'000'000);
  for (const char* const bucket : {"KV_zel_leases", "KV_zel_devices", "KV_zel_profiles"}) {
    EXPECT_NE(plain.Stream(bucket), nullptr) << bucket;
  }
}

TEST_F(StreamsTest, ASecondTimeChangesNothing) {
  const Config config = ConfigOf("north", "north", "gate");
  ASSERT_TRUE(MadeSoon(*site, config));
  PlainNats plain("north", {"gate"});
  ASSERT_TRUE(plain.PublishEvent("zel.north.ev.10-0-0-1-0-1.t.x", "kept"));
  const uint64_t before = plain.Count("ZEL_EV_north");
  const NatsResult again = zelgate::MakeSiteStreams(*site, config);
  EXPECT_TRUE(again) << again.why;
  EXPECT_EQ(plain.Count("ZEL_EV_north"), before);
}

TEST_F(StreamsTest, AnotherSizeIsTakenOver) {
  Config config = ConfigOf("north", "north", "gate");
  ASSERT_TRUE(MadeSoon(*site, config));
  config.stream.maxBytes *= 2;
  const NatsResult made = zelgate::MakeSiteStreams(*site, config);
  ASSERT_TRUE(made) << made.why;
  zelgate::StreamUse use;
  ASSERT_TRUE(zelgate::ReadStreamUse(*site, "ZEL_EV_north", use));
  EXPECT_EQ(use.maxBytes, uint64_t{128} << 20);
}

TEST_F(StreamsTest, MoreThanTheServerHasIsRefusedWithACure) {
  Config config = ConfigOf("north", "north", "gate");
  ASSERT_TRUE(MadeSoon(*site, config));
  config.stream.maxBytes = int64_t{1} << 45;
  const NatsResult made = zelgate::MakeSiteStreams(*site, config);
  EXPECT_FALSE(made);
  EXPECT_NE(made.why.find("lower stream.max_bytes"), std::string::npos) << made.why;
}

TEST_F(StreamsTest, ReplicasThatASingleServerCannotHaveAreRefusedWithACure) {
  Config config = ConfigOf("north", "north", "gate");
  ASSERT_TRUE(MadeSoon(*site, config));
  config.stream.replicas = 3;
  const NatsResult made = zelgate::MakeSiteStreams(*site, config);
  EXPECT_FALSE(made);
  EXPECT_NE(made.why.find("lower stream.replicas"), std::string::npos) << made.why;
}

TEST_F(StreamsTest, AStreamOfTheNameWithOtherSubjectsIsLeftAlone) {
  PlainNats plain("south", {"gate"});
  Nats nats;
  ASSERT_TRUE(nats.Start(ConfigOf("south", "south", "gate").nats, "test"));
  ASSERT_TRUE(nats.WaitUntilUp(kPatience));
  jsStreamConfig config;
  (void)jsStreamConfig_Init(&config);
  const char* subject = "other.>";
  config.Name = "ZEL_EV_south";
  config.Subjects = &subject;
  config.SubjectsLen = 1;
  ASSERT_TRUE(
      Until([&] { return js_AddStream(nullptr, plain.JetStream(), &config, nullptr, nullptr) == NATS_OK; }));
  const NatsResult made = zelgate::MakeSiteStreams(nats, ConfigOf("south", "south", "gate"));
  EXPECT_FALSE(made);
  EXPECT_NE(made.why.find("none of zelgate's"), std::string::npos) << made.why;
  EXPECT_STREQ(plain.Stream("ZEL_EV_south")->Config->Subjects[0], "other.>");
  ASSERT_EQ(js_DeleteStream(plain.JetStream(), "ZEL_EV_south", nullptr, nullptr), NATS_OK);
}

TEST_F(StreamsTest, TheHubHasWhatASiteHas) {
  ASSERT_TRUE(MadeSoon(*site, ConfigOf("north", "north", "gate")));
  const NatsResult made = HubMadeSoon({"north", "south"});
  ASSERT_TRUE(made) << made.why;
  PlainNats plain("north", {"gate"});
  ASSERT_TRUE(plain.PublishEvents("zel.north.ev.10-0-0-1-0-1.t.", 0, 100, 10));
  const uint64_t wanted = plain.Count("ZEL_EV_north");
  zelgate::StreamUse use;
  EXPECT_TRUE(Until([&] {
    return zelgate::ReadStreamUse(*hub, zelgate::kHubStream, use) && use.messages == wanted;
  })) << use.messages
      << " of " << wanted;
}

TEST_F(StreamsTest, ASiteMayJoinTheHubLater) {
  ASSERT_TRUE(HubMadeSoon({"north"}));
  const NatsResult made = HubMadeSoon({"north", "south"});
  ASSERT_TRUE(made) << made.why;
  Nats nats;
  ASSERT_TRUE(nats.Start(ConfigOf("south", "south", "gate").nats, "test"));
  ASSERT_TRUE(nats.WaitUntilUp(kPatience));
  ASSERT_TRUE(MadeSoon(nats, ConfigOf("south", "south", "gate")));
  PlainNats plain("south", {"gate"});
  zelgate::StreamUse use;
  ASSERT_TRUE(zelgate::ReadStreamUse(*hub, zelgate::kHubStream, use));
  const uint64_t before = use.messages;
  ASSERT_TRUE(plain.PublishEvents("zel.south.ev.10-0-0-1-0-1.t.", 0, 100, 10));
  EXPECT_TRUE(Until(
      [&] { return zelgate::ReadStreamUse(*hub, zelgate::kHubStream, use) && use.messages >= before + 100; },
      std::chrono::seconds(90)))
      << use.messages - before;
}

TEST_F(StreamsTest, TheHubsStreamIsMadeByACommand) {
  const std::string path = WriteSiteConfig("hub-1", "", "admin");
  GateResult result{};
  EXPECT_TRUE(Until([&] {
    return (result = RunGate({"hub", "--config", path, "north", "south"})).status == 0;
  })) << result.errors;
  EXPECT_EQ(result.output,
            "The stream ZEL_ALL at nats://hub-1.zel.example:4222 takes the events of: north, south\n");
}

TEST_F(StreamsTest, ANameThatIsNoSiteIsRefusedByTheCommand) {
  const GateResult result = RunGate({"hub", "--config", WriteSiteConfig("hub-1", "", "admin"), "north.>"});
  EXPECT_EQ(result.status, 2);
  EXPECT_NE(result.errors.find("'north.>' is no name of a site"), std::string::npos) << result.errors;
}

TEST_F(StreamsTest, AUserWithoutThePermissionIsToldSo) {
  Nats nats;
  ASSERT_TRUE(nats.Start(ConfigOf("north", "north", "reader").nats, "test"));
  ASSERT_TRUE(nats.WaitUntilUp(kPatience));
  Config config = ConfigOf("north", "north", "reader");
  config.site = "elsewhere";
  const NatsResult made = zelgate::MakeSiteStreams(nats, config);
  EXPECT_FALSE(made);
  EXPECT_NE(made.why.find("cannot make the stream ZEL_EV_elsewhere"), std::string::npos) << made.why;
}

TEST(StreamUseTest, FourFifthsAreNearlyFull) {
  EXPECT_FALSE((zelgate::StreamUse{1, 799, 1000}).IsNearlyFull());
  EXPECT_TRUE((zelgate::StreamUse{1, 800, 1000}).IsNearlyFull());
  EXPECT_FALSE((zelgate::StreamUse{1, 800, 0}).IsNearlyFull()) << "without a limit";
}

}  // namespace
}  // namespace gatelab
