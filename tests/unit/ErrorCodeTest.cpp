#include "zelcomm/ErrorCode.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>

namespace libzel {
namespace {

struct CodeRow {
  int32_t code;
  const char* text;
};

// Letter for letter, odd spellings included.
constexpr CodeRow kCodeRows[] = {
    {0, "No Error"},
    {1, "connect Success"},
    {2, "connection pending"},
    {3, "no connection"},
    {4, "connect refuse"},
    {5, "alaready disconnect"},
    {6, "connect timeout"},
    {7, "host unreachable"},
    {8, "auth continue"},
    {4097, "invaild Zel Device Id"},
    {4098, "invaild Id Group"},
    {4099, "invaild Id Offset"},
    {4100, "Invalid packet length"},
    {4101, "invaild port,port is 1-65535"},
    {4102, "router port not register"},
    {4103, "router port alaready register"},
    {4104, "recv message timeout"},
    {4105, "unknown cmdId"},
    {4106, "unknown topic"},
    {4107, "no support protocol"},
    {4108, "packet length too small"},
    {4109, "packet length too long"},
    {4110, "serialized error"},
    {4111, "deserialized error"},
    {4112, "zel header length not match from buff recv"},
    {4113, "send message error"},
    {4114, "port 1~500 system reserved"},
    {4115, "message invokeId not match"},
    {8193, "invaild handler"},
    {8194, "invaild netadapter"},
    {8195, "init resource fail"},
    {8196, "invaild input param"},
    {8197, "zel server not runing"},
    {8198, "invaild request cmd"},
    {8199, "invaild buff length"},
    {8200, "no memory"},
    {8201, "disk is full"},
    {12288, "create file fail"},
    {12289, "open file fail"},
    {12290, "file not exist"},
    {12291, "read file buffer fail"},
    {12292, "write file buffer fail"},
    {12293, "invaild file handler"},
    {12294, "transfer fault,network error"},
    {16385, "component not register"},
    {16386, "connect zelserver timeout"},
    {16387, "same component name already register,zelserver refuse register"},
    {16388, "component is offline"},
    {16389, "component name is illegal"},
};

bool IsListed(int32_t code) {
  for (const CodeRow& row : kCodeRows) {
    if (row.code == code) return true;
  }
  return false;
}

TEST(ErrorCodeTest, EveryCodeHasItsText) {
  for (const CodeRow& row : kCodeRows) EXPECT_STREQ(ErrorCodeText(row.code), row.text) << row.code;
}

TEST(ErrorCodeTest, NoOtherCodeHasAText) {
  for (int32_t code = -0x6000; code < 0x6000; ++code) {
    if (IsListed(code)) continue;
    ASSERT_STREQ(ErrorCodeText(code), "Unknown error code") << code;
  }
  for (const int32_t code : {INT32_MIN, INT32_MAX, 0x10000, 0x10001}) {
    EXPECT_STREQ(ErrorCodeText(code), "Unknown error code") << code;
  }
}

TEST(ErrorCodeTest, ATextStaysWhereItIs) { EXPECT_EQ(ErrorCodeText(4104), ErrorCodeText(4104)); }

TEST(ErrorCodeTest, ReadingATextLeavesTheErrorNumber) {
  SetErrno(77);
  (void)ErrorCodeText(5);
  EXPECT_EQ(GetErrno(), 77);
}

TEST(ErrorCodeTest, EveryThreadHasAnErrorNumber) {
  SetErrno(8193);
  int32_t fresh = -1;
  int32_t stored = 0;
  std::thread([&] {
    fresh = GetErrno();
    SetErrno(-7);
    stored = GetErrno();
  }).join();
  EXPECT_EQ(fresh, 0);
  EXPECT_EQ(stored, -7);
  EXPECT_EQ(GetErrno(), 8193);
}

}  // namespace
}  // namespace libzel
