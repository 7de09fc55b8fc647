#include "LinkEvent.h"

#include <gtest/gtest.h>

#include "TimeText.h"

namespace {

using zelgate::GapText;
using zelgate::LinkEventText;
using zelgate::LinkNote;

const LinkNote kNote{"1.2.3.4.5.6", "host-1", "2026-11-21T20:37:04.123Z"};

TEST(LinkEventTest, ItSaysWhatOfWhomWhenAndWhy) {
  EXPECT_EQ(LinkEventText(kNote, "down", "connect 1.2.3.4:9999: refused"),
            R"({"event":"down","device":"1.2.3.4.5.6","time":"2026-11-21T20:37:04.123Z","by":"host-1",)"
            R"("reason":"connect 1.2.3.4:9999: refused"})");
  EXPECT_EQ(LinkEventText(kNote, "up", ""),
            R"({"event":"up","device":"1.2.3.4.5.6","time":"2026-11-21T20:37:04.123Z","by":"host-1"})");
}

TEST(LinkEventTest, AGapSaysOfWhatAndHowMany) {
  EXPECT_EQ(GapText(kNote, {"t/\xFF\n", "too many wait", 3, 5, 9, 0}),
            R"({"event":"gap","device":"1.2.3.4.5.6","time":"2026-11-21T20:37:04.123Z","by":"host-1",)"
            R"("route":"t/\\xff\\x0a","reason":"too many wait","count":3,"first":5,"last":9})");
}

TEST(TimeTextTest, ItIsRfc3339InUtc) {
  using std::chrono::milliseconds;
  const std::chrono::system_clock::time_point time(milliseconds(1795293424123));
  EXPECT_EQ(zelgate::TimeText(time), "2026-11-21T20:37:04.123Z");
}

}  // namespace
