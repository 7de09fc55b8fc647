// A folder of a test's own that goes with the object.
#pragma once

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>

namespace zeltest {

class TemporaryFolder {
 public:
  TemporaryFolder()
      : path_(std::filesystem::temp_directory_path() / ("zeltest" + std::to_string(std::random_device()()))) {
    std::filesystem::create_directories(path_);
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string Path(std::string_view name) const { return (path_ / name).string(); }
  // Gives the file's path.
  std::string Write(std::string_view name, std::string_view content) const {
    std::ofstream(path_ / name, std::ios::binary) << content;
    return Path(name);
  }

 private:
  std::filesystem::path path_;
};

}  // namespace zeltest
