// What the benchmark programs share: clock, medians, frames, and where output goes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "libzel/libzel.h"

namespace bench {

inline constexpr uint16_t kServerPort = 9999;
inline constexpr uint16_t kTopicPort = 103;
inline constexpr size_t kOuterSize = 8;
inline constexpr size_t kInnerSize = 13;
inline constexpr size_t kAddressSize = 8;
inline constexpr size_t kRequestOverhead = kOuterSize + kInnerSize + kAddressSize;

double NowSec();
// What the calling thread has used of a core.
double ThreadCpuSec();
// The time that `work` takes, in seconds.
double Seconds(const std::function<void()>& work);
double Median(std::vector<double> values);
// What 99 of 100 values do not exceed.
double Within99(std::vector<double> values);
// The memory of the process that is resident, in KiB.
long ResidentKiB();

// One row of the table: what the library and the raw program reached in each round, in `unit`.
struct Row {
  std::string name;
  const char* unit;
  std::vector<double> library;
  std::vector<double> raw;
  const char* other = "raw";  // what stands in the raw program's place

  // Gives a round's two figures.
  void Add(double libraryFigure, double rawFigure);
  // Prints the medians of both and of their ratio.
  void Print(FILE* out) const;
};

// Ends the program with a message when a condition that a benchmark rests on does not hold.
void Require(bool condition, const char* what);

// Sends standard output, where the library logs, to `path` and gives a stream to what it was before.
FILE* MoveLogTo(const char* path);
// Empties the log file between two rounds.
void EmptyLog();

// From here on this thread, and what it starts, runs on one core.
void StayOnOneCore();

// The identifier of the server at 127.a.b.c.
ZelDeviceId LocalDevice(uint8_t a, uint8_t b, uint8_t c);

uint32_t ReadLe32(const uint8_t* at);

// A whole request frame, as the library sends it.
std::vector<uint8_t> RequestFrame(uint16_t port, const std::vector<uint8_t>& payload);
// A topic record, the payload of frames on port 103.
std::vector<uint8_t> TopicRecord(const std::string& verb, const std::string& topic, size_t dataSize);

}  // namespace bench
