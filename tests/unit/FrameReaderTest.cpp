#include "zelcomm/FrameReader.h"

#include <gtest/gtest.h>

#include <thread>

#include "support/CapturedLog.h"
#include "support/Recorders.h"
#include "support/ScriptedServer.h"
#include "zelcomm/Socket.h"

namespace libzel {
namespace {

using zeltest::Bytes;
using zeltest::Message;
using zeltest::OuterHeader;
using zeltest::Text;
using zeltest::operator+;
using Outcome = FrameReader::Outcome;

class FrameReaderTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(platform::StartSockets(), 0); }
  FrameReaderTest() {
    EXPECT_TRUE(socket.Connect(1000));
    peer = server.Accept();
    link = socket.link();
  }

  // Reads once there is something to read.
  Outcome Read(const FrameReader::Terms& terms) {
    EXPECT_TRUE(link->Select(10000));
    return reader.Read(*link, terms);
  }
  static FrameReader::Terms Terms(int64_t headerGapMs = 10000, int64_t bodyMs = 10000) {
    return {{.longestBody = 100000}, 10000, 20000, headerGapMs, bodyMs};
  }
  // Sends the pieces with a pause in front of each but the first.
  std::thread SendPieces(std::vector<Bytes> pieces, int pauseMs) {
    return std::thread([this, pieces = std::move(pieces), pauseMs] {
      for (size_t i = 0; i < pieces.size(); ++i) {
        if (i != 0) std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
        EXPECT_TRUE(peer.Send(pieces[i]));
      }
    });
  }
  Bytes Body() const { return {reader.frame().body.begin(), reader.frame().body.end()}; }

  zeltest::ScriptedServer server;
  TcpSocket socket{server.host().c_str(), 9999, Socket::kStream, false};
  zeltest::Peer peer;
  std::shared_ptr<SocketLink> link;
  FrameReader reader;
};

TEST_F(FrameReaderTest, ReadsOneFrameAtATime) {
  EXPECT_TRUE(peer.Send(Message(0, 600, Text("one")) + Message(0, 600, Text("two"))));
  EXPECT_EQ(Read(Terms()), Outcome::kFrame);
  EXPECT_EQ(Body(), Text("one"));
  EXPECT_EQ(Read(Terms()), Outcome::kFrame);
  EXPECT_EQ(Body(), Text("two"));
}

TEST_F(FrameReaderTest, HeaderMayComeInPieces) {
  const Bytes message = Message(0, 600, Text("body"));
  for (ptrdiff_t cut = 1; cut <= 7; ++cut) {
    std::thread sender = SendPieces(
        {Bytes(message.begin(), message.begin() + cut), Bytes(message.begin() + cut, message.end())}, 5);
    EXPECT_EQ(Read(Terms()), Outcome::kFrame) << cut;
    EXPECT_EQ(Body(), Text("body"));
    sender.join();
  }
}

TEST_F(FrameReaderTest, HeaderMayComeByteByByte) {
  std::vector<Bytes> pieces;
  for (const uint8_t byte : Message(0, 600, Text("body"))) pieces.push_back({byte});
  std::thread sender = SendPieces(pieces, 4);
  EXPECT_EQ(Read(Terms()), Outcome::kFrame);
  EXPECT_EQ(Body(), Text("body"));
  sender.join();
}

TEST_F(FrameReaderTest, HeaderThatNothingFollowsIsShort) {
  EXPECT_TRUE(peer.Send({0, 0, 0x58, 2, 9}));
  const zeltest::ElapsedTime time;
  EXPECT_EQ(Read(Terms(20)), Outcome::kShortHeader);
  EXPECT_GE(time.Ms(), 19);
  EXPECT_EQ(reader.headerSize(), 5U);
  EXPECT_EQ(reader.header().nMsgLen, 9U);
}

TEST_F(FrameReaderTest, HeaderWithoutALengthIsBadOnceNothingFollows) {
  EXPECT_TRUE(peer.Send({0, 0, 0x58, 2}));
  EXPECT_EQ(Read(Terms(20)), Outcome::kBadLength);
  EXPECT_EQ(reader.header().nMsgLen, 0U);
}

TEST_F(FrameReaderTest, HeaderIsWaitedForNoLongerThanTheWholeTime) {
  EXPECT_TRUE(peer.Send({0, 0, 0x58, 2, 9}));
  FrameReader::Terms terms = Terms(10000);
  terms.allMs = 30;
  const zeltest::ElapsedTime time;
  EXPECT_EQ(Read(terms), Outcome::kShortHeader);
  EXPECT_LT(time.AwakeMs(), 5000);
}

TEST_F(FrameReaderTest, EndInsideAHeaderIsAClose) {
  EXPECT_TRUE(peer.Send({0, 0, 0x58}));
  peer.EndSending();
  EXPECT_EQ(Read(Terms()), Outcome::kClosed);
}

TEST_F(FrameReaderTest, EndInsideABodyGivesNoBytes) {
  const zeltest::CapturedLog log;
  EXPECT_TRUE(peer.Send(OuterHeader(0, 600, 10) + Bytes(4)));
  peer.EndSending();
  EXPECT_EQ(Read(Terms()), Outcome::kShortBody);
  EXPECT_EQ(reader.bodySize(), 0U);
  EXPECT_FALSE(link->connected());
  EXPECT_TRUE(log.Has("ERROR", "recv 0 disconnect"));
}

TEST_F(FrameReaderTest, BodyThatDoesNotComeIsShort) {
  EXPECT_TRUE(peer.Send(OuterHeader(0, 600, 10) + Bytes(4)));
  EXPECT_EQ(Read(Terms(10000, 50)), Outcome::kShortBody);
  EXPECT_EQ(reader.bodySize(), 4U);
  EXPECT_TRUE(link->connected());
}

TEST_F(FrameReaderTest, NothingToReadIsNothing) { EXPECT_EQ(reader.Read(*link, Terms()), Outcome::kNothing); }

TEST_F(FrameReaderTest, AnotherReadersTurnIsWaitedForInVain) {
  link->frameMutex().lock();
  std::thread other([&] {
    FrameReader::Terms terms = Terms();
    terms.turnMs = 10;
    FrameReader second;
    EXPECT_EQ(second.Read(*link, terms), Outcome::kNothing);
  });
  other.join();
  link->frameMutex().unlock();
}

TEST_F(FrameReaderTest, CancelEndsAReadInsideABodyWithoutAnErrorLine) {
  const zeltest::CapturedLog log;
  EXPECT_TRUE(peer.Send(OuterHeader(0, 600, 10) + Bytes(4)));
  EXPECT_TRUE(link->Select(10000));
  std::thread canceller([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    socket.Cancel();
  });
  const zeltest::ElapsedTime time;
  EXPECT_EQ(reader.Read(*link, Terms()), Outcome::kShortBody);
  EXPECT_LT(time.AwakeMs(), 5000);
  canceller.join();
  for (const auto& line : log.Lines()) EXPECT_NE(line.level, "ERROR") << line.message;
}

// ---- Frames that stay with the link -----------------------------------------------------------------------

class PatientReaderTest : public FrameReaderTest {
 protected:
  static FrameReader::Terms Patient(int64_t silenceMs = 60000) {
    FrameReader::Terms terms = Terms();
    terms.headerSilenceMs = terms.bodySilenceMs = silenceMs;
    return terms;
  }
  // Sends a part of a frame, and reads it.
  void Leave(const Bytes& part) {
    EXPECT_TRUE(peer.Send(part));
    EXPECT_EQ(Read(Patient()), Outcome::kNothing);
    EXPECT_TRUE(link->HasUnfinished());
  }

  const Bytes message = Message(0, 600, Text("hello"));
};

TEST_F(PatientReaderTest, AFrameInPiecesIsReadWithoutAWait) {
  for (const uint8_t byte : Bytes(message.begin(), message.end() - 1)) Leave({byte});
  EXPECT_TRUE(peer.Send({message.back()}));
  EXPECT_EQ(Read(Patient()), Outcome::kFrame);
  EXPECT_EQ(Body(), Text("hello"));
  EXPECT_FALSE(link->HasUnfinished());
}

TEST_F(PatientReaderTest, AnotherReaderGoesOnWithIt) {
  Leave({message.begin(), message.begin() + 10});
  EXPECT_TRUE(peer.Send({message.begin() + 10, message.end()}));
  reader = FrameReader();
  EXPECT_EQ(Read(Terms()), Outcome::kFrame);
  EXPECT_EQ(Body(), Text("hello"));
}

TEST_F(PatientReaderTest, AnotherReadersLongestBodyHolds) {
  Leave({message.begin(), message.begin() + 10});
  FrameReader::Terms terms = Patient();
  terms.limits.longestBody = 4;
  EXPECT_EQ(reader.Read(*link, terms), Outcome::kBadLength);
}

TEST_F(PatientReaderTest, SilenceInsideAHeaderMakesItShort) {
  Leave({message.begin(), message.begin() + 6});
  EXPECT_TRUE(zeltest::Eventually([&] { return reader.Read(*link, Patient(20)) == Outcome::kShortHeader; }));
  EXPECT_EQ(reader.headerSize(), 6U);
}

TEST_F(PatientReaderTest, SilenceInsideABodyMakesItShort) {
  Leave({message.begin(), message.begin() + 10});
  EXPECT_TRUE(zeltest::Eventually([&] { return reader.Read(*link, Patient(20)) == Outcome::kShortBody; }));
  EXPECT_EQ(reader.bodySize(), 2U);
}

TEST_F(PatientReaderTest, WhatHasComeIsReadBeforeSilenceIsJudged) {
  Leave({message.begin(), message.begin() + 10});
  EXPECT_TRUE(zeltest::Eventually([&] { return link->MsUntilOverdue() <= 60000 - 50; }));
  EXPECT_TRUE(peer.Send({message.begin() + 10, message.end()}));
  EXPECT_EQ(Read(Patient(20)), Outcome::kFrame);
}

TEST_F(PatientReaderTest, TheEndOfTheStreamInsideABodyIsAShortBody) {
  Leave({message.begin(), message.begin() + 10});
  peer.Close();
  EXPECT_EQ(Read(Patient()), Outcome::kShortBody);
}

}  // namespace
}  // namespace libzel
