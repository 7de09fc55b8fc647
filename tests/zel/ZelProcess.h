// The zel program, run as a user runs it.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// The program's file and the folder for what it reads and writes: from the environment (ZEL_PROGRAM,
// ZEL_LAB).
std::string ZelProgram();
std::string ScratchFile(const std::string& name);
// Paths are UTF-8.
std::string ReadWhole(const std::string& path);
void WriteWhole(const std::string& path, const std::string& content);

class ZelProcess {
 public:
  // Starts it with standard input, output and error in files; with `outputTo`, standard output goes there.
  explicit ZelProcess(const std::vector<std::string>& arguments, const std::string& input = "",
                      const std::string& outputTo = "", const std::string& program = ZelProgram());
  // Ends it if it still runs.
  ~ZelProcess();
  ZelProcess(const ZelProcess&) = delete;
  ZelProcess& operator=(const ZelProcess&) = delete;

  // The exit status; -1 when it does not end within half a minute.
  int Wait();
  // True once the output, or the error output, contains `text` so many times; false after half a minute, or
  // when the program ended without.
  bool SaysOutput(const std::string& text, int times = 1);
  bool SaysError(const std::string& text, int times = 1);
  // As Ctrl-C does. Linux only.
  void Interrupt();
  // Interrupts it; true when it ends with status 130 within the time, that in which no processor
  // was free not counted.
  bool EndsSoonAfterInterrupt(std::chrono::milliseconds time);

  std::string Output() const;
  std::string Errors() const;

 private:
  struct System;
  bool Poll();
  bool Says(const std::string& path, const std::string& text, int times);

  std::string prefix_;
  std::unique_ptr<System> system_;
  int status_ = -1;
};

struct ZelResult {
  int status;
  std::string output;
  std::string errors;
};
ZelResult RunZel(const std::vector<std::string>& arguments, const std::string& input = "");
// With standard output at a device or file.
ZelResult RunZelTo(const std::string& outputTo, const std::vector<std::string>& arguments);

// Holds a UDP port on all addresses, alone.
class HeldUdpPort {
 public:
  explicit HeldUdpPort(uint16_t port);
  ~HeldUdpPort();
  HeldUdpPort(const HeldUdpPort&) = delete;
  HeldUdpPort& operator=(const HeldUdpPort&) = delete;

  bool IsHeld() const { return isHeld_; }
  // As zel doctor names the holder: this program, or another one where the system does not tell (Wine).
  static std::string Holder();

 private:
  intptr_t socket_ = -1;
  bool isHeld_ = false;
};

std::vector<std::string> Lines(const std::string& text);
// The lines as one, without the blanks that they begin with.
std::string Unwrapped(const std::string& text);
bool Contains(const std::string& text, const std::string& part);
