/* Asks a device. The library's log comes in lines of the program's own form, on standard error.
 *
 *   own_log DEVICE PORT TEXT
 *
 * Standard output has the answer and nothing else. Exit status: 0 answered, 1 an error, 2 usage.
 */
#include <libzel/libzelx.h>

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define TIMEOUT_MS 2000

typedef struct Log {
  FILE* file;
  int lines;
} Log;

static const char* LevelName(int32_t level) {
  switch (level) {
    case LIBZELX_LOG_INFO: return "INFO";
    case LIBZELX_LOG_WARNING: return "WARNING";
    case LIBZELX_LOG_ERROR: return "ERROR";
    case LIBZELX_LOG_NOTICE: return "NOTICE";
    default: return "OTHER";
  }
}

/* On whichever thread logs, one call at a time: the counter needs no lock. Nothing of the library here. */
static void OnLine(int32_t level, int64_t unixNs, uint32_t thread, const char* file, const char* function,
                   int32_t line, const char* message, void* user) {
  Log* log = (Log*)user;
  (void)file;
  (void)line;
  ++log->lines;
  fprintf(log->file, "%" PRId64 ".%03d %-7s %u %s: %s\n", unixNs / 1000000000, (int)(unixNs / 1000000 % 1000),
          LevelName(level), (unsigned)thread, function, message);
}

static int Ask(const ZelDeviceId* device, uint16_t port, const char* text) {
  uint8_t answer[1024];
  int32_t size = -1;
  const ZelInstance server = libzel_createInstance(device, 0);
  if (server == 0) return 1;
  if (libzel_sync_send(server, port, 1, 2, (const uint8_t*)text, (uint32_t)strlen(text), TIMEOUT_MS) > 0) {
    size = libzel_sync_recv(server, NULL, answer, sizeof answer, TIMEOUT_MS);
  }
  if (size >= 0) printf("%.*s\n", (int)size, (const char*)answer);
  (void)libzel_releaseInstance(server); /* always 8193 */
  return size >= 0 ? 0 : 1;
}

int main(int argc, char** argv) {
  Log log = {stderr, 0};
  ZelDeviceId device;
  int status;
  if (argc != 4) {
    fprintf(stderr, "usage: own_log DEVICE PORT TEXT\n");
    return 2;
  }
  /* Before libzel_init, so that not a single line goes elsewhere. libzel_init keeps the level. */
  (void)libzelx_setLogSink(OnLine, &log);
  (void)libzelx_setLogLevel(LIBZELX_LOG_INFO);
  if (libzel_init() != 0) return 1;
  (void)libzel_makeZelDeviceId(argv[1], &device);
  status = Ask(&device, (uint16_t)atoi(argv[2]), argv[3]);
  (void)libzel_destory();
  /* Discovery goes on until the process ends: from here on `log` may go. */
  (void)libzelx_setLogSink(NULL, NULL);
  fprintf(stderr, "%d lines\n", log.lines);
  return status;
}
