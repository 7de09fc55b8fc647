// Beyond the letter: codes and version.
#include "libzel/libzelx.h"

#include "zelcomm/ErrorCode.h"

using namespace libzel;

void libzelx_version(uint32_t* major, uint32_t* minor, uint32_t* patch) {
  if (major != nullptr) *major = ZEL_VERSION_MAJOR;
  if (minor != nullptr) *minor = ZEL_VERSION_MINOR;
  if (patch != nullptr) *patch = ZEL_VERSION_PATCH;
}

const char* libzelx_strerror(int32_t code) {
  switch (code) {
    case LIBZELX_E_CANCELLED: return "cancelled";
    case LIBZELX_E_WOULD_BLOCK: return "called on the thread that it would wait for";
    case LIBZELX_E_TOO_LATE: return "must be set before libzel_init";
    case LIBZELX_E_TOO_LONG: return "frame longer than 10485760 bytes, nothing sent";
    case LIBZELX_E_FILE_CHANGED: return "file became shorter while it was sent";
    default: return ErrorCodeText(code);
  }
}
