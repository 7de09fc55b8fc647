/* Asks a device and prints its answer.
 *
 *   ask DEVICE PORT TEXT
 *
 * DEVICE is an identifier (192.168.1.20.0.1), PORT the router port of whoever answers there. The answer and
 * what went wrong go to standard error, the library's own log to standard output. Exit status: 0 answered, 1
 * an error, 2 usage.
 */
#include <libzel/libzel.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define TIMEOUT_MS 2000

static int Fail(const char* what) {
  const int32_t code = libzel_get_errno();
  fprintf(stderr, "%s: %s (%d)\n", what, libzel_strerror(code), (int)code);
  return 1;
}

static int Ask(ZelInstance server, uint16_t port, const char* text) {
  uint8_t answer[4096];
  /* 0 would be a frame that is too long. */
  if (libzel_sync_send(server, port, 1, 2, (const uint8_t*)text, (uint32_t)strlen(text), TIMEOUT_MS) <= 0)
    return Fail("not sent");
  const int32_t size = libzel_sync_recv(server, NULL, answer, sizeof answer, TIMEOUT_MS);
  /* The error number is now the server's own, also when the answer carries bytes. */
  if (size < 0 || libzel_get_errno() != ZEL_OK) return Fail("no answer");
  fprintf(stderr, "%.*s\n", (int)size, (const char*)answer);
  return 0;
}

int main(int argc, char** argv) {
  ZelDeviceId device;
  if (argc != 4) {
    fprintf(stderr, "usage: ask DEVICE PORT TEXT\n");
    return 2;
  }
  if (libzel_init() != 0) return Fail("the library does not start");
  (void)libzel_makeZelDeviceId(argv[1], &device);
  const ZelInstance server = libzel_createInstance(&device, 0);
  if (server == 0) return Fail("no instance");
  const int status = Ask(server, (uint16_t)atoi(argv[2]), argv[3]);
  (void)libzel_releaseInstance(server); /* always 8193 */
  (void)libzel_destory();
  return status;
}
