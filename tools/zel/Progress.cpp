#include "Progress.h"

#include <algorithm>

#include "Text.h"

namespace zeltool {
namespace {

constexpr size_t kWidestBar = 40;
constexpr size_t kNarrowestBar = 8;
constexpr size_t kWidestName = 24;

std::string Bar(double fraction, size_t width) {
  const auto full = static_cast<size_t>(fraction * static_cast<double>(width));
  std::string bar(std::min(full, width), '=');
  if (full < width) bar += '>';
  return PadRight(bar, width);
}

std::string Percent(double fraction) {
  return PadLeft(std::to_string(static_cast<int>(fraction * 100)) + "%", 4);
}

std::string Tail(const ProgressState& state) {
  std::string tail = ReadableSize(state.bytes * state.fraction) + " of " + ReadableSize(state.bytes);
  if (Rate(state) > 0) tail += ", " + ReadableSize(Rate(state)) + "/s";
  if (Remaining(state) >= 0) tail += ", " + ReadableDuration(Remaining(state)) + " left";
  return tail;
}

}  // namespace

double Rate(const ProgressState& state) {
  return state.seconds > 0 ? state.bytes * state.fraction / state.seconds : 0;
}

double Remaining(const ProgressState& state) {
  const double rate = Rate(state);
  return rate > 0 ? state.bytes * (1 - state.fraction) / rate : -1;
}

std::string ProgressLine(const ProgressState& state, size_t columns) {
  std::string name = Printable(state.name);
  if (DisplayWidth(name) > kWidestName) name = "..." + name.substr(name.size() - kWidestName + 3);
  const std::string head = name + " " + Percent(state.fraction);
  const std::string tail = Tail(state);
  const size_t taken = DisplayWidth(head) + DisplayWidth(tail) + 5;
  if (taken + kNarrowestBar > columns) return (head + " " + tail).substr(0, columns - 1);
  return head + " [" + Bar(state.fraction, std::min(kWidestBar, columns - taken)) + "] " + tail;
}

}  // namespace zeltool
