#include "Fault.h"

#include <gtest/gtest.h>

#include "ShapedAnswer.h"

namespace zelsim {
namespace {

const AnswerHead kHead{.port = 600, .error = 0, .invokeId = 7, .cmd = 9};
const Bytes kPayload{1, 2, 3, 4};

ShapedAnswer Shape(std::vector<std::string> texts, uint64_t frame = 1) {
  std::vector<Fault> faults;
  for (const std::string& text : texts) faults.push_back(ParseFault(text).value());
  return ShapeAnswer(FaultPlan(faults, "127.0.0.1:1", 1), frame, kHead, kPayload);
}

TEST(Fault, ReadsListenerFramesAndConnection) {
  const auto fault = ParseFault("127.0.0.2:9999=pause:3:50@2+#4");
  ASSERT_TRUE(fault);
  EXPECT_EQ(fault->kind, FaultKind::kPause);
  EXPECT_EQ(fault->where, "127.0.0.2:9999");
  EXPECT_EQ(fault->first, 3u);
  EXPECT_EQ(fault->second, 50u);
  EXPECT_EQ(fault->fromFrame, 2u);
  EXPECT_EQ(fault->toFrame, UINT64_MAX);
  EXPECT_EQ(fault->connection, 4u);
}

TEST(Fault, RefusesTextsThatItDoesNotKnow) {
  for (const char* text :
       {"", "split", "split:", "split:0", "split:1:2:3", "raw:xyz", "pause:1", "close", "other:1", "short:1@",
        "short:1@2-", "short:1@2-3+", "short:1#", "here:1=split:1"}) {
    EXPECT_FALSE(ParseFault(text)) << text;
  }
}

TEST(Fault, PlanKeepsTheFaultsOfItsListenerAndConnection) {
  const std::vector<Fault> faults{*ParseFault("127.0.0.2:1=short:1"), *ParseFault("cut:1#2")};
  EXPECT_TRUE(FaultPlan(faults, "127.0.0.3:1", 1).Empty());
  EXPECT_NE(FaultPlan(faults, "127.0.0.2:1", 1).Find(FaultKind::kShort), nullptr);
  EXPECT_NE(FaultPlan(faults, "127.0.0.3:1", 2).Find(FaultKind::kCut), nullptr);
}

TEST(Fault, FrameSelectionIsInclusive) {
  const FaultPlan plan({*ParseFault("short:1@2-3")}, "", 1);
  EXPECT_EQ(plan.Find(FaultKind::kShort, 1), nullptr);
  EXPECT_NE(plan.Find(FaultKind::kShort, 2), nullptr);
  EXPECT_NE(plan.Find(FaultKind::kShort, 3), nullptr);
  EXPECT_EQ(plan.Find(FaultKind::kShort, 4), nullptr);
}

TEST(ShapedAnswer, WithoutAFaultIsTheAnswer) { EXPECT_EQ(Shape({}).bytes, EncodeAnswer(kHead, kPayload)); }

TEST(ShapedAnswer, ShortBodyKeepsTheAnnouncedLength) {
  const Bytes bytes = Shape({"short:3"}).bytes;
  EXPECT_EQ(bytes.size(), 8u + 17 - 3);
  EXPECT_EQ(ReadHeader(bytes).bodyLength, 17u);
}

TEST(ShapedAnswer, CutBodyIsAnnouncedAsItIs) {
  const Bytes bytes = Shape({"body:12"}).bytes;
  EXPECT_EQ(bytes.size(), 20u);
  EXPECT_EQ(ReadHeader(bytes).bodyLength, 12u);
}

TEST(ShapedAnswer, LengthFaultChangesTheHeaderOnly) {
  const Bytes bytes = Shape({"length:oversize"}).bytes;
  EXPECT_EQ(bytes.size(), 25u);
  EXPECT_EQ(ReadHeader(bytes).bodyLength, 0xA00000u);
  EXPECT_EQ(ReadHeader(Shape({"length:zero"}).bytes).bodyLength, 0u);
  EXPECT_EQ(ReadHeader(Shape({"length:0xFFFFFFFF"}).bytes).bodyLength, 0xFFFFFFFFu);
}

TEST(ShapedAnswer, WrongIdentifiersComeBeforeTheRightOne) {
  const Bytes bytes = Shape({"invoke:2"}).bytes;
  ASSERT_EQ(bytes.size(), 75u);
  EXPECT_EQ(GetBe<uint32_t>(&bytes[12]), 8u);
  EXPECT_EQ(GetBe<uint32_t>(&bytes[25 + 12]), 9u);
  EXPECT_EQ(GetBe<uint32_t>(&bytes[50 + 12]), 7u);
}

TEST(ShapedAnswer, VersionZeroHasNoInnerHeader) {
  EXPECT_EQ(Shape({"version:0"}).bytes, EncodeBare(600, kPayload));
  EXPECT_EQ(Shape({"version:7"}).bytes[1], 7);
}

TEST(ShapedAnswer, GarbageIsTheSameForTheSameSeed) {
  EXPECT_EQ(Shape({"garbage:40:9"}).bytes, Shape({"garbage:40:9"}).bytes);
  EXPECT_NE(Shape({"garbage:40:9"}).bytes, Shape({"garbage:40:8"}).bytes);
  EXPECT_EQ(Shape({"garbage:40:9"}).bytes.size(), 40u);
}

TEST(ShapedAnswer, RawBytesReplaceTheAnswer) { EXPECT_EQ(Shape({"raw:0102ff"}).bytes, (Bytes{1, 2, 255})); }

TEST(ShapedAnswer, CutEndsTheConnection) {
  const ShapedAnswer shaped = Shape({"cut:5"});
  EXPECT_EQ(shaped.bytes.size(), 5u);
  EXPECT_TRUE(shaped.closeAfter);
}

TEST(ShapedAnswer, FaultLeavesOtherFramesAlone) {
  EXPECT_EQ(Shape({"cut:5@2"}, 1).bytes, EncodeAnswer(kHead, kPayload));
  EXPECT_EQ(Shape({"cut:5@2"}, 2).bytes.size(), 5u);
}

}  // namespace
}  // namespace zelsim
