// What programs give and get: structures that begin with their size, as a program of an earlier or a later release may
// have them, and texts.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace libzel {

// No structure will ever be larger: a size that was never set is found out before anything is read or written by it.
inline constexpr size_t kLargestStructure = 4096;

// True for a size that the structure can have in some release.
template <typename Structure>
bool IsSizeOf(size_t size, size_t firstSize) {
  return size >= firstSize && size <= kLargestStructure && size % alignof(Structure) == 0;
}

// Reads what the program gave: what it leaves out is 0. False when its size cannot be, or when it has something that is
// not known here.
template <typename Structure>
bool ReadStructure(const Structure* given, size_t firstSize, Structure& out) {
  if (given == nullptr || !IsSizeOf<Structure>(given->size, firstSize)) return false;
  const auto* const bytes = reinterpret_cast<const uint8_t*>(given);
  for (size_t i = sizeof out; i < given->size; ++i) {
    if (bytes[i] != 0) return false;
  }
  out = {};
  std::memcpy(&out, given, std::min(given->size, sizeof out));
  return true;
}

// Fills the program's structure, as far as it reaches; `size` stays the program's. False, and nothing is written, when that
// cannot be.
template <typename Structure>
bool FillStructure(const Structure& value, size_t firstSize, Structure* out) {
  if (out == nullptr || !IsSizeOf<Structure>(out->size, firstSize)) return false;
  const size_t size = out->size;
  auto* const bytes = reinterpret_cast<uint8_t*>(out);
  std::memset(bytes, 0, size);
  std::memcpy(bytes, &value, std::min(size, sizeof value));
  std::memcpy(bytes, &size, sizeof size);
  return true;
}

// Writes a text with its NUL, as much of it as there is room for; `size` is 1 at least.
inline void CopyText(std::string_view text, char* out, size_t size) {
  const size_t count = text.copy(out, size - 1);
  out[count] = '\0';
}

}  // namespace libzel
