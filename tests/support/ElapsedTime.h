// Time since its making, in ms. A test that wants something done in time asks for AwakeMs: a machine that
// stands still for a second (its host gives the cores to others) makes nothing late.
#pragma once

#include <chrono>
#include <cstdint>

namespace zeltest {

class ElapsedTime {
 public:
  ElapsedTime() : stalledMs_(StalledMs()) {}

  int64_t Ms() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start_)
        .count();
  }
  // Ms without the time in which a thread that wanted to run was not let.
  int64_t AwakeMs() const { return Ms() - (StalledMs() - stalledMs_); }

 private:
  // How long this process has been kept from running in all, as far as a thread that looks
  // every few ms has seen.
  static int64_t StalledMs();

  int64_t stalledMs_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace zeltest
