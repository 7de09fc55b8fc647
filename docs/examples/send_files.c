/* Sends a file to several devices at the same time.
 *
 *   send_files PORT FILE REMOTE DEVICE...
 *
 * PORT is the devices' port for files, REMOTE the name that the file gets there. Each device's end goes to
 * standard error, the library's own log to standard output. Exit status: 0 all have it, 1 one has not,
 * 2 usage.
 */
#include <libzel/libzelx.h>

#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>

#ifdef _WIN32
#include <windows.h>
#define SleepMs(ms) Sleep(ms)
#else
#include <poll.h>
#define SleepMs(ms) (void)poll(NULL, 0, ms)
#endif

#define STEP_MS 10
#define MOST_MS 60000

static atomic_int on_the_way;
static atomic_int failed;

/* On a thread of the library. `user` is the device's text. */
static int32_t OnEvent(const libzelx_FileEvent* event, void* user) {
  if (!event->ended) return 0;
  if (event->result == LIBZELX_E_DEVICE) {
    fprintf(stderr, "%s: refused with %u\n", (const char*)user, (unsigned)event->deviceError);
  } else {
    fprintf(stderr, "%s: %s\n", (const char*)user,
            event->result == ZEL_OK ? "sent" : libzelx_strerror(event->result));
  }
  if (event->result != ZEL_OK) ++failed;
  --on_the_way; /* last: main may end now */
  return 0;
}

static void Send(const char* file, const char* remote, uint16_t port, char* device) {
  ZelDeviceAddr target;
  (void)libzel_makeZelDeviceAddr(device, port, &target);
  ++on_the_way;
  const int32_t result = libzelx_sendFile(&target, file, remote, OnEvent, device, NULL);
  if (result == ZEL_OK) return;
  fprintf(stderr, "%s: %s\n", device, libzelx_strerror(result));
  ++failed;
  --on_the_way;
}

int main(int argc, char** argv) {
  if (argc < 5) {
    fprintf(stderr, "usage: send_files PORT FILE REMOTE DEVICE...\n");
    return 2;
  }
  (void)libzelx_setOption(0, LIBZELX_FILE_WORKERS, 8);        /* devices at the same time */
  (void)libzelx_setOption(0, LIBZELX_FILE_TOTAL_MS, MOST_MS); /* for each of them */
  if (libzel_init() != 0) return 1;
  for (int i = 4; i < argc; ++i) Send(argv[2], argv[3], (uint16_t)atoi(argv[1]), argv[i]);
  while (on_the_way != 0) SleepMs(STEP_MS); /* each has its end */
  (void)libzel_destory();
  return failed == 0 ? 0 : 1;
}
