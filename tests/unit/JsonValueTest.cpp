#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "utils/json/Json.h"

namespace libzel {
namespace {

template <typename Action>
std::string LogicErrorOf(Action action) {
  try {
    (void)action();
  } catch (const std::logic_error& fault) {
    return fault.what();
  }
  return "none";
}

constexpr const char* kMemberFault = "function Json::operator [const string &] requires object value";
constexpr const char* kElementFault = "function Json::operator [int] requires array value";
constexpr const char* kIndexFault = "function Json::operator [int] index less 0";
constexpr const char* kAppendFault = "function Json::append requires array value";
constexpr const char* kGetFault = "function Json::get [const string &] requires object value";
constexpr const char* kStringFault = "function Json::operator (string) requires string value";

// One value of every type.
std::vector<Json> AllTypes() {
  return {Json(),
          Json(true),
          Json(int32_t{5}),
          Json(2.5),
          Json(std::string("text")),
          Json(JsonType::kArray),
          Json(JsonType::kObject)};
}

TEST(JsonValueTest, AFreshValueIsNullWithEmptyFields) {
  const Json value;
  EXPECT_TRUE(value.isNull());
  EXPECT_FALSE(value.boolean());
  EXPECT_EQ(value.integer(), 0);
  EXPECT_EQ(value.number(), 0);
  EXPECT_EQ(value.string(), "");
  EXPECT_EQ(value.size(), 0);
}

TEST(JsonValueTest, TypeCodesAreFixed) {
  const auto values = AllTypes();
  for (uint32_t code = 0; code < values.size(); ++code) {
    EXPECT_EQ(static_cast<uint32_t>(values[code].type()), code);
  }
}

TEST(JsonValueTest, ConstructionSetsThePayload) {
  EXPECT_TRUE(Json(true).boolean());
  EXPECT_EQ(Json(int32_t{-5}).integer(), -5);
  EXPECT_EQ(Json(2.5).number(), 2.5);
  EXPECT_EQ(Json(std::string("text")).string(), "text");
}

TEST(JsonValueTest, OnlyTheNullValueIsNullAndOnlyAnObjectIsAnObject) {
  const auto values = AllTypes();
  for (size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(values[i].isNull(), i == 0);
    EXPECT_EQ(values[i].isObject(), i == 6);
  }
}

TEST(JsonValueTest, ACopyIsDeep) {
  Json value;
  value["a"][2] = Json(int32_t{1});
  Json copy(value);
  copy["a"][2] = Json(int32_t{9});
  EXPECT_EQ(value["a"][2].integer(), 1);
  EXPECT_EQ(copy["a"].size(), 3);
}

TEST(JsonValueTest, AssignmentClearsEveryOtherField) {
  Json value(std::string("text"));
  value = Json(int32_t{3});
  EXPECT_EQ(value.type(), JsonType::kInt);
  EXPECT_EQ(value.string(), "");
  const Json number(2.5);
  value = number;
  EXPECT_EQ(value.integer(), 0);
  EXPECT_EQ(value.number(), 2.5);
}

TEST(JsonValueTest, AssignmentToItselfKeepsTheTypeAndLosesThePayload) {
  for (Json& value : std::vector<Json>{Json(true), Json(int32_t{5}), Json(2.5), Json(std::string("text"))}) {
    const JsonType type = value.type();
    const Json& self = value;
    value = self;
    EXPECT_EQ(value.type(), type);
    EXPECT_FALSE(value.boolean());
    EXPECT_EQ(value.integer(), 0);
    EXPECT_EQ(value.number(), 0);
    EXPECT_EQ(value.string(), "");
  }
}

TEST(JsonValueTest, AnObjectAndAnArrayAssignedToThemselvesAreEmptied) {
  Json object;
  object["a"] = Json(true);
  const Json& sameObject = object;
  object = sameObject;
  EXPECT_TRUE(object.isObject());
  EXPECT_EQ(object.size(), 0);

  Json array;
  array[1] = Json(true);
  Json& sameArray = array;
  array = std::move(sameArray);
  EXPECT_EQ(array.type(), JsonType::kArray);
  EXPECT_EQ(array.size(), 0);
}

TEST(JsonValueTest, APartMayBeAssignedToTheWhole) {
  Json value;
  value["a"]["b"] = Json(std::string("inner"));
  value = value["a"];
  EXPECT_EQ(value.size(), 1);
  EXPECT_EQ(std::string(value["b"]), "inner");
  value = std::move(value["b"]);
  EXPECT_EQ(std::string(value), "inner");
}

TEST(JsonValueTest, TheWholeMayBeAssignedToAPart) {
  Json value;
  value["a"] = Json(int32_t{1});
  value["b"] = value;
  EXPECT_EQ(value.size(), 2);
  EXPECT_EQ(value["b"]["a"].integer(), 1);
}

TEST(JsonValueTest, AMovedValueLeavesNull) {
  Json value;
  value["a"] = Json(true);
  const Json taken(std::move(value));
  EXPECT_TRUE(value.isNull());
  EXPECT_EQ(value.size(), 0);
  EXPECT_EQ(taken.size(), 1);
}

TEST(JsonValueTest, AKeyMakesNullAnObjectAndInsertsNull) {
  Json value;
  EXPECT_TRUE(value["a"].isNull());
  EXPECT_TRUE(value.isObject());
  EXPECT_TRUE(value.has("a"));
  EXPECT_EQ(value[std::string("a")].size(), 0);
  EXPECT_EQ(value.size(), 1);
}

TEST(JsonValueTest, AKeyOnAnyOtherTypeFaults) {
  auto values = AllTypes();
  for (size_t i = 1; i < 6; ++i) {
    EXPECT_EQ(LogicErrorOf([&] { return values[i]["a"].isNull(); }), kMemberFault);
    EXPECT_EQ(LogicErrorOf([&] { return values[i][std::string("a")].isNull(); }), kMemberFault);
  }
}

TEST(JsonValueTest, AnIndexMakesNullAnArrayAndFillsItUp) {
  Json value;
  EXPECT_TRUE(value[3].isNull());
  EXPECT_EQ(value.type(), JsonType::kArray);
  EXPECT_EQ(value.size(), 4);
  for (int32_t i = 0; i < 4; ++i) EXPECT_TRUE(value[i].isNull());
}

TEST(JsonValueTest, AnIndexInsideLeavesTheSize) {
  Json value;
  value[1] = Json(int32_t{7});
  EXPECT_EQ(value[1].integer(), 7);
  EXPECT_TRUE(value[0].isNull());
  EXPECT_EQ(value.size(), 2);
}

TEST(JsonValueTest, TheTypeIsTestedBeforeTheIndex) {
  Json array(JsonType::kArray);
  EXPECT_EQ(LogicErrorOf([&] { return array[-1].isNull(); }), kIndexFault);
  auto values = AllTypes();
  for (const size_t i : {1U, 2U, 3U, 4U, 6U}) {
    EXPECT_EQ(LogicErrorOf([&] { return values[i][-1].isNull(); }), kElementFault);
    EXPECT_EQ(LogicErrorOf([&] { return values[i][0].isNull(); }), kElementFault);
  }
}

TEST(JsonValueTest, ANegativeIndexLeavesNullAnEmptyArray) {
  Json value;
  EXPECT_EQ(LogicErrorOf([&] { return value[-1].isNull(); }), kIndexFault);
  EXPECT_EQ(value.type(), JsonType::kArray);
  EXPECT_EQ(value.size(), 0);
}

TEST(JsonValueTest, AppendAddsACopyAndGivesTheValue) {
  Json value;
  EXPECT_EQ(&value.append(Json(int32_t{1})), &value);
  value.append(Json(int32_t{2})).append(value);
  EXPECT_EQ(value.size(), 3);
  EXPECT_EQ(value[1].integer(), 2);
  EXPECT_EQ(value[2].size(), 2);
}

TEST(JsonValueTest, AppendToAnyOtherTypeFaults) {
  auto values = AllTypes();
  for (const size_t i : {1U, 2U, 3U, 4U, 6U}) {
    EXPECT_EQ(LogicErrorOf([&] { return values[i].append(Json()).size(); }), kAppendFault);
  }
}

TEST(JsonValueTest, GetOfAnAbsentKeyGivesNullAndInsertsNothing) {
  Json value(JsonType::kObject);
  EXPECT_TRUE(value.get("a").isNull());
  EXPECT_EQ(value.size(), 0);
  value["b"] = Json(int32_t{4});
  EXPECT_TRUE(value.get("a").isNull());
  EXPECT_EQ(value.get("b").integer(), 4);
  EXPECT_EQ(value.size(), 1);
}

TEST(JsonValueTest, TheNullOfAbsentKeysIsOneForAllThreads) {
  const Json value(JsonType::kObject);
  const Json* seen[4] = {};
  std::vector<std::thread> threads;
  for (auto& place : seen) threads.emplace_back([&place, &value] { place = &value.get("a"); });
  for (auto& thread : threads) thread.join();
  for (const Json* place : seen) EXPECT_EQ(place, seen[0]);
}

TEST(JsonValueTest, GetOnAnyOtherTypeFaults) {
  const auto values = AllTypes();
  for (size_t i = 0; i < 6; ++i) {
    EXPECT_EQ(LogicErrorOf([&] { return values[i].get("a").isNull(); }), kGetFault);
    EXPECT_FALSE(values[i].isObject());
  }
}

TEST(JsonValueTest, OnlyAStringConvertsToAString) {
  EXPECT_EQ(std::string(Json(std::string("a\0b", 3))), std::string("a\0b", 3));
  const auto values = AllTypes();
  for (const size_t i : {0U, 1U, 2U, 3U, 5U, 6U}) {
    EXPECT_EQ(LogicErrorOf([&] { return std::string(values[i]); }), kStringFault);
  }
}

TEST(JsonValueTest, HasIsFalseForEverythingButAnObjectWithTheKey) {
  for (const Json& value : AllTypes()) EXPECT_FALSE(value.has("a"));
  Json object;
  object["a"];
  EXPECT_TRUE(object.has("a"));
  EXPECT_FALSE(object.has("A"));
  EXPECT_FALSE(object.has("aa"));
}

TEST(JsonValueTest, SizeCountsElementsAndMembersOnly) {
  for (const Json& value : AllTypes()) EXPECT_EQ(value.size(), 0);
  Json object;
  object["a"];
  object["b"];
  EXPECT_EQ(object.size(), 2);
}

}  // namespace
}  // namespace libzel
