/* Publishes a text on a topic and waits until it comes back as a subscriber sees it.
 *
 *   publish_subscribe DEVICE TOPIC TEXT
 *
 * Prints on standard error; the library's own log goes to standard output. Exit status: 0 it came, 1 it did
 * not come within 5 seconds, or an error, 2 usage.
 */
#include <libzel/libzel.h>

#include <inttypes.h>
#include <stdatomic.h>
#include <stdio.h>
#include <string.h>

#ifdef _WIN32
#include <windows.h>
#define SleepMs(ms) Sleep(ms)
#else
#include <poll.h>
#define SleepMs(ms) (void)poll(NULL, 0, ms)
#endif

#define PATIENCE_MS 5000
#define STEP_MS 10

static atomic_int g_arrived;

/* On the instance's receive thread: be quick here, nothing else is received meanwhile. */
static void OnPublication(uint32_t idGroup, uint32_t idOffset, const char* topic, const uint8_t* data,
                          uint32_t length, void* user) {
  const char* const expected = user;
  fprintf(stderr, "%s: %.*s (%" PRIu32 "/%" PRIu32 ")\n", topic, (int)length, (const char*)data, idGroup,
          idOffset);
  if (length == strlen(expected) && memcmp(data, expected, length) == 0) g_arrived = 1;
}

static int Succeeded(const char* what, int32_t code) {
  if (code == ZEL_OK) return 1;
  fprintf(stderr, "%s: %s (%d)\n", what, libzel_strerror(code), (int)code);
  return 0;
}

static int Run(ZelInstance server, const char* topic, char* text) {
  /* The user pointer must stay valid until the instance is released; argv does. */
  if (!Succeeded("subscribe", libzel_subscribe(server, topic, OnPublication, text)) ||
      !Succeeded("receive thread", libzel_loop_start(server)) ||
      !Succeeded("publish",
                 libzel_publish(server, 1, 2, topic, (const uint8_t*)text, (uint32_t)strlen(text))))
    return 1;
  for (int waited = 0; !g_arrived && waited < PATIENCE_MS; waited += STEP_MS) SleepMs(STEP_MS);
  (void)Succeeded("unsubscribe", libzel_unsubscribe(server, topic));
  return g_arrived ? 0 : 1;
}

int main(int argc, char** argv) {
  ZelDeviceId device;
  if (argc != 4) {
    fprintf(stderr, "usage: publish_subscribe DEVICE TOPIC TEXT\n");
    return 2;
  }
  if (libzel_init() != 0) return 1;
  (void)libzel_makeZelDeviceId(argv[1], &device);
  const ZelInstance server = libzel_createInstance(&device, 0);
  if (server == 0) return 1;
  const int status = Run(server, argv[2], argv[3]);
  (void)libzel_releaseInstance(server); /* stops the receive thread; always 8193 */
  (void)libzel_destory();
  return status;
}
