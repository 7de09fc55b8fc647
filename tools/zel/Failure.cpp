#include "Failure.h"

#include <libzel/libzelx.h>

namespace zeltool {

LibraryFailure::LibraryFailure(const std::string& what, int32_t code, std::string advice)
    : Failure(code == ZEL_E_TIMEOUT ? kNothingArrived : kFailed, what, std::move(advice), code) {}

const char* TextOf(int32_t code) { return libzelx_strerror(code); }

std::string ErrorText(int32_t code) { return "error " + std::to_string(code) + ": " + TextOf(code); }

}  // namespace zeltool
