/* Sends a file to a device.
 *
 *   transfer_file DEVICE PORT FILE REMOTE
 *
 * PORT is the device's port for files, REMOTE the name that the file gets there. Progress goes to standard
 * error, the library's own log to standard output. Exit status: 0 sent, 1 an error, 2 usage.
 */
#include <libzel/libzel.h>

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
#define MOST_IDLE_MS 10000

enum { GOING_ON, SENT, FAILED };

typedef struct Transfer {
  atomic_int outcome;
  atomic_uint error;
  atomic_uint steps;
} Transfer;

/* First on the thread that calls ZelFileTransfer, then on the library's transfer thread. */
static int32_t OnProgress(const ZelDeviceId* device, uint32_t number, float progress, uint32_t error,
                          uint8_t state, void* user) {
  Transfer* const transfer = user;
  (void)device;
  (void)number;
  ++transfer->steps;
  if (error != 0) {
    transfer->error = error;
    transfer->outcome = FAILED;
    return -1; /* without this a file that cannot be opened holds up all later transfers */
  }
  fprintf(stderr, "%3d %%\n", (int)(progress * 100));
  if (state == 2) transfer->outcome = SENT;
  return 0;
}

/* A device that never marks its last answer leaves the transfer without an end: a
 * standstill counts as one. */
static void Await(Transfer* transfer) {
  unsigned seen = 0;
  int idleMs = 0;
  while (transfer->outcome == GOING_ON && idleMs < MOST_IDLE_MS) {
    const unsigned steps = transfer->steps;
    idleMs = steps == seen ? idleMs + STEP_MS : 0;
    seen = steps;
    SleepMs(STEP_MS);
  }
}

int main(int argc, char** argv) {
  static Transfer transfer; /* the transfer thread may use it until the process ends */
  ZelDeviceAddr target;
  if (argc != 5) {
    fprintf(stderr, "usage: transfer_file DEVICE PORT FILE REMOTE\n");
    return 2;
  }
  if (libzel_init() != 0) return 1;
  (void)libzel_makeZelDeviceAddr(argv[1], (uint16_t)atoi(argv[2]), &target);
  (void)ZelFileTransfer(target, 0, 0, argv[3], argv[4], OnProgress, &transfer);
  Await(&transfer);
  const int32_t error = (int32_t)transfer.error;
  if (error != ZEL_OK) fprintf(stderr, "failed: %s (%d)\n", libzel_strerror(error), (int)error);
  (void)libzel_destory();
  return transfer.outcome == SENT ? 0 : 1;
}
