// A test at the site north, with its server, streams and buckets. The server is started once for a suite.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "PlainNats.h"
#include "SiteConfig.h"
#include "Streams.h"

namespace gatelab {

class SiteTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    servers = new Servers;
    servers->Start("north");
    nats = new zelgate::Nats;
    const auto config = ConfigOf("north", "north", "gate");
    ASSERT_TRUE(nats->Start(config.nats, "test"));
    ASSERT_TRUE(nats->WaitUntilUp(std::chrono::seconds(40))) << Servers::Log("north");
    ASSERT_TRUE(Until([&] { return zelgate::MakeSiteStreams(*nats, config).IsOk(); }));
  }
  static void TearDownTestSuite() {
    delete nats;
    delete servers;
  }
  // The next test finds empty buckets; so it doesn't wait for the leases of processes that were killed.
  void TearDown() override {
    for (const char* const name : {zelgate::kDeviceBucket, zelgate::kLeaseBucket, zelgate::kProfileBucket}) {
      std::vector<std::string> keys;
      zelgate::KeyValue bucket = Bucket(name);
      ASSERT_TRUE(bucket.Keys(keys));
      for (const std::string& key : keys) ASSERT_TRUE(bucket.Delete(key));
    }
  }

  static zelgate::KeyValue Bucket(const std::string& name) {
    zelgate::KeyValue bucket;
    EXPECT_TRUE(bucket.Open(*nats, name));
    return bucket;
  }
  static void Put(const std::string& bucket, const std::string& key, const std::string& value) {
    const auto result = Bucket(bucket).Put(key, value);
    EXPECT_TRUE(result) << result.why;
  }

  static inline Servers* servers = nullptr;
  static inline zelgate::Nats* nats = nullptr;
};

}  // namespace gatelab
