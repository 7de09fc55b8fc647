#include "Config.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace {

using zelgate::Config;
using zelgate::ConfigError;
using zelgate::ParseConfig;

const std::string kLeast = "site = \"plant1\"\n[nats]\nurls = [\"nats://127.0.0.1:4222\"]\n";

std::string Refusal(const std::string& text) {
  try {
    (void)ParseConfig(text, "gate.toml");
  } catch (const ConfigError& problem) {
    return problem.what();
  }
  return "it was taken";
}

TEST(ConfigTest, TheLeastIsASiteAndAUrl) {
  const Config config = ParseConfig(kLeast, "gate.toml");
  EXPECT_EQ(config.site, "plant1");
  ASSERT_EQ(config.nats.urls.size(), 1U);
  EXPECT_EQ(config.limits.devices, 2000);
  EXPECT_EQ(config.limits.shards, 1024);
  EXPECT_EQ(config.stream.replicas, 1);
}

TEST(ConfigTest, EveryKeyIsRead) {
  const Config config = ParseConfig(
      "site = \"p\"\n"
      "[nats]\nurls = [\"tls://a:1\", \"nats://b:2\"]\ncredentials = \"c\"\n"
      "[nats.tls]\nca = \"1\"\ncert = \"2\"\nkey = \"3\"\n"
      "[stream]\nmax_bytes = 1048576\nreplicas = 3\n[limits]\ndevices = 7\nwindow = 8\nshards = 9\n"
      "[find]\nseconds = 0\n[[find.device]]\nid = \"1.2.3.4.5.6\"\naddress = \"7.8.9.10\"\nname = \"n\"\n"
      "[http]\nlisten = \"127.0.0.1:9470\"\n",
      "gate.toml");
  EXPECT_EQ(config.nats.urls[1], "nats://b:2");
  EXPECT_EQ(config.nats.credentials, "c");
  EXPECT_EQ(config.nats.tlsKey, "3");
  EXPECT_EQ(config.stream.maxBytes, 1048576);
  EXPECT_EQ(config.limits.window, 8);
  EXPECT_EQ(config.find.seconds, 0);
  ASSERT_EQ(config.find.devices.size(), 1U);
  EXPECT_EQ(config.find.devices[0].address, "7.8.9.10");
  EXPECT_EQ(config.http.listen, "127.0.0.1:9470");
}

TEST(ConfigTest, AMissingSiteIsNamed) {
  EXPECT_EQ(Refusal("x = 1\n"), "gate.toml, line 1: site is missing; write site = \"plant1\", say");
}

TEST(ConfigTest, ASiteThatIsNoSubjectIsRefused) {
  EXPECT_EQ(Refusal("\nsite = \"a.b\"\n"),
            "gate.toml, line 2: site is no name of a site; write letters, digits, - and _, at most 64");
}

TEST(ConfigTest, AnUnknownKeyIsRefusedWithThoseThatAreKnown) {
  EXPECT_EQ(Refusal(kLeast + "[http]\nport = 1\n"),
            "gate.toml, line 5: http.port is no key; these are: listen");
}

TEST(ConfigTest, ANumberOutOfRangeIsRefused) {
  EXPECT_EQ(Refusal(kLeast + "[limits]\ndevices = 0\n"),
            "gate.toml, line 5: limits.devices is no number from 1 to 100000; write devices = 2000, say");
}

TEST(ConfigTest, AWrongTypeIsRefused) {
  EXPECT_EQ(Refusal("site = 1\n"), "gate.toml, line 1: site is no text; write site = \"plant1\"");
}

TEST(ConfigTest, AUrlWithoutASchemeIsRefused) {
  EXPECT_EQ(Refusal("site = \"p\"\n[nats]\nurls = [\"host:4222\"]\n"),
            "gate.toml, line 3: nats.urls has an item that is no URL; "
            "write urls = [\"nats://127.0.0.1:4222\"], say");
}

TEST(ConfigTest, AUserWithoutAPasswordIsRefused) {
  EXPECT_EQ(Refusal(kLeast + "user = \"u\"\n"),
            "gate.toml, line 2: nats.password_file is missing; "
            "write the file whose first line is the user's password");
}

TEST(ConfigTest, ThePasswordIsTheFirstLineOfItsFile) {
  const std::string path = std::string(::testing::TempDir()) + "gate-password";
  std::ofstream(path) << "secret\nmore\n";
  const Config config = ParseConfig(kLeast + "user = \"u\"\npassword_file = \"" + path + "\"\n", "gate.toml");
  EXPECT_EQ(config.nats.password, "secret");
  (void)std::remove(path.c_str());
}

TEST(ConfigTest, ADeviceThatStandsTwiceIsRefused) {
  const std::string device = "[[find.device]]\nid = \"1.2.3.4.5.6\"\n";
  EXPECT_EQ(Refusal(kLeast + device + device),
            "gate.toml, line 7: find.device.id is there twice; a device stands once in the list");
}

TEST(ConfigTest, WhatIsNoTomlIsRefusedWithItsLine) {
  const std::string text = Refusal("site = \"p\"\n[nats\n");
  EXPECT_TRUE(text.starts_with("gate.toml, line 2: this is no TOML (")) << text;
}

TEST(ConfigTest, AFileThatIsNotThereIsNamed) {
  EXPECT_THROW((void)zelgate::ReadConfig("/nowhere/gate.toml"), ConfigError);
}

}  // namespace
