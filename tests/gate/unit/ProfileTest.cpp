#include "Profile.h"

#include <gtest/gtest.h>

#include <string>

#include "Profiles.h"

namespace {

using zelgate::DeviceFacts;
using zelgate::MatchesPattern;
using zelgate::ParseProfile;
using zelgate::Policy;
using zelgate::Profile;
using zelgate::Routes;
using zelgate::RoutesOf;

const DeviceFacts kPress{"10.20.0.7.0.1", "10.20.0.7", "press-7", "S1234"};

zelgate::Route TopicRoute(const std::string& topic) { return {true, topic, 0}; }
zelgate::Route PortRoute(uint16_t port) { return {false, "", port}; }

Profile Parsed(const std::string& json) {
  Profile profile;
  std::string why;
  EXPECT_TRUE(ParseProfile(json, profile, why)) << why;
  return profile;
}

std::string Fault(const std::string& json) {
  Profile profile;
  std::string why;
  return ParseProfile(json, profile, why) ? "it was taken" : why;
}

TEST(ProfileTest, PatternsHaveStarsAndQuestionMarks) {
  for (const auto& [pattern, text] :
       std::initializer_list<std::pair<const char*, const char*>>{{"", ""},
                                                                  {"a", "a"},
                                                                  {"*", ""},
                                                                  {"*", "abc"},
                                                                  {"a*c", "abbc"},
                                                                  {"a*c", "ac"},
                                                                  {"?", "a"},
                                                                  {"a?c", "abc"},
                                                                  {"*b*", "abc"},
                                                                  {"**", "x"},
                                                                  {"*a*a*", "banana"},
                                                                  {"*ab", "aab"}}) {
    EXPECT_TRUE(MatchesPattern(pattern, text)) << pattern << " " << text;
  }
  for (const auto& [pattern, text] :
       std::initializer_list<std::pair<const char*, const char*>>{{"", "a"},
                                                                  {"a", ""},
                                                                  {"a", "A"},
                                                                  {"?", ""},
                                                                  {"a*c", "ab"},
                                                                  {"*b", "ba"},
                                                                  {"a?", "a"},
                                                                  {"*a*b", "ba"}}) {
    EXPECT_FALSE(MatchesPattern(pattern, text)) << pattern << " " << text;
  }
}

TEST(ProfileTest, AHostilePatternTakesNoTime) {
  std::string pattern;
  for (int i = 0; i < 50; ++i) pattern += "*a";
  EXPECT_FALSE(MatchesPattern(pattern + "b", std::string(5000, 'a')));
}

TEST(ProfileTest, AProfileNamesTopicsAndPorts) {
  const Profile profile = Parsed(
      R"({"devices": {"name": "p*", "serial": "S*", "id": "10.*"},
          "topics": ["state", {"topic": "alarm", "policy": "drop-oldest"}],
          "ports": [700, {"port": 701, "policy": "latest-only"}, {"port": 702}]})");
  EXPECT_EQ(profile.name, "p*");
  EXPECT_EQ(profile.serial, "S*");
  EXPECT_EQ(profile.id, "10.*");
  const Routes expected = {{TopicRoute("state"), Policy::kBlock},
                           {TopicRoute("alarm"), Policy::kDropOldest},
                           {PortRoute(700), Policy::kBlock},
                           {PortRoute(701), Policy::kLatestOnly},
                           {PortRoute(702), Policy::kBlock}};
  EXPECT_EQ(profile.routes, expected);
}

TEST(ProfileTest, WhatIsWrongIsSaid) {
  EXPECT_TRUE(Fault("{").starts_with("it is no JSON ("));
  EXPECT_EQ(Fault("[]"), "it is no object; write {\"devices\": {...}, \"topics\": [...]}");
  EXPECT_EQ(Fault(R"({"topic": []})"), "\"topic\" is no key; these are: devices, topics, ports");
  EXPECT_EQ(Fault(R"({"topics": "a"})"), "\"topics\" is no list");
  EXPECT_EQ(Fault(R"({"topics": [1]})"), "a topic is no text; write \"topics\": [\"state\"]");
  EXPECT_EQ(Fault(R"({"ports": [500]})"), "a port is no number from 501 to 65535; write \"ports\": [700]");
  EXPECT_EQ(Fault(R"({"ports": [700, 700]})"), "p/700 is there twice");
  EXPECT_EQ(Fault(R"({"ports": [{"policy": "block"}]})"), "an object of \"ports\" has no \"port\"");
  EXPECT_EQ(Fault(R"({"topics": [{"topic": "a", "policy": "drop"}]})"),
            "policy is none; write \"block\", \"drop-oldest\" or \"latest-only\"");
  EXPECT_EQ(Fault(R"({"devices": {"name": ""}})"), "devices.name is no pattern; write \"name\": \"*\"");
}

TEST(ProfileTest, ADeviceMustMatchAll) {
  Profile profile;
  EXPECT_TRUE(Matches(profile, kPress));
  profile.name = "press-*";
  profile.serial = "S1*";
  profile.id = "10.20.*";
  EXPECT_TRUE(Matches(profile, kPress));
  profile.serial = "S2*";
  EXPECT_FALSE(Matches(profile, kPress));
}

TEST(ProfileTest, ADeviceHasTheRoutesOfAllThatMatch) {
  const std::map<std::string, Profile> profiles = {
      {"a", Parsed(R"({"topics": [{"topic": "x", "policy": "drop-oldest"}]})")},
      {"b", Parsed(R"({"topics": ["x", "y"]})")},
      {"c", Parsed(R"({"devices": {"name": "other"}, "topics": ["z"]})")}};
  const Routes expected = {{TopicRoute("x"), Policy::kDropOldest}, {TopicRoute("y"), Policy::kBlock}};
  EXPECT_EQ(RoutesOf(profiles, kPress), expected);
}

TEST(ProfilesTest, TheyFollowTheBucket) {
  std::map<std::string, Profile> profiles;
  FollowProfiles({{"a", "{}"}, {"b", R"({"ports": [700]})"}}, profiles);
  EXPECT_EQ(profiles.size(), 2U);
  FollowProfiles({{"b", R"({"ports": [701]})"}}, profiles);
  EXPECT_EQ(profiles.size(), 1U);
  EXPECT_TRUE(profiles["b"].routes.contains(PortRoute(701)));
}

TEST(ProfilesTest, AnEarlierOneStaysWhenTheNewOneIsNone) {
  std::map<std::string, Profile> profiles;
  FollowProfiles({{"a", R"({"ports": [700]})"}}, profiles);
  FollowProfiles({{"a", "{"}, {"b", "{"}}, profiles);
  EXPECT_EQ(profiles.size(), 1U);
  EXPECT_TRUE(profiles["a"].routes.contains(PortRoute(700)));
}

}  // namespace
