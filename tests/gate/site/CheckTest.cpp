// zelgate check, at the site north.
#include <gtest/gtest.h>

#include <fstream>

#include "GateProcess.h"
#include "SiteTest.h"

namespace gatelab {
namespace {

class CheckTest : public SiteTest {};

GateResult Check(const std::string& path) { return RunGate({"check", "--config", path}); }

TEST_F(CheckTest, ASiteThatIsInOrderHasNoFailure) {
  const GateResult result = Check(WriteSiteConfig("north"));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output.find("FAILED"), std::string::npos) << result.output;
  for (const char* const line :
       {"ok      a connection to nats://north.zel.example:4222, with TLS\n",
        "ok      events are taken by ZEL_EV_north\n", "ok      a subscription to zel.north.ask.>\n",
        "ok      the bucket zel_leases\n", "ok      the bucket zel_profiles\n"}) {
    EXPECT_NE(result.output.find(line), std::string::npos) << line << result.output;
  }
}

TEST_F(CheckTest, NothingIsChanged) {
  PlainNats plain("north", {"gate"});
  const auto counts = [&] {
    return std::vector<uint64_t>{plain.Count("ZEL_EV_north"), plain.Count("KV_zel_leases"),
                                 plain.Count("KV_zel_devices")};
  };
  const auto before = counts();
  EXPECT_EQ(Check(WriteSiteConfig("north")).status, 0);
  EXPECT_EQ(counts(), before);
}

TEST_F(CheckTest, EveryPermissionThatIsMissingIsNamed) {
  const GateResult result = Check(WriteSiteConfig("north", "", "reader"));
  EXPECT_EQ(result.status, 1);
  for (const char* const line : {"FAILED  this user may not publish zel.north.ev.> at",
                                 "FAILED  this user may not subscribe to zel.north.ask.> at",
                                 "FAILED  this user may not subscribe to zel.north.pub.> at",
                                 "FAILED  this user may not publish $KV.zel_leases.> at"}) {
    EXPECT_NE(result.output.find(line), std::string::npos) << line << "\n" << result.output;
  }
}

TEST_F(CheckTest, AWrongPasswordIsNamed) {
  const std::string path = WriteSiteConfig("north");
  std::ofstream(path + ".password") << "guessed\n";
  const GateResult result = Check(path);
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("FAILED  NATS at nats://north.zel.example:4222 refuses the connection"),
            std::string::npos)
      << result.output;
  EXPECT_NE(result.output.find("check credentials, or user and password_file"), std::string::npos)
      << result.output;
  EXPECT_EQ(result.output.find("guessed"), std::string::npos);
}

TEST_F(CheckTest, AServerThatIsNotTrustedIsNamed) {
  const std::string path = WriteSiteConfig("north");
  ASSERT_EQ(std::system(("sed -i s/ca.pem/stranger.pem/ " + path).c_str()), 0);
  const GateResult result = Check(path);
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("ca must have signed the server's certificate"), std::string::npos)
      << result.output;
}

TEST_F(CheckTest, AWrongConfigurationIsNamedWithItsLine) {
  const std::string path = WriteSiteConfig("north", "[find]\nsecond = 3\n");
  const GateResult result = Check(path);
  EXPECT_EQ(result.status, 2);
  EXPECT_NE(result.errors.find("find.second is no key"), std::string::npos) << result.errors;
}

}  // namespace
}  // namespace gatelab
