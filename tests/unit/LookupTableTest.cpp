#include "utils/LookupTable.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <thread>

namespace libzel {
namespace {

class LookupTableTest : public testing::Test {
 protected:
  int ValueOf(std::string_view key) {
    const auto* const entry = table.Find(key);
    return entry != nullptr ? entry->value : -1;
  }

  LookupTable<std::string, int> table;
};

TEST_F(LookupTableTest, FindsWhatIsThere) {
  EXPECT_TRUE(table.Insert("a", 1));
  EXPECT_EQ(ValueOf("a"), 1);
  EXPECT_EQ(ValueOf("b"), -1);
}

TEST_F(LookupTableTest, EmptyKeyIsAKeyLikeOthers) {
  EXPECT_EQ(ValueOf(""), -1);
  EXPECT_TRUE(table.Insert("", 7));
  EXPECT_EQ(ValueOf(""), 7);
}

TEST_F(LookupTableTest, InsertKeepsWhatIsThere) {
  EXPECT_TRUE(table.Insert("a", 1));
  EXPECT_FALSE(table.Insert("a", 2));
  EXPECT_EQ(ValueOf("a"), 1);
}

TEST_F(LookupTableTest, SetReplacesAlsoWhatWasFoundLast) {
  table.Set("a", 1);
  EXPECT_EQ(ValueOf("a"), 1);
  table.Set("a", 2);
  EXPECT_EQ(ValueOf("a"), 2);
}

TEST_F(LookupTableTest, EraseTakesAwayAlsoWhatWasFoundLast) {
  table.Set("a", 1);
  EXPECT_EQ(ValueOf("a"), 1);
  EXPECT_TRUE(table.Erase("a"));
  EXPECT_EQ(ValueOf("a"), -1);
  EXPECT_FALSE(table.Erase("a"));
}

TEST_F(LookupTableTest, EntryThatWasFoundOutlivesItsRemoval) {
  table.Set("a", 1);
  const auto* const entry = table.Find("a");
  ASSERT_NE(entry, nullptr);
  EXPECT_TRUE(table.Erase("a"));
  EXPECT_EQ(entry->key, "a");
}

TEST_F(LookupTableTest, CopyHasTheKeysInOrder) {
  for (const char* key : {"b", "a", "c"}) table.Set(key, 0);
  std::string keys;
  for (const auto& [key, value] : table.Copy()) keys += key;
  EXPECT_EQ(keys, "abc");
  EXPECT_TRUE(table.Contains("b"));
  EXPECT_FALSE(table.Contains("d"));
}

TEST_F(LookupTableTest, MayChangeWhileItIsRead) {
  table.Set("steady", 1);
  std::thread writer([&] {
    for (int i = 0; i < 2000; ++i) {
      table.Set("changing", i);
      (void)table.Erase("changing");
    }
  });
  for (int i = 0; i < 2000; ++i) {
    EXPECT_EQ(ValueOf("steady"), 1);
    (void)ValueOf("changing");
  }
  writer.join();
}

}  // namespace
}  // namespace libzel
