// The system's side of ZelProcess. One file for each system implements it.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ZelProcess.h"

struct ZelProcess::System {
  // The streams are the files `prefix`.in, `output` and `prefix`.err.
  System(const std::string& program, const std::vector<std::string>& arguments, const std::string& prefix,
         const std::string& output);
  ~System();
  System(const System&) = delete;
  System& operator=(const System&) = delete;

  bool HasEnded(int& status);
  // How long its threads and the caller's have been ready to run, and had no processor. Ask before HasEnded,
  // which forgets the process. 0 on Windows.
  std::chrono::nanoseconds HeldUp();
  void Interrupt();
  void End();

 private:
  intptr_t process_ = 0;
  std::map<std::string, int64_t> heldUp_;  // nanoseconds, by thread; those of ended threads stay
};
