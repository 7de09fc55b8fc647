// Numbers to and from bytes by position, in either byte order.
//
// The caller vouches for the room: every function touches exactly the bytes of its number.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace zelsim {

using Bytes = std::vector<uint8_t>;
using ByteView = std::span<const uint8_t>;

template <typename T>
void PutLe(uint8_t* at, T value) {
  for (size_t i = 0; i < sizeof(T); ++i) at[i] = static_cast<uint8_t>(value >> (8 * i));
}

template <typename T>
void PutBe(uint8_t* at, T value) {
  for (size_t i = 0; i < sizeof(T); ++i) at[sizeof(T) - 1 - i] = static_cast<uint8_t>(value >> (8 * i));
}

template <typename T>
T GetLe(const uint8_t* at) {
  T value = 0;
  for (size_t i = 0; i < sizeof(T); ++i) value = static_cast<T>(value | static_cast<T>(at[i]) << (8 * i));
  return value;
}

template <typename T>
T GetBe(const uint8_t* at) {
  T value = 0;
  for (size_t i = 0; i < sizeof(T); ++i)
    value = static_cast<T>(value | static_cast<T>(at[sizeof(T) - 1 - i]) << (8 * i));
  return value;
}

inline void Append(Bytes& to, ByteView bytes) { to.insert(to.end(), bytes.begin(), bytes.end()); }

}  // namespace zelsim
