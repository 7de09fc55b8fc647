// The library's error codes, their texts, and the calling thread's error number.
#pragma once

#include <cstdint>

#include "libzel/libzel.h"

namespace libzel {

// The fixed text of a code, "Unknown error code" for a negative or unlisted one. Never null; lives for ever.
const char* ErrorCodeText(int32_t code);

// The calling thread's error number, 0 in a new thread.
int32_t GetErrno();
void SetErrno(int32_t code);

}  // namespace libzel
