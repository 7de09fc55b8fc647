#include <gtest/gtest.h>

#include <fstream>

#include "Description.h"
#include "DeviceId.h"
#include "DirectAnswer.h"
#include "Fleet.h"
#include "ScanAnswer.h"
#include "Support.h"

namespace zelsim {
namespace {

using asio::ip::address_v4;
using asio::ip::make_address_v4;

const address_v4 kAddress = make_address_v4("10.77.0.2");

Json Bent(const char* fault, const Json& document) {
  const FaultPlan plan({*ParseFault(fault)}, "", 0);
  const Bytes bytes = BuildScanAnswer(plan, 1, document, 7).bytes;
  return Json::parse(bytes.begin() + 9, bytes.end(), nullptr, false);
}

TEST(DeviceId, TextAndBytesGoBothWays) {
  const auto id = ParseDeviceId("192.168.1.20.0.255");
  ASSERT_TRUE(id);
  EXPECT_EQ(*id, (DeviceId{192, 168, 1, 20, 0, 255}));
  EXPECT_EQ(ToText(*id), "192.168.1.20.0.255");
}

TEST(DeviceId, OtherTextsAreRefused) {
  for (const char* text : {"", "1.2.3.4.5", "1.2.3.4.5.6.7", "1.2.3.4.5.256", "1.2.3.4.5.", "a.b.c.d.e.f"}) {
    EXPECT_FALSE(ParseDeviceId(text)) << text;
  }
}

TEST(Fleet, RangeIsNamedAfterItsAddresses) {
  Fleet fleet;
  fleet.AddRange(300, make_address_v4("10.77.1.1"));
  ASSERT_EQ(fleet.Devices().size(), 300u);
  const Device* last = fleet.At(make_address_v4("10.77.2.44"));
  ASSERT_NE(last, nullptr);
  EXPECT_EQ(ToText(last->id), "10.77.2.44.0.1");
  EXPECT_EQ(last->number, 300u);
  EXPECT_EQ(fleet.At(make_address_v4("10.77.2.45")), nullptr);
}

TEST(Fleet, DeviceWithoutAnAddressAnswersEverywhereElse) {
  Fleet fleet;
  fleet.Add(*ParseDevice("1.1.1.1.1.1@10.77.0.2"));
  fleet.Add(*ParseDevice("2.2.2.2.2.2"));
  EXPECT_EQ(fleet.At(kAddress)->number, 1u);
  EXPECT_EQ(fleet.At(make_address_v4("10.77.0.9"))->number, 2u);
  EXPECT_FALSE(ParseDevice("1.1.1.1.1.1@0.0.0.0"));
  EXPECT_FALSE(ParseDevice("1.1.1.1.1.1@x"));
}

TEST(Description, FileIsSentAsItIsButForSelf) {
  DescriptionOptions options;
  options.document =
      Json::parse(R"({"device":{"zelDeviceId":"self","extra":[1]},)"
                  R"("frames":[{"frameIp":"self"},{"frameIp":"1.2.3.4","frameMacAddr":"self"}]})");
  const Json document = Describe(options, {.id = {1, 2, 3, 4, 5, 6}}, kAddress);
  EXPECT_EQ(document.dump(),
            R"({"device":{"zelDeviceId":"1.2.3.4.5.6","extra":[1]},"frames":[)"
            R"({"frameIp":"10.77.0.2"},{"frameIp":"1.2.3.4","frameMacAddr":"02:00:0A:4D:00:02"}]})");
}

TEST(Description, FileMayHoldAnyJson) {
  for (const char* text :
       {"{}", "[]", "17", R"({"device":"x","frames":{"a":1}})", R"({"frames":[1,null]})"}) {
    DescriptionOptions options;
    options.document = Json::parse(text);
    EXPECT_EQ(Describe(options, {}, kAddress), *options.document);
  }
}

TEST(Description, FileThatIsNoJsonIsRefused) {
  test::TemporaryDirectory directory;
  const std::string path = directory.Path() + "/description";
  std::ofstream(path) << "{";
  EXPECT_FALSE(ReadDescriptionFile(path));
  EXPECT_FALSE(ReadDescriptionFile(path + ".none"));
}

TEST(ScanAnswer, MemberFaultMakesANumberOfTheMember) {
  const Json document = Json::parse(R"({"device":{"sn":"x"},"frames":[{"frameIp":"a","frameMacAddr":"b"}]})");
  EXPECT_EQ(Bent("scan-member:sn", document)["device"]["sn"], 17);
  EXPECT_EQ(Bent("scan-member:device", document)["device"], 17);
  EXPECT_EQ(Bent("scan-member:frames", document)["frames"], 17);
  EXPECT_EQ(Bent("scan-member:frameIp", document)["frames"][0]["frameIp"], 17);
}

TEST(ScanAnswer, FaultsStandAnyDocument) {
  for (const char* text : {"{}", "[]", R"({"device":"x","frames":[1]})", R"({"frames":"x"})"}) {
    for (const char* fault : {"scan-member:sn", "scan-member:frameIp", "scan-no-mac", "scan-oversize"}) {
      EXPECT_FALSE(Bent(fault, Json::parse(text)).is_discarded()) << text << fault;
    }
  }
}

TEST(ScanAnswer, TextFaultReplacesTheDocument) {
  EXPECT_EQ(Bent("scan-text:{\"a\":1}", {}), Json({{"a", 1}}));
}

TEST(ScanAnswer, TextThatIsNotUtf8IsStillSent) {
  const FaultPlan none;
  EXPECT_FALSE(BuildScanAnswer(none, 1, {{"device", {{"sn", "\xff"}}}}, 0).bytes.empty());
}

TEST(ScanAnswer, TimestampIsBigEndian) {
  const FaultPlan none;
  const Bytes bytes = BuildScanAnswer(none, 1, Json::object(), 0x01020304).bytes;
  EXPECT_EQ(bytes, (Bytes{1, 0, 0, 0, 0, 1, 2, 3, 4, '{', '}'}));
}

TEST(DirectAnswer, DatagramMustBeExactlyOneFrame) {
  const Bytes request = test::BuildRequest({.payload = {1, 2}});
  ASSERT_TRUE(ReadDirectRequest(request));
  EXPECT_FALSE(ReadDirectRequest(ByteView(request).first(request.size() - 1)));
  EXPECT_FALSE(ReadDirectRequest(test::Join({request, {0}})));
}

TEST(DirectAnswer, IdentityQuestionsNeedTheirPort) {
  Device device{.id = {1, 2, 3, 4, 5, 6}};
  const Bytes request = test::BuildRequest({.port = 102, .idGroup = 0x1000, .idOffset = 0x1001, .cmd = 1});
  EXPECT_EQ(AnswerDirectRequest({}, *ReadDirectRequest(request), device).bytes.size(), 21u);
}

}  // namespace
}  // namespace zelsim
