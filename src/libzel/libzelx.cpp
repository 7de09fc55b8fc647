// Beyond the letter: codes and version, the log.
#include "libzel/libzelx.h"

#include "libzel/CodeGuard.h"
#include "utils/Log.h"
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
    case LIBZELX_E_DEVICE: return "the device refused";
    default: return ErrorCodeText(code);
  }
}

int32_t libzelx_setLogSink(libzelx_LogSink sink, void* user) {
  // The default by its own name, so that it stays as quick.
  const LogSinkFunction function = sink == libzelx_stdoutSink ? WriteLogLine : sink;
  return GuardCode([&] { return SetLogSink(function, user) ? ZEL_OK : LIBZELX_E_WOULD_BLOCK; });
}

void libzelx_stdoutSink(int32_t level, int64_t unixNs, uint32_t thread, const char* file,
                        const char* function, int32_t line, const char* message, void* user) {
  WriteLogLine(level, unixNs, thread, file, function, line, message, user);
}

int32_t libzelx_setLogLevel(int32_t level) {
  return GuardCode([&] {
    ChooseLogLevel(level);
    return ZEL_OK;
  });
}
