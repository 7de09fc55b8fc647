// Results that cannot be written, and input that is too long. Linux only: /dev/full, /dev/zero, files with
// holes.
#include <gtest/gtest.h>

#include <filesystem>

#include "Devices.h"
#include "ZelProcess.h"

namespace {

const std::vector<std::vector<std::string>> kCommands = {
    {"scan", "-s", "1"},
    {"id"},
    {"id", "get", kAddress},
    {"request", kDevice, "-p", "600", "hello"},
    {"request", kDevice, "-p", "600", "hello", "-c", "2"},
    {"pub", kDevice, "t", "x", "--json"},
    {"listen", kDevice, "700"},
    {"watch", kDevice, "-s", "0.2"},
    {"errors"},
    {"errors", "4104"},
    {"version"},
    {"--version"},
    {"--help"},
    {"request", "--help"},
    {"--generate", "man"},
    {"--generate", "bash"},
    {"request", kAbsentAddress, "-p", "600", "--json"},
};

std::string Joined(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += word + " ";
  return line;
}

}  // namespace

TEST(FullTest, EveryCommandTellsThatItsResultsCannotBeWritten) {
  for (const auto& arguments : kCommands) {
    const ZelResult result = RunZelTo("/dev/full", arguments);
    EXPECT_EQ(result.status, 1) << Joined(arguments);
    EXPECT_TRUE(Contains(result.errors, "zel: cannot write the results: No space left on device"))
        << Joined(arguments) << result.errors;
  }
}

TEST(FullTest, AFileThatIsTooLongIsRefusedUnread) {
  const std::string path = ScratchFile("long");
  WriteWhole(path, "");
  std::filesystem::resize_file(path, 3ULL << 30);
  const auto start = std::chrono::steady_clock::now();
  for (const auto& arguments : {std::vector<std::string>{"pub", kDevice, "t", "--file", path},
                                std::vector<std::string>{"request", kDevice, "-p", "600", "--file", path}}) {
    const ZelResult result = RunZel(arguments);
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(Contains(result.errors, path + " is too long")) << result.errors;
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST(FullTest, AFileWithoutAnEndIsRefused) {
  const ZelResult result = RunZel({"pub", kDevice, "t", "--file", "/dev/zero"});
  EXPECT_EQ(result.status, 2);
  EXPECT_TRUE(Contains(result.errors, "/dev/zero is too long")) << result.errors;
}
