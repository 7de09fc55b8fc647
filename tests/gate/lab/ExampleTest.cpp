// What the example configurations of packaging/zelgate/nats promise, seen by programs that have nothing of
// zelgate.
#include <gtest/gtest.h>

#include <array>
#include <sstream>

#include "PlainNats.h"
#include "Servers.h"

namespace gatelab {
namespace {

constexpr const char* kAll = "ZEL_ALL";

bool MakeSiteStream(PlainNats& nats, const std::string& site, const std::string& also = "",
                    int replicas = 1) {
  const std::string name = "ZEL_EV_" + site;
  const std::string own = "zel." + site + ".ev.>";
  std::array<const char*, 2> subjects = {own.c_str(), also.c_str()};
  jsStreamConfig config;
  (void)jsStreamConfig_Init(&config);
  config.Name = name.c_str();
  config.Subjects = subjects.data();
  config.SubjectsLen = also.empty() ? 1 : 2;
  config.Replicas = replicas;
  return Until([&] { return js_AddStream(nullptr, nats.JetStream(), &config, nullptr, nullptr) == NATS_OK; });
}

bool MakeHubStream(PlainNats& nats) {
  const std::array<std::string, 2> names = {"ZEL_EV_north", "ZEL_EV_south"};
  const std::array<std::string, 2> filters = {"zel.north.>", "zel.south.>"};
  const std::array<std::string, 2> interfaces = {"$JS.north.API", "$JS.south.API"};
  const std::array<std::string, 2> deliveries = {"zel.sourced.north", "zel.sourced.south"};
  std::array<jsStreamSource, 2> sources;
  std::array<jsExternalStream, 2> external;
  std::array<jsStreamSource*, 2> list;
  for (size_t i = 0; i < 2; ++i) {
    (void)jsStreamSource_Init(&sources[i]);
    (void)jsExternalStream_Init(&external[i]);
    external[i].APIPrefix = interfaces[i].c_str();
    external[i].DeliverPrefix = deliveries[i].c_str();
    sources[i].Name = names[i].c_str();
    sources[i].FilterSubject = filters[i].c_str();
    sources[i].External = &external[i];
    list[i] = &sources[i];
  }
  jsStreamConfig config;
  (void)jsStreamConfig_Init(&config);
  config.Name = kAll;
  config.Sources = list.data();
  config.SourcesLen = 2;
  config.Replicas = 3;
  return Until([&] { return js_AddStream(nullptr, nats.JetStream(), &config, nullptr, nullptr) == NATS_OK; });
}

class ExampleTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    servers = new Servers;
    servers->StartAll();
    north = new PlainNats("north", {"gate"});
    south = new PlainNats("south", {"gate"});
    hub = new PlainNats("hub-1", {"admin"});
    ASSERT_EQ(north->Status(), NATS_OK) << Servers::Log("north");
    ASSERT_EQ(south->Status(), NATS_OK) << Servers::Log("south");
    ASSERT_EQ(hub->Status(), NATS_OK) << Servers::Log("hub-1");
    ASSERT_TRUE(MakeSiteStream(*north, "north"));
    ASSERT_TRUE(MakeSiteStream(*south, "south"));
    ASSERT_TRUE(MakeHubStream(*hub)) << nats_GetLastError(nullptr);
  }
  static void TearDownTestSuite() {
    delete hub;
    delete south;
    delete north;
    delete servers;
  }

  // How many of this site's events the hub has.
  static uint64_t AtHub(const std::string& site) {
    uint64_t count = 0;
    const uint64_t last = hub->Count(kAll);
    for (uint64_t i = 1; i <= last; ++i) {
      const auto message = hub->StreamMessage(kAll, i);
      if (message == nullptr) return 0;
      count += std::string(natsMsg_GetSubject(message.get())).starts_with("zel." + site + ".") ? 1U : 0U;
    }
    return count;
  }

  static inline Servers* servers = nullptr;
  static inline PlainNats* north = nullptr;
  static inline PlainNats* south = nullptr;
  static inline PlainNats* hub = nullptr;
};

// True when a hub's log has a line with both.
bool HubsSay(const std::string& one, const std::string& other) {
  for (const char* const hub : {"hub-1", "hub-2", "hub-3"}) {
    std::istringstream lines(Servers::Log(hub));
    for (std::string line; std::getline(lines, line);) {
      if (line.find(one) != std::string::npos && line.find(other) != std::string::npos) return true;
    }
  }
  return false;
}

TEST_F(ExampleTest, EventsOfBothSitesReachTheHub) {
  const uint64_t before = hub->Count(kAll);
  // More than what the servers let pass before they hear from the hub's side that it follows.
  ASSERT_TRUE(north->PublishEvents("zel.north.ev.10-0-0-1-0-1.t.", 0, 4000, 2000));
  ASSERT_TRUE(south->PublishEvents("zel.south.ev.10-0-0-2-0-1.t.", 0, 4000, 2000));
  EXPECT_TRUE(Until([&] { return hub->Count(kAll) == before + 8000; })) << hub->Count(kAll);
}

TEST_F(ExampleTest, ASiteThatIsCutOffGoesOnAndCatchesUp) {
  const uint64_t before = hub->Count(kAll);
  Servers::PartFromHub("north");
  ASSERT_TRUE(north->PublishEvents("zel.north.ev.10-0-0-1-0-1.t.", 0, 100, 10));
  ASSERT_TRUE(south->PublishEvents("zel.south.ev.10-0-0-2-0-1.t.", 0, 100, 10));
  EXPECT_TRUE(Until([&] { return hub->Count(kAll) == before + 100; })) << "the other site's do not come";
  ASSERT_TRUE(north->PublishEvents("zel.north.ev.10-0-0-1-0-1.t.", 100, 100, 10));
  EXPECT_EQ(hub->Count(kAll), before + 100) << "it was not cut off";
  Servers::JoinToHub("north");
  EXPECT_TRUE(Until([&] { return hub->Count(kAll) == before + 300; }, std::chrono::seconds(90)))
      << hub->Count(kAll) - before;
}

TEST_F(ExampleTest, TheHubGoesOnWithoutOneOfItsServers) {
  const uint64_t before = hub->Count(kAll);
  servers->Kill("hub-2");
  ASSERT_TRUE(north->PublishEvents("zel.north.ev.10-0-0-1-0-1.t.", 0, 100, 10));
  ASSERT_TRUE(south->PublishEvents("zel.south.ev.10-0-0-2-0-1.t.", 0, 100, 10));
  EXPECT_TRUE(Until([&] { return hub->Count(kAll) == before + 200; }, std::chrono::seconds(90)))
      << hub->Count(kAll) - before;
  servers->Start("hub-2");
}

TEST_F(ExampleTest, ARequestFromTheHubIsAnsweredAtTheSite) {
  natsSubscription* made = nullptr;
  ASSERT_EQ(natsConnection_QueueSubscribe(
                &made, north->Connection(), "zel.north.ask.10-0-0-1-0-1.>", "zelgate",
                [](natsConnection* connection, natsSubscription*, natsMsg* message, void*) {
                  const PlainMessage owned(message);
                  (void)natsConnection_PublishString(connection, natsMsg_GetReply(message), "done");
                },
                nullptr),
            NATS_OK);
  const PlainSubscription subscription(made);
  PlainNats reader("hub-3", {"reader"});
  std::string answer;
  EXPECT_TRUE(Until([&] {
    return reader.Ask("zel.north.ask.10-0-0-1-0-1.600.1.2", "hello", answer) == NATS_OK;
  })) << nats_GetLastError(nullptr);
  EXPECT_EQ(answer, "done");
}

TEST_F(ExampleTest, ARequestThatNobodyAnswersIsToldSoAtTheSite) {
  PlainNats reader("north", {"reader"});
  std::string answer;
  EXPECT_EQ(reader.Ask("zel.north.ask.10-0-0-9-0-1.600.1.2", "hello", answer), NATS_NO_RESPONDERS);
}

TEST_F(ExampleTest, AWrongPasswordIsRefused) {
  EXPECT_EQ(PlainNats("north", {"gate", "guessed"}).Status(), NATS_CONNECTION_AUTH_FAILED);
  EXPECT_EQ(PlainNats("hub-1", {"admin", "gate-pass"}).Status(), NATS_CONNECTION_AUTH_FAILED);
}

TEST_F(ExampleTest, AServerWhoseAuthorityIsNotTrustedIsRefused) {
  EXPECT_EQ(PlainNats("north", {"gate", "gate-pass", Servers::Authority("stranger")}).Status(),
            NATS_SSL_ERROR);
}

TEST_F(ExampleTest, AGateMayNotPublishForAnotherSite) {
  PlainNats gate("south", {"gate"});
  EXPECT_TRUE(gate.IsForbidden("zel.north.ev.10-0-0-1-0-1.t.x"));
}

TEST_F(ExampleTest, AReaderMayNotPublishEvents) {
  PlainNats reader("north", {"reader"});
  EXPECT_TRUE(reader.IsForbidden("zel.north.ev.10-0-0-1-0-1.t.x"));
}

// The stream's name and the subjects are all that south can choose; its account at the hub is not.
TEST_F(ExampleTest, ASiteWhoseServerAllowsEverythingCannotSpeakForAnother) {
  const uint64_t northern = AtHub("north");
  servers->Kill("south");
  servers->Start("south", R"(/publish:/s/"zel\.south\.>"/">"/)");
  PlainNats hostile("south", {"gate"});
  jsStreamConfig config;
  (void)jsStreamConfig_Init(&config);
  std::array<const char*, 2> subjects = {"zel.south.ev.>", "zel.north.>"};
  config.Name = "ZEL_EV_south";
  config.Subjects = subjects.data();
  config.SubjectsLen = 2;
  ASSERT_EQ(js_UpdateStream(nullptr, hostile.JetStream(), &config, nullptr, nullptr), NATS_OK);
  ASSERT_TRUE(hostile.PublishEvent("zel.north.ev.10-0-0-1-0-1.t.x", "not mine"));
  for (const char* const subject :
       {"zel.sourced.north.x", "zel.north.ev.y", "$JS.hub.API.STREAM.DELETE.ZEL_ALL",
        "$JS.north.API.STREAM.DELETE.ZEL_EV_north"}) {
    ASSERT_EQ(natsConnection_PublishString(hostile.Connection(), subject, "{}"), NATS_OK);
  }
  // What is its own still comes, so all before it would have.
  const uint64_t southern = AtHub("south");
  ASSERT_TRUE(hostile.PublishEvent("zel.south.ev.10-0-0-2-0-1.t.x", "mine"));
  EXPECT_TRUE(Until([&] { return AtHub("south") == southern + 1; }, std::chrono::seconds(90)));
  EXPECT_EQ(AtHub("north"), northern);
  EXPECT_NE(north->Stream("ZEL_EV_north"), nullptr);
  servers->Kill("south");
  servers->Start("south");
}

TEST_F(ExampleTest, ASiteWithAForgedCertificateIsNotLetIn) {
  Servers::ForgeCertificate("north-1", "north.zel.example");
  servers->Start("north-1");
  const std::string from = Servers::Address("north-1") + ":";
  EXPECT_TRUE(Until([&] { return HubsSay(from, "TLS leafnode handshake error"); }));
  EXPECT_FALSE(HubsSay(from, "account \"NORTH\""));
  servers->Kill("north-1");
}

TEST(ExampleOfThreeTest, ASiteGoesOnWithoutOneOfItsServers) {
  Servers servers;
  for (const char* const name : {"north-1", "north-2", "north-3"}) servers.Start(name);
  PlainNats nats("north-2", {"gate"});
  ASSERT_TRUE(MakeSiteStream(nats, "north", "", 3)) << nats_GetLastError(nullptr);
  ASSERT_TRUE(nats.PublishEvents("zel.north.ev.10-0-0-1-0-1.t.", 0, 100, 10));
  servers.Kill("north-1");
  EXPECT_TRUE(Until([&] { return nats.PublishEvent("zel.north.ev.10-0-0-1-0-1.t.x", "more"); }));
  EXPECT_TRUE(Until([&] { return nats.Count("ZEL_EV_north") >= 101; }));
}

}  // namespace
}  // namespace gatelab
