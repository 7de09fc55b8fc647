/* Prints the messages that a server sends by itself to a port of this application.
 *
 *   route DEVICE PORT COUNT
 *
 * Ends after COUNT messages, each of which it prints on standard error; the library's own log goes to
 * standard output. Exit status: 0 all came, 1 they did not come within 10 seconds, or an error, 2 usage.
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

#define PATIENCE_MS 10000
#define STEP_MS 10

static atomic_int g_messages;

/* On the instance's receive thread; the payload is valid until this returns. */
static void OnMessage(uint16_t port, const uint8_t* payload, uint32_t length, void* user) {
  const int wanted = *(const int*)user;
  if (g_messages == wanted) return;
  fprintf(stderr, "%u: %.*s\n", port, (int)length, (const char*)payload);
  ++g_messages;
}

static int Run(ZelInstance server, uint16_t port, int* wanted) {
  const int32_t code = libzel__registerRouterEvent(server, port, OnMessage, wanted);
  if (code != ZEL_OK) {
    fprintf(stderr, "port %u: %s (%d)\n", port, libzel_strerror(code), (int)code);
    return 1;
  }
  (void)libzel_loop_start(server);
  for (int waited = 0; g_messages < *wanted && waited < PATIENCE_MS; waited += STEP_MS) SleepMs(STEP_MS);
  return g_messages == *wanted ? 0 : 1;
}

int main(int argc, char** argv) {
  ZelDeviceId device;
  if (argc != 4) {
    fprintf(stderr, "usage: route DEVICE PORT COUNT\n");
    return 2;
  }
  int wanted = atoi(argv[3]); /* outlives the instance, as its callback's user pointer must */
  if (libzel_init() != 0) return 1;
  (void)libzel_makeZelDeviceId(argv[1], &device);
  const ZelInstance server = libzel_createInstance(&device, 0);
  if (server == 0) return 1;
  const int status = Run(server, (uint16_t)atoi(argv[2]), &wanted);
  (void)libzel_releaseInstance(server); /* waits for the callback; always 8193 */
  (void)libzel_destory();
  return status;
}
