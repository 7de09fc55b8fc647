#include "Options.h"

#include <gtest/gtest.h>

#include "Support.h"

namespace zelsim {
namespace {

TEST(Options, ListenersMayBeRepeated) {
  const auto options = test::OptionsFrom({"--listen", "127.0.0.1:1", "--listen", "127.0.0.2:2"});
  ASSERT_TRUE(options);
  EXPECT_EQ(options->server.listens, (std::vector<std::string>{"127.0.0.1:1", "127.0.0.2:2"}));
}

TEST(Options, NothingToServeIsAnError) {
  std::string errors;
  EXPECT_FALSE(test::OptionsFrom({}, &errors));
  EXPECT_NE(errors.find("--listen"), errors.npos);
}

TEST(Options, UnknownFaultIsExplained) {
  std::string errors;
  EXPECT_FALSE(test::OptionsFrom({"--listen", "127.0.0.1:1", "--fault", "nonsense"}, &errors));
  EXPECT_NE(errors.find("\"nonsense\" is not of the form"), errors.npos);
}

TEST(Options, HelpNamesEveryOption) {
  std::string text;
  EXPECT_FALSE(test::OptionsFrom({"--help"}, &text));
  for (const char* name :
       {"--listen",        "--answer",         "--tick",    "--burst",      "--fault",     "--spin",
        "--trace",         "--device",         "--devices", "--base",       "--interface", "--no-discovery",
        "--answer-spread", "--description",    "--frame",   "--scan-fault", "--udp-fault", "--files",
        "--transfer-port", "--transfer-fault", "--relay",   "--version"}) {
    EXPECT_NE(text.find(name), text.npos) << name;
  }
}

}  // namespace
}  // namespace zelsim
