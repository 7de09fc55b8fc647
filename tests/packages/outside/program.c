/* A program of somebody else's: asks the server at 127.0.0.1 and expects what it sent. */
#include <libzel/libzelx.h>
#include <stdio.h>
#include <string.h>

int main(void) {
  const ZelDeviceId device = {{127, 0, 0, 1, 0, 1}};
  const char question[] = "hello from C";
  uint8_t answer[64] = {0};
  uint32_t major = 0, minor = 0, patch = 0;
  ZelInstance server;

  libzelx_version(&major, &minor, &patch);
  if (libzel_init() != 0) return 1;
  server = libzel_createInstance(&device, 0);
  if (libzel_sync_send(server, 600, 1, 2, (const uint8_t*)question, sizeof question, 2000) < 0 ||
      libzel_sync_recv(server, NULL, answer, sizeof answer, 2000) < 0) {
    fprintf(stderr, "no answer: %s\n", libzelx_strerror(libzel_get_errno()));
    return 1;
  }
  libzel_releaseInstance(server);
  fprintf(stderr, "libzel %u.%u.%u answers: %s\n", (unsigned)major, (unsigned)minor, (unsigned)patch,
          (const char*)answer);
  return libzel_destory() != 0 || strcmp((const char*)answer, question) != 0;
}
