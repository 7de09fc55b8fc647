/* Finds the devices on the networks of this machine.
 *
 *   find_devices [SECONDS]
 *
 * Looks for 5 seconds or as told and prints each device once, on standard error; the library's own log goes
 * to standard output. Exit status: 0 found some, 1 none or an error.
 */
#include <libzel/libzel.h>

#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#ifdef _WIN32
#include <windows.h>
#define SleepSeconds(seconds) Sleep((DWORD)(seconds)*1000)
#else
#include <unistd.h>
#define SleepSeconds(seconds) sleep((unsigned)(seconds))
#endif

#define MOST_DEVICES 1000

/* Only the library's scan thread touches the list; the count is read by the main thread too. */
static ZelScanResult g_devices[MOST_DEVICES];
static atomic_int g_count;

static int IsKnown(const ZelScanResult* device) {
  const int count = g_count;
  for (int i = 0; i < count; ++i) {
    if (strcmp(g_devices[i].zelDeviceId, device->zelDeviceId) == 0 &&
        strcmp(g_devices[i].ip, device->ip) == 0)
      return 1;
  }
  return 0;
}

/* Comes with every answer of every device, so with each device again and again. */
static void OnDevice(ZelScanResult device, void* user) {
  (void)user;
  if (g_count == MOST_DEVICES || IsKnown(&device)) return;
  g_devices[g_count] = device;
  ++g_count;
  fprintf(stderr, "%-24s %-16s %-20s %s\n", device.zelDeviceId, device.ip, device.hostName, device.serialNo);
}

int main(int argc, char** argv) {
  const int seconds = argc > 1 ? atoi(argv[1]) : 5;
  if (libzel_init() != 0) {
    fprintf(stderr, "the library does not start\n");
    return 1;
  }
  (void)libzel_registerZelScanEvent(OnDevice, NULL);
  (void)libzel_startZelScan();
  SleepSeconds(seconds);
  (void)libzel_stopZelScan();
  (void)libzel_registerZelScanEvent(NULL, NULL);
  (void)libzel_destory();
  return g_count > 0 ? 0 : 1;
}
