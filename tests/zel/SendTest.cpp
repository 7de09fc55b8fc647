#include <gtest/gtest.h>

#include "Devices.h"
#include "ZelProcess.h"

namespace {

std::string Content(size_t size) {
  std::string content(size, '\0');
  for (size_t i = 0; i < size; ++i) content[i] = static_cast<char>(i * 7 + i / 8192);
  return content;
}

std::string LocalFile(size_t size) {
  const std::string path = ScratchFile("local" + std::to_string(size));
  WriteWhole(path, Content(size));
  return path;
}

}  // namespace

TEST(SendTest, FilesOfEverySizeArriveByteForByte) {
  for (const size_t size : {0U, 1U, 8191U, 8192U, 8193U, 16384U, 20000U, 1048576U}) {
    const std::string name = "remote" + std::to_string(size);
    const ZelResult result = RunZel({"send", kDevice, "710", LocalFile(size), "/data/" + name});
    EXPECT_EQ(result.status, 0) << size << result.errors;
    EXPECT_TRUE(ReadWhole(ScratchFile(name)) == Content(size)) << size;
  }
}

TEST(SendTest, SaysHowMuchWasSent) {
  const ZelResult result = RunZel({"send", kAddress, "710", LocalFile(20000), "said"});
  EXPECT_EQ(Lines(result.output).size(), 1U);
  EXPECT_TRUE(Contains(result.output, ": 19.5 KiB in ")) << result.output;
}

TEST(SendTest, TheRemoteNameIsTheFilesOwn) {
  const std::string path = LocalFile(77);
  EXPECT_EQ(RunZel({"send", kDevice, "710", path, "--json"}).status, 0);
  const ZelResult result = RunZel({"send", kDevice, "710", path, "--json"});
  EXPECT_TRUE(Contains(result.output, "\"remote\":\"local77\"")) << result.output;
}

TEST(SendTest, WritesObjects) {
  const ZelResult result = RunZel({"send", kDevice, "710", LocalFile(20000), "object", "--json"});
  const auto lines = Lines(result.output);
  ASSERT_GE(lines.size(), 2U);
  EXPECT_TRUE(lines.front().starts_with("{\"event\":\"progress\","));
  EXPECT_TRUE(lines.back().starts_with("{\"event\":\"done\","));
  EXPECT_TRUE(Contains(lines.back(), "\"bytes\":20000,\"progress\":1.0,"));
}

TEST(SendTest, TheDevicesErrorIsShownByName) {
  const ZelResult result = RunZel({"send", kFullDevice, "710", LocalFile(20000), "full"});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(Contains(result.errors, "error 8201: disk is full"));
}

TEST(SendTest, NoServerIsAnError) {
  const ZelResult result = RunZel({"send", kAbsentDevice, "710", LocalFile(10), "x"});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(Contains(result.errors, "refuses connections to TCP port 9999: error 5: alaready disconnect"));
}

TEST(SendTest, AMissingFileIsUsage) {
  const ZelResult result = RunZel({"send", kDevice, "710", ScratchFile("missing"), "x"});
  EXPECT_EQ(result.status, 2);
  EXPECT_TRUE(Contains(result.errors, "zel: cannot read ")) << result.errors;
}

TEST(SendTest, AFolderIsUsage) {
  EXPECT_EQ(RunZel({"send", kDevice, "710", ScratchFile("."), "x"}).status, 2);
}
