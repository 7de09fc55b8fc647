// How far a transfer is, as one line. Debian has no progress bar library for C++, least of all one that
// Windows builds could use, so the few characters are put together here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zeltool {

struct ProgressState {
  std::string name;
  double fraction = 0;
  double bytes = 0;
  double seconds = 0;
};

// Bytes per second, 0 before anything can be said.
double Rate(const ProgressState& state);
// Seconds to go, negative before anything can be said.
double Remaining(const ProgressState& state);

// "recipe.bin   42% [=======>          ] 4.2 MiB of 10.0 MiB, 2.1 MiB/s, 0:03 left", at most `columns` - 1
// wide.
std::string ProgressLine(const ProgressState& state, size_t columns);

}  // namespace zeltool
