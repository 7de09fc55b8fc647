// What this process holds in memory.
#pragma once

#include <cstdint>

namespace zeltest {

// The most bytes that were resident at any time so far.
int64_t PeakResidentBytes();

}  // namespace zeltest
