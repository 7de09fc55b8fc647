// What needs no server: identifiers, results, views.
#include <gtest/gtest.h>
#include <libzel/libzel.hpp>

#include <array>
#include <map>
#include <sstream>
#include <unordered_set>
#if __cplusplus >= 202002L
#include <span>
#endif

namespace {

using zel::DeviceId;

TEST(TypesTest, DeviceIdReadsWhatItPrints) {
  for (const char* text : {"0.0.0.0.0.0", "192.168.1.20.0.1", "255.255.255.255.255.255"}) {
    const auto id = DeviceId::Parse(text);
    ASSERT_TRUE(id.has_value()) << text;
    EXPECT_EQ(id->ToString(), text);
  }
  EXPECT_EQ(DeviceId::Parse("1.2.3.4.5.6")->Raw().bytes[5], 6);
  EXPECT_EQ(DeviceId(1, 2, 3, 4, 5, 6).ToString(), "1.2.3.4.5.6");
}

TEST(TypesTest, DeviceIdRefusesEverythingElse) {
  for (const char* text : {"", ".", "1.2.3.4.5", "1.2.3.4.5.", "1.2.3.4.5.6.", "1.2.3.4.5.6.7", ".2.3.4.5.6",
                           "1..3.4.5.6", "1.2.3.4.5.256", "1.2.3.4.5.-1", "1.2.3.4.5.+6", " 1.2.3.4.5.6",
                           "1.2.3.4.5.6 ", "1,2,3,4,5,6", "1.2.3.4.5.0006", "a.b.c.d.e.f"}) {
    EXPECT_FALSE(DeviceId::Parse(text).has_value()) << "'" << text << "'";
  }
}

TEST(TypesTest, DeviceIdIsOrderedByItsBytes) {
  const DeviceId low(1, 2, 3, 4, 5, 6), high(1, 2, 3, 4, 5, 200), higher(2, 0, 0, 0, 0, 0);
  EXPECT_TRUE(low < high && high < higher && higher > low);
  EXPECT_TRUE(low <= low && low >= low && low == low && low != high);
  EXPECT_FALSE(low < low || low != low || low == high);
  const std::map<DeviceId, int> ordered{{higher, 3}, {low, 1}, {high, 2}};
  EXPECT_EQ(ordered.begin()->second, 1);
}

TEST(TypesTest, DeviceIdHashesByValue) {
  std::unordered_set<DeviceId> ids;
  for (int i = 0; i < 512; ++i) {
    ids.insert(DeviceId(10, 77, 0, static_cast<uint8_t>(i), static_cast<uint8_t>(i >> 8), 1));
  }
  EXPECT_EQ(ids.size(), 512U);
  EXPECT_EQ(ids.count(DeviceId(10, 77, 0, 7, 1, 1)), 1U);
  EXPECT_EQ(ids.count(DeviceId(10, 77, 0, 7, 2, 1)), 0U);
  EXPECT_EQ(std::hash<DeviceId>()(DeviceId()), std::hash<DeviceId>()(DeviceId()));
}

TEST(TypesTest, ResultCarriesCodeAndText) {
  EXPECT_TRUE(zel::Result());
  const zel::Result timeout(ZEL_E_TIMEOUT);
  EXPECT_FALSE(timeout);
  EXPECT_EQ(timeout.Code(), 4104);
  EXPECT_STREQ(timeout.Text(), "recv message timeout");
  EXPECT_STREQ(zel::Result(zel::kErrorTooLong).Text(), "frame longer than 10485760 bytes, nothing sent");
  EXPECT_STREQ(zel::Result(ZEL_E_RESOURCE).Text(), "init resource fail");
  EXPECT_STREQ(zel::Result(ZEL_E_MEMORY).Text(), "no memory");
  EXPECT_STREQ(zel::Result(zel::kErrorCancelled).Text(), "cancelled");
  EXPECT_EQ(timeout, zel::Result(4104));
  EXPECT_NE(timeout, zel::Result());
}

TEST(TypesTest, ResultIsAnErrorCodeToo) {
  const std::error_code timeout = zel::Result(ZEL_E_TIMEOUT).ErrorCode();
  EXPECT_EQ(timeout.value(), ZEL_E_TIMEOUT);
  EXPECT_STREQ(timeout.category().name(), "zel");
  EXPECT_EQ(timeout.message(), "recv message timeout");
  EXPECT_TRUE(timeout == std::errc::timed_out);
  EXPECT_TRUE(zel::Result(ZEL_E_DISCONNECTED).ErrorCode() == std::errc::not_connected);
  EXPECT_FALSE(zel::Result(ZEL_E_TOPIC).ErrorCode() == std::errc::timed_out);
  EXPECT_FALSE(zel::Result().ErrorCode());
}

TEST(TypesTest, OneThingHasOneCode) {
  EXPECT_EQ(zel::kErrorTooLong, LIBZELX_E_TOO_LONG);
  EXPECT_EQ(zel::kErrorCancelled, LIBZELX_E_CANCELLED);
  EXPECT_TRUE(zel::Result(zel::kErrorTooLong).ErrorCode() == std::errc::message_size);
  EXPECT_TRUE(zel::Result(zel::kErrorCancelled).ErrorCode() == std::errc::operation_canceled);
}

TEST(TypesTest, ResultsAndIdentifiersAreWrittenToStreams) {
  std::ostringstream out;
  out << zel::Result(ZEL_E_TIMEOUT) << ", " << DeviceId(1, 2, 3, 4, 5, 6);
  EXPECT_EQ(out.str(), "recv message timeout (4104), 1.2.3.4.5.6");
}

TEST(TypesTest, ValueOfAFailureIsTheOtherOne) {
  const zel::ValueOf<std::string> good(zel::Result(), "value");
  EXPECT_EQ(good.value_or("other"), "value");
  EXPECT_EQ(zel::ValueOf<std::string>(zel::Result(5), "value").value_or("other"), "other");
}

TEST(TypesTest, DeviceIdIsReadWhenItIsCompiled) {
  constexpr auto kId = DeviceId::Parse("1.2.3.4.5.6");
  static_assert(kId.has_value() && kId->Raw().bytes[5] == 6);
  static_assert(!DeviceId::Parse("1.2.3.4.5").has_value());
  EXPECT_EQ(*kId, DeviceId(1, 2, 3, 4, 5, 6));
}

TEST(TypesTest, BytesViewWhateverHoldsBytes) {
  const std::string text = "abc";
  const std::vector<uint8_t> vector{1, 2, 3, 4};
  const std::array<uint8_t, 2> array{8, 9};
  EXPECT_EQ(zel::Bytes(text).size(), 3U);
  EXPECT_EQ(zel::Bytes("abcd").size(), 4U);
  EXPECT_EQ(zel::Bytes(std::string_view("a\0b", 3)).size(), 3U);
  EXPECT_EQ(zel::Bytes(vector).data(), vector.data());
  EXPECT_EQ(zel::Bytes(array)[1], 9);
  EXPECT_EQ(zel::Bytes(vector).Copy(), vector);
  EXPECT_EQ(zel::Bytes(text).AsText(), "abc");
  EXPECT_TRUE(zel::Bytes().empty());
#if __cplusplus >= 202002L
  const std::span<const uint8_t> span = zel::Bytes(vector);
  EXPECT_EQ(span.size(), 4U);
  EXPECT_EQ(zel::Bytes(span).data(), vector.data());
#endif
}

TEST(TypesTest, BytesTakeAllOfAnArrayOfBytes) {
  const uint8_t bytes[] = {0, 1, 2, 0};
  std::byte plain[] = {std::byte{7}, std::byte{0}};
  const char texts[] = {0, 1, 2, 3};
  EXPECT_EQ(zel::Bytes(bytes).Copy(), (std::vector<uint8_t>{0, 1, 2, 0}));
  EXPECT_EQ(zel::Bytes(plain).Copy(), (std::vector<uint8_t>{7, 0}));
  EXPECT_EQ(zel::Bytes(texts).Copy(), (std::vector<uint8_t>{0, 1, 2, 3}));
}

TEST(TypesTest, BytesOfALiteralHaveItsNulsButTheLast) {
  EXPECT_EQ(zel::Bytes("a\0b").AsText(), std::string_view("a\0b", 3));
  EXPECT_TRUE(zel::Bytes("").empty());
}

TEST(TypesTest, BytesOfAPointerEndAtTheNul) {
  char buffer[] = "ab\0c";
  char* const text = buffer;
  const char* const none = nullptr;
  EXPECT_EQ(zel::Bytes(text).AsText(), "ab");
  EXPECT_EQ(zel::Bytes(buffer, 4).AsText(), std::string_view("ab\0c", 4));
  EXPECT_TRUE(zel::Bytes(none).empty());
}

TEST(TypesTest, LibraryTellsItsVersion) {
  const zel::Version version = zel::Library::GetVersion();
  std::ostringstream text;
  text << version.majorNumber << '.' << version.minorNumber << '.' << version.patchNumber;
  EXPECT_EQ(text.str(), "0.2.3");
}

TEST(TypesTest, EmptyConnectionRefusesEverything) {
  zel::Connection none;
  EXPECT_FALSE(none.IsOpen());
  EXPECT_EQ(none.StartLoop().Code(), ZEL_E_HANDLE);
  EXPECT_EQ(none.StopLoop().Code(), ZEL_E_HANDLE);
  EXPECT_EQ(none.Reconnect(zel::Milliseconds(10)).Code(), ZEL_E_HANDLE);
  EXPECT_EQ(none.SetReconnectInterval(std::chrono::seconds(1)).Code(), ZEL_E_HANDLE);
  EXPECT_EQ(none.Send(600, {}, "x", zel::Milliseconds(10)).Code(), ZEL_E_HANDLE);
  EXPECT_EQ(none.Receive(zel::Milliseconds(10)).Code(), ZEL_E_HANDLE);
  EXPECT_EQ(none.Publish("t", "x").Code(), ZEL_E_HANDLE);
  EXPECT_EQ(none.PublishWithin("t", "x", zel::Milliseconds(10)).Code(), ZEL_E_HANDLE);
  EXPECT_EQ(none.PublishMany({{"t", "x", {}}}, zel::Milliseconds(10)).Code(), ZEL_E_HANDLE);
  EXPECT_EQ(none.Flush(zel::Milliseconds(10)).Code(), ZEL_E_HANDLE);
  EXPECT_EQ(none.Stats().Code(), ZEL_E_HANDLE);
  EXPECT_FALSE(none.IsUp());
  EXPECT_EQ(none.Subscribe("t", [](const zel::TopicMessage&) {}).Code(), ZEL_E_HANDLE);
  EXPECT_EQ(none.Unsubscribe("t").Code(), ZEL_E_HANDLE);
  EXPECT_EQ(none.Route(700, [](uint16_t, zel::Bytes) {}).Code(), ZEL_E_HANDLE);
  EXPECT_EQ(none.Unroute(700).Code(), ZEL_E_HANDLE);
  none.Release();
}

}  // namespace
