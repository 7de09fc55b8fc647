// Files that the lab's simulator receives are what was sent, byte for byte.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "support/FileDevice.h"
#include "support/LibraryStart.h"
#include "support/ScriptedServer.h"

namespace zeltest {
namespace {

namespace fs = std::filesystem;

constexpr int kDeliveryMs = 100000;

std::string ContentOf(size_t size) {
  std::string content(size, '\0');
  uint32_t state = 1;
  for (char& byte : content) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<char>(state >> 24);
  }
  return content;
}

std::string Read(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class FileDeliveryTest : public testing::TestWithParam<size_t> {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  const fs::path lab_ = std::getenv("ZEL_LAB");
};

TEST_P(FileDeliveryTest, ArrivesWhole) {
  const std::string content = ContentOf(GetParam());
  const fs::path sent = lab_ / ("sent" + std::to_string(GetParam()));
  const std::string name = "received" + std::to_string(GetParam());
  std::ofstream(sent, std::ios::binary).write(content.data(), static_cast<std::streamsize>(content.size()));
  static auto& progress = *new ProgressRecorder;
  const uint32_t id = ZelFileTransfer({SimulatedServer(), 700}, 0, 0, sent.string().c_str(), name.c_str(),
                                      ProgressRecorder::Callback, &progress);
  ASSERT_TRUE(progress.AwaitThat(
      [&](const std::vector<SeenProgress>& seen) {
        return seen.back().transfer == id && (seen.back().state == 2 || seen.back().error != 0);
      },
      kDeliveryMs));
  EXPECT_EQ(progress.All().back().error, 0U);
  EXPECT_TRUE(Read(lab_ / name) == content);
}

INSTANTIATE_TEST_SUITE_P(Sizes, FileDeliveryTest,
                         testing::Values(0, 1, 8191, 8192, 8193, 16384, 20000, 1 << 20, 64 << 20));

}  // namespace
}  // namespace zeltest
