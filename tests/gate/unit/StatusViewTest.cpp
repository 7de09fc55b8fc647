#include "StatusView.h"

#include <gtest/gtest.h>

namespace zelgate {
namespace {

DeviceTable Table() {
  DeviceTable table;
  (void)table.Apply("found.10-0-0-10-0-1",
                    ToJson(DeviceFinding{"10.0.0.10.0.1", "10.0.0.10", "press 10", "", false, {}}));
  (void)table.Apply("found.10-0-0-9-0-1",
                    ToJson(DeviceFinding{"10.0.0.9.0.1", "10.0.0.9", "press 9", "S9", false, {}}));
  (void)table.Apply("link.10-0-0-9-0-1",
                    ToJson(DeviceLink{LinkState::kUp, "2026-11-21T10:00:00.000Z", "gate-1", ""}));
  return table;
}

TEST(StatusViewTest, DevicesStandInTheOrderOfTheirNumbers) {
  const auto lines = StatusOf(Table(), {"gate-1"});
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].id, "10.0.0.9.0.1");
  EXPECT_EQ(lines[1].id, "10.0.0.10.0.1");
}

TEST(StatusViewTest, ALineSaysWhatIsKnown) {
  const StatusLine expected = {"10.0.0.9.0.1", "press 9", "S9", "10.0.0.9", "up", "2026-11-21T10:00:00.000Z",
                               "gate-1",       ""};
  EXPECT_EQ(StatusOf(Table(), {"gate-1"})[0], expected);
}

TEST(StatusViewTest, ADeviceThatNobodyServesIsUnserved) {
  EXPECT_EQ(StatusOf(Table(), {"gate-1"})[1].link, "unserved");
}

TEST(StatusViewTest, WhatAnEndedProcessSaidDoesNotHold) {
  const StatusLine line = StatusOf(Table(), {"gate-2"})[0];
  EXPECT_EQ(line.link, "unserved");
  EXPECT_EQ(line.servedBy, "");
  EXPECT_EQ(line.since, "");
}

TEST(StatusViewTest, TwinsAreTheReason) {
  DeviceTable table;
  (void)table.Apply(
      "found.10-0-0-9-0-1",
      ToJson(DeviceFinding{"10.0.0.9.0.1", "10.0.0.9", "", "", false, {"10.0.0.9", "10.0.0.8"}}));
  EXPECT_EQ(StatusOf(table, {})[0].why, "several have this identifier: at 10.0.0.9 and 10.0.0.8");
}

TEST(StatusViewTest, TheSummaryCounts) {
  EXPECT_EQ(SummaryOf("north", StatusOf(Table(), {"gate-1"}), 1),
            "site north: 2 devices, 1 up, 1 unserved; 1 process serves them");
}

TEST(StatusViewTest, TheSummarySaysWhatToDoWhenNobodyServes) {
  EXPECT_EQ(SummaryOf("north", {}, 0), "site north: 0 devices; no process serves them: start zelgate run");
}

TEST(StatusViewTest, ColumnsStandBelowTheirTitles) {
  EXPECT_EQ(TableOf(StatusOf(Table(), {"gate-1"})),
            "DEVICE         NAME      ADDRESS    LINK      SINCE                     SERVED BY  WHY\n"
            "10.0.0.9.0.1   press 9   10.0.0.9   up        2026-11-21T10:00:00.000Z  gate-1\n"
            "10.0.0.10.0.1  press 10  10.0.0.10  unserved\n");
}

TEST(StatusViewTest, ANameCannotSteerTheTerminal) {
  StatusLine line;
  line.id = "10.0.0.9.0.1";
  line.name = "\x1b[2Jpress\n9";
  EXPECT_EQ(TableOf({line}).find('\x1b'), std::string::npos);
  EXPECT_EQ(SentenceOf(line).find('\n'), std::string::npos);
  EXPECT_EQ(JsonOf(line).find('\n'), std::string::npos);
}

TEST(StatusViewTest, ASentenceSaysAllOfADevice) {
  EXPECT_EQ(SentenceOf({"10.0.0.9.0.1", "press 9", "", "10.0.0.9", "connecting", "2026-11-21T10:00:00.000Z",
                        "gate-1", "connect: refused"}),
            "10.0.0.9.0.1 (press 9) is connecting since 2026-11-21T10:00:00.000Z, served by gate-1: connect: "
            "refused");
}

TEST(StatusViewTest, AnObjectHasAllMembers) {
  EXPECT_EQ(JsonOf(StatusOf(Table(), {"gate-1"})[0]),
            R"({"id":"10.0.0.9.0.1","name":"press 9","serial":"S9","address":"10.0.0.9","link":"up",)"
            R"("since":"2026-11-21T10:00:00.000Z","servedBy":"gate-1","why":""})");
}

}  // namespace
}  // namespace zelgate
