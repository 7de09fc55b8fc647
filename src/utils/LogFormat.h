// Bounded printf-style formatting for log messages. The conversions that the library's messages use (%s %d %u %x %c
// and %%, without flags) are done here, everything else by the runtime.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace libzel {

// Writes at most `capacity` characters, without a terminator, and gives their number; the rest is cut silently.
// A null %s prints "(null)". `capacity` is at least 1.
size_t FormatMessage(char* out, size_t capacity, const char* format, va_list arguments);

}  // namespace libzel
