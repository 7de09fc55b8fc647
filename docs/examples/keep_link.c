/* Publishes a sign of life every 200 ms and prints what comes back, whatever happens to the link.
 *
 *   keep_link DEVICE TOPIC COUNT
 *
 * Ends after COUNT publications have come back. Prints on standard error; the library's own log goes to
 * standard output. Exit status: 0 done, 1 an error, 2 usage.
 */
#include <libzel/libzel.h>

#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#ifdef _WIN32
#include <windows.h>
#define SleepMs(ms) Sleep(ms)
#else
#include <poll.h>
#define SleepMs(ms) (void)poll(NULL, 0, ms)
#endif

#define CONNECT_MS 1500
#define RECONNECT_INTERVAL_SEC 1
#define PERIOD_MS 200

static atomic_int g_arrived;

/* On whichever thread connects. Release nothing here. */
static void OnEvent(const ZelDeviceId* device, void* user, int32_t event) {
  (void)device;
  (void)user;
  switch (event) {
    case ZEL_EVENT_PENDING: fprintf(stderr, "connecting\n"); break;
    case ZEL_EVENT_CONNECTED: fprintf(stderr, "connected\n"); break;
    case ZEL_EVENT_FAILED: fprintf(stderr, "not connected; the library tries again\n"); break;
    case ZEL_EVENT_DISCONNECTED: fprintf(stderr, "lost\n"); break;
    default: break;
  }
}

static void OnPublication(uint32_t idGroup, uint32_t idOffset, const char* topic, const uint8_t* data,
                          uint32_t length, void* user) {
  (void)idGroup;
  (void)idOffset;
  (void)user;
  fprintf(stderr, "%s: %.*s\n", topic, (int)length, (const char*)data);
  ++g_arrived;
}

static void Run(ZelInstance server, const char* topic, int wanted) {
  (void)libzel_reconnect_delay_set(server, RECONNECT_INTERVAL_SEC);
  /* Kept even when it cannot be sent now: every connect sends it again. */
  (void)libzel_subscribe(server, topic, OnPublication, NULL);
  (void)libzel_loop_start(server);
  for (int number = 1; g_arrived < wanted; ++number) {
    char text[32];
    const int size = snprintf(text, sizeof text, "alive %d", number);
    /* While the link is down this fails at once, unless its own turn to reconnect has come. Data that must
     * not be lost is kept and sent again by the application. */
    const int32_t code = libzel_publish(server, 0, 0, topic, (const uint8_t*)text, (uint32_t)size);
    if (code != ZEL_OK) fprintf(stderr, "not published: %s (%d)\n", libzel_strerror(code), (int)code);
    SleepMs(PERIOD_MS);
  }
}

int main(int argc, char** argv) {
  ZelDeviceId device;
  if (argc != 4) {
    fprintf(stderr, "usage: keep_link DEVICE TOPIC COUNT\n");
    return 2;
  }
  if (libzel_init() != 0) return 1;
  (void)libzel_makeZelDeviceId(argv[1], &device);
  /* The instance is good even when the server is not there yet. */
  const ZelInstance server = libzel_createInstanceEx(&device, 0, CONNECT_MS, OnEvent, NULL);
  if (server == 0) return 1;
  Run(server, argv[2], atoi(argv[3]));
  (void)libzel_releaseInstance(server); /* always 8193 */
  (void)libzel_destory();
  return 0;
}
