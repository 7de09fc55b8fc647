// What the program needs of the system: its streams, its terminal, its signals. One file for each system
// implements it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace zeltool {

// The arguments that main was given, in UTF-8, without the program's name.
std::vector<std::string> ProgramArguments(int argc, char** argv);

// Opens a file by its UTF-8 path, as std::fopen does.
std::FILE* OpenFile(const std::string& path, const char* mode);

// What is written to standard output and error goes out byte for byte.
void WriteOutputAsBytes();

bool IsTerminal(std::FILE* stream);

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
std::string TimeOfDay(std::chrono::system_clock::time_point time);

// The first IPv4 address of a host name, dotted; nothing when the system knows none. May take seconds. The
// library must be set up.
std::optional<std::string> LookUpHost(const std::string& name);

// The programs that hold a UDP port, "name (process 123)" or as much of it as the system tells, joined by
// commas; empty when none does.
std::string HoldersOfUdpPort(uint16_t port);

}  // namespace zeltool
