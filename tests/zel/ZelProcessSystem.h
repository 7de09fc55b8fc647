// The system's side of ZelProcess. One file for each system implements it.
#ifndef ZEL_TESTS_ZEL_ZEL_PROCESS_SYSTEM_H
#define ZEL_TESTS_ZEL_ZEL_PROCESS_SYSTEM_H

#include <cstdint>
#include <string>
#include <vector>

#include "ZelProcess.h"

struct ZelProcess::System {
  // The streams are the files `prefix`.in, .out and .err.
  System(const std::string& program, const std::vector<std::string>& arguments, const std::string& prefix);
  ~System();
  System(const System&) = delete;
  System& operator=(const System&) = delete;

  bool HasEnded(int& status);
  void Interrupt();
  void End();

 private:
  std::intptr_t process_ = 0;
};

#endif
