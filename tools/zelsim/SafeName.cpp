#include "SafeName.h"

namespace zelsim {
namespace {

// The longest name that common file systems take.
constexpr size_t kLongestName = 255;

// Empty when the text has no last component that can be a name.
std::string LastComponent(std::string_view text) {
  const size_t separator = text.find_last_of("/\\");
  std::string name(separator == text.npos ? text : text.substr(separator + 1));
  for (char& letter : name) {
    const auto byte = static_cast<unsigned char>(letter);
    if (byte < ' ' || byte == 0x7f) letter = '_';
  }
  return name == "." || name == ".." ? "" : name;
}

}  // namespace

std::string SafeName(std::string_view destination, std::string_view ownName) {
  std::string name = LastComponent(destination);
  if (name.empty()) name = LastComponent(ownName);
  if (name.empty()) name = "unnamed";
  if (name.starts_with(kPartPrefix)) name.insert(name.begin(), '_');
  return name.substr(0, kLongestName);
}

}  // namespace zelsim
