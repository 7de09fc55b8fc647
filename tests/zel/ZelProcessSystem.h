// The system's side of ZelProcess. One file for each system implements it.
#pragma once

#include <cstdint>
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
  void Interrupt();
  void End();

 private:
  intptr_t process_ = 0;
};
