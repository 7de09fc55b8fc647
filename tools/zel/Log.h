// The library's log, as lines of a file or of standard error: plain text, no colours.
#pragma once

#include <libzel/libzel.hpp>

#include <cstdio>
#include <string>
#include <vector>

namespace zeltool {

// Writes each line to a stream, which must stay open while the library logs; null is none. What discovery
// says of answers that it cannot take is kept, too.
zel::LogSink MakeLogSink(std::FILE* stream);

// What was kept: who sent an answer that could not be taken, and why.
std::vector<std::string> TakeAnswerWarnings();

}  // namespace zeltool
