// What the program needs of the system: its streams, its terminal, its signals. One file for each system
// implements it.
#pragma once

#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>

namespace zeltool {

// Where the library's log, which it writes to standard output, goes.
enum class LogTarget { kStandardError, kFile, kNowhere };

// Gives the program a stream of its own for what standard output was, without any translation of line ends,
// and turns descriptor 1, which the library logs to, to `target`. Call it once, before the library is used.
// Null when `logFile` cannot be opened or descriptors run out; errno tells.
std::FILE* SeparateOutputFromLog(LogTarget target, const std::string& logFile);

bool IsTerminal(std::FILE* stream);
bool IsErrorTerminal();

struct TerminalSize {
  size_t columns = 80;
  size_t rows = 24;
};
TerminalSize GetTerminalSize(std::FILE* stream);

// Makes the terminal understand UTF-8 and cursor movements. Without effect where it does anyway.
void PrepareTerminal(std::FILE* stream);

// Standard input's bytes arrive as they are.
void ReadInputAsBytes();

// Calls `handler` on a thread of its own for every interrupt (Ctrl-C) and every polite request to end. Call
// it before any other thread is started.
void OnInterrupt(std::function<void()> handler);

unsigned long ProcessNumber();

// Local time of day, HH:MM:SS.mmm.
std::string TimeOfDay();

}  // namespace zeltool
