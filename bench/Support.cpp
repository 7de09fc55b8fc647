#include "Support.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <functional>

namespace bench {

namespace {

void Append(std::vector<uint8_t>& out, uint64_t value, size_t size) {
  for (size_t i = 0; i < size; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

void Append(std::vector<uint8_t>& out, const std::string& text) {
  out.insert(out.end(), text.begin(), text.end());
  out.push_back(0);
}

}  // namespace

double NowSec() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double ThreadCpuSec() {
  timespec time{};
  (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

double Seconds(const std::function<void()>& work) {
  const double start = NowSec();
  work();
  return NowSec() - start;
}

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

double Within99(std::vector<double> values) {
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(values.size() * 99 / 100);
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

long ResidentKiB() {
  FILE* status = std::fopen("/proc/self/status", "r");
  Require(status != nullptr, "/proc/self/status");
  char line[256];
  long kib = 0;
  while (std::fgets(line, sizeof line, status) != nullptr) {
    if (std::sscanf(line, "VmRSS: %ld kB", &kib) == 1) break;
  }
  (void)std::fclose(status);
  return kib;
}

void Row::Add(double libraryFigure, double rawFigure) {
  library.push_back(libraryFigure);
  raw.push_back(rawFigure);
}

void Row::Print(FILE* out) const {
  std::vector<double> ratios(library.size());
  std::transform(library.begin(), library.end(), raw.begin(), ratios.begin(), std::divides<>());
  (void)std::fprintf(out, "%-30s %9.2f %-9s  %s %9.2f   ratio %.2f\n", name.c_str(), Median(library), unit,
                     other, Median(raw), Median(ratios));
}

void Require(bool condition, const char* what) {
  if (condition) return;
  (void)std::fprintf(stderr, "benchmark failed: %s\n", what);
  std::_Exit(1);
}

FILE* MoveLogTo(const char* path) {
  FILE* before = fdopen(dup(STDOUT_FILENO), "w");
  const int log = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
  Require(before != nullptr && log >= 0 && dup2(log, STDOUT_FILENO) >= 0, "cannot open the log file");
  (void)close(log);
  (void)std::setvbuf(before, nullptr, _IOLBF, BUFSIZ);
  (void)std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
  return before;
}

void EmptyLog() {
  (void)std::fflush(stdout);
  Require(ftruncate(STDOUT_FILENO, 0) == 0, "cannot empty the log file");
}

void StayOnOneCore() {
  cpu_set_t cores;
  CPU_ZERO(&cores);
  CPU_SET(0, &cores);
  Require(sched_setaffinity(0, sizeof cores, &cores) == 0, "one core");
}

ZelDeviceId LocalDevice(uint8_t a, uint8_t b, uint8_t c) { return {{127, a, b, c, 0, 1}}; }

uint32_t ReadLe32(const uint8_t* at) {
  return at[0] | uint32_t{at[1]} << 8 | uint32_t{at[2]} << 16 | uint32_t{at[3]} << 24;
}

std::vector<uint8_t> RequestFrame(uint16_t port, const std::vector<uint8_t>& payload) {
  std::vector<uint8_t> frame{0, 1};
  Append(frame, port, 2);
  Append(frame, payload.size() + kInnerSize + kAddressSize, 4);
  frame.resize(kRequestOverhead);
  frame[kOuterSize + 9] = 9;  // the command of applications
  frame.insert(frame.end(), payload.begin(), payload.end());
  return frame;
}

std::vector<uint8_t> TopicRecord(const std::string& verb, const std::string& topic, size_t dataSize) {
  std::vector<uint8_t> record;
  Append(record, verb.size(), 8);
  Append(record, topic.size(), 8);
  Append(record, dataSize, 8);
  Append(record, verb);
  Append(record, topic);
  Append(record, std::string(dataSize, 'x'));
  Append(record, 0, 8);
  return record;
}

}  // namespace bench
