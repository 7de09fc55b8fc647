// Paths in UTF-8, whatever the system's own texts are.
#pragma once

#include <filesystem>
#include <string>

namespace zeltool {

inline std::filesystem::path PathFrom(const std::string& utf8) {
  return {std::u8string(utf8.begin(), utf8.end())};
}

inline std::string Utf8Of(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return {text.begin(), text.end()};
}

}  // namespace zeltool
