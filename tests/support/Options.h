// Short forms of the calls that set and ask options.
#pragma once

#include <optional>

#include "libzel/libzelx.h"

namespace zeltest {

// Nothing when the call fails.
inline std::optional<int64_t> OptionOf(ZelInstance instance, int32_t option) {
  int64_t value = -1;
  if (libzelx_getOption(instance, option, &value) != ZEL_OK) return std::nullopt;
  return value;
}

// Sets an option of the process, or one that new instances begin with, for as long as it lives.
class OptionSet {
 public:
  OptionSet(int32_t option, int64_t value) : option_(option), earlier_(OptionOf(0, option).value_or(0)) {
    (void)libzelx_setOption(0, option, value);
  }
  ~OptionSet() { (void)libzelx_setOption(0, option_, earlier_); }
  OptionSet(const OptionSet&) = delete;
  OptionSet& operator=(const OptionSet&) = delete;

 private:
  const int32_t option_;
  const int64_t earlier_;
};

}  // namespace zeltest
