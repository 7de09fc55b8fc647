#include "Subjects.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using zelgate::DeviceOfToken;
using zelgate::DeviceToken;
using zelgate::EscapeTopic;
using zelgate::IsSiteName;
using zelgate::Subjects;
using zelgate::UnescapeTopic;

const Subjects kSubjects("plant1");

TEST(SubjectsTest, ASiteIsOneToken) {
  EXPECT_TRUE(IsSiteName("plant-1_A"));
  for (const char* wrong : {"", "a.b", "a b", "*", ">", "\xC3\xA4"}) EXPECT_FALSE(IsSiteName(wrong)) << wrong;
  EXPECT_FALSE(IsSiteName(std::string(65, 'a')));
}

TEST(SubjectsTest, AnIdentifierIsATokenAndBack) {
  EXPECT_EQ(DeviceToken("10.20.0.7.0.1"), "10-20-0-7-0-1");
  EXPECT_EQ(DeviceOfToken("10-20-0-7-0-1"), "10.20.0.7.0.1");
}

TEST(SubjectsTest, WhatIsNoIdentifierIsNoToken) {
  for (const char* wrong : {"", "10.20", "a.b.c.d.e.f", "1.2.3.4.5.256"})
    EXPECT_FALSE(DeviceToken(wrong)) << wrong;
  for (const char* wrong : {"1-2-3-4-5", "1-2-3-4-5-6-7", "1.2.3.4.5.6", "01-2-3-4-5-6", "*"}) {
    EXPECT_FALSE(DeviceOfToken(wrong)) << wrong;
  }
}

TEST(SubjectsTest, TopicsAreEscapedAndBack) {
  const std::pair<std::string, std::string> cases[] = {
      {"state", "state"},     {"a/b", "a.b"},         {"", "="},
      {"/", "=.="},           {"a//b", "a.=.b"},      {"/a/", "=.a.="},
      {"a.b c", "a=2Eb=20c"}, {"*", "=2A"},           {">", "=3E"},
      {"=", "=3D"},           {"\xC3\xA4", "=C3=A4"}, {"a\nb", "a=0Ab"},
      {"A-Z_9", "A-Z_9"},     {"\x01\xFF", "=01=FF"},
  };
  for (const auto& [topic, tokens] : cases) {
    EXPECT_EQ(EscapeTopic(topic), tokens);
    EXPECT_EQ(UnescapeTopic(tokens), topic) << tokens;
  }
}

TEST(SubjectsTest, EveryByteComesBack) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  EXPECT_EQ(UnescapeTopic(EscapeTopic(all)), all);
}

TEST(SubjectsTest, WhatEscapingNeverMakesIsNotTakenBack) {
  for (const char* wrong : {"", ".", "a.", ".a", "a..b", "=2", "=2e", "=41", "=2F", "a=", "==", "a b", "*"}) {
    EXPECT_FALSE(UnescapeTopic(wrong)) << wrong;
  }
}

TEST(SubjectsTest, EventsHaveTheirSubjects) {
  EXPECT_EQ(kSubjects.Topic("1-2-3-4-5-6", "a/b"), "zel.plant1.ev.1-2-3-4-5-6.t.a.b");
  EXPECT_EQ(kSubjects.Port("1-2-3-4-5-6", 700), "zel.plant1.ev.1-2-3-4-5-6.p.700");
  EXPECT_EQ(kSubjects.Link("1-2-3-4-5-6"), "zel.plant1.ev.1-2-3-4-5-6.link");
  EXPECT_EQ(kSubjects.AllEvents(), "zel.plant1.ev.>");
}

TEST(SubjectsTest, ASubjectHasAtMost1024Bytes) {
  const size_t room = 1024 - std::string("zel.plant1.ev.1-2-3-4-5-6.t.").size();
  EXPECT_TRUE(kSubjects.Topic("1-2-3-4-5-6", std::string(room, 'a')));
  EXPECT_FALSE(kSubjects.Topic("1-2-3-4-5-6", std::string(room + 1, 'a')));
  EXPECT_FALSE(kSubjects.Publication("1-2-3-4-5-6", std::string(400, ' ')));
}

TEST(SubjectsTest, ARequestIsReadBack) {
  const auto target = kSubjects.ParseAsk(kSubjects.Ask("1-2-3-4-5-6", 65535, 4294967295U, 0));
  ASSERT_TRUE(target);
  EXPECT_EQ(target->device, "1-2-3-4-5-6");
  EXPECT_EQ(target->port, 65535);
  EXPECT_EQ(target->group, 4294967295U);
  EXPECT_EQ(target->offset, 0U);
}

TEST(SubjectsTest, WrongRequestsAreRefused) {
  for (const char* end : {"1-2-3-4-5-6.1.2", "1-2-3-4-5-6.1.2.3.4", "1-2-3-4-5-6.65536.0.0",
                          "1-2-3-4-5-6.1.-1.0", "1-2-3-4-5-6.1.4294967296.0", "1-2-3-4-5-6.01.0.0",
                          "1-2-3-4-5-6.1.0.", "x.1.0.0", "1-2-3-4-5-6.1..0", "1-2-3-4-5-6.1.0.0."}) {
    EXPECT_FALSE(kSubjects.ParseAsk(std::string("zel.plant1.ask.") + end)) << end;
  }
  EXPECT_FALSE(kSubjects.ParseAsk("zel.other.ask.1-2-3-4-5-6.1.2.3"));
}

TEST(SubjectsTest, APublicationIsReadBack) {
  const auto target = kSubjects.ParsePublication(*kSubjects.Publication("1-2-3-4-5-6", "a/ b"));
  ASSERT_TRUE(target);
  EXPECT_EQ(target->device, "1-2-3-4-5-6");
  EXPECT_EQ(target->topic, "a/ b");
}

TEST(SubjectsTest, WrongPublicationsAreRefused) {
  for (const char* end : {"1-2-3-4-5-6", "1-2-3-4-5-6.t", "1-2-3-4-5-6.t.", "1-2-3-4-5-6.p.a", "x.t.a"}) {
    EXPECT_FALSE(kSubjects.ParsePublication(std::string("zel.plant1.pub.") + end)) << end;
  }
}

}  // namespace
