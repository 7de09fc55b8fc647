/* Several threads ask a device on one connection, while one more request is not waited for.
 *
 *   ask_many DEVICE PORT SLOW_PORT
 *
 * Each thread asks PORT, where a device answers with what it was sent, and counts the answers that are right.
 * SLOW_PORT is asked without waiting, and given up when the threads are done. Prints on standard error; the
 * library's own log goes to standard output. Exit status: 0 all were right, 1 they were not, 2 usage.
 */
#include <libzel/libzelx.h>

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define THREADS 4
#define QUESTIONS 100
#define TIMEOUT_MS 5000

typedef struct Asker {
  ZelInstance server;
  uint16_t port;
  int number;
  int right;
} Asker;

static void Explain(ZelInstance server, const libzelx_Outcome* out) {
  char reason[256] = "";
  if (out->result == 0) {
    fprintf(stderr, "the device refused: %u\n", (unsigned)out->deviceError);
    return;
  }
  (void)libzelx_lastFailure(server, reason, sizeof reason);
  fprintf(stderr, "%s (%d), %s: %s\n", libzelx_strerror(out->result), (int)out->result,
          out->maySent ? "may be sent" : "not sent", reason);
}

static int AskOnce(const Asker* asker, int question) {
  char text[64];
  char answer[64];
  libzelx_Outcome out = {sizeof out, 0, 0, 0, 0};
  const int length = snprintf(text, sizeof text, "thread %d asks %d", asker->number, question);
  (void)libzelx_request(asker->server, asker->port, 1, 2, text, (uint32_t)length, answer, sizeof answer,
                        TIMEOUT_MS, &out);
  if (out.result != 0 || out.deviceError != 0) {
    Explain(asker->server, &out);
    return 0;
  }
  /* The length is the whole answer's, also when the buffer was shorter. */
  return out.answerLength == (uint32_t)length && memcmp(answer, text, (size_t)length) == 0;
}

static void* Ask(void* given) {
  Asker* asker = (Asker*)given;
  for (int i = 0; i < QUESTIONS; ++i) {
    if (!AskOnce(asker, i)) break;
    ++asker->right;
  }
  return NULL;
}

/* On the instance's receive thread, once. */
static void OnAnswer(uint64_t ticket, const libzelx_Outcome* out, const void* answer, void* user) {
  (void)ticket;
  (void)answer;
  if (out->result == 0) {
    fprintf(stderr, "the slow one answered %u bytes\n", (unsigned)out->answerLength);
  } else {
    Explain(*(const ZelInstance*)user, out);
  }
}

static int AskAll(ZelInstance server, uint16_t port, uint16_t slowPort) {
  const libzelx_Request slow = {sizeof slow, slowPort, 0, 1, 2, "slow", 4, TIMEOUT_MS};
  uint64_t ticket = 0;
  pthread_t threads[THREADS];
  Asker askers[THREADS];
  int right = 0;
  const int32_t asked = libzelx_requestAsync(server, &slow, OnAnswer, &server, &ticket);
  if (asked != 0) fprintf(stderr, "not asked: %s (%d)\n", libzelx_strerror(asked), (int)asked);
  for (int i = 0; i < THREADS; ++i) {
    askers[i] = (Asker){server, port, i, 0};
    if (pthread_create(&threads[i], NULL, Ask, &askers[i]) != 0) abort();
  }
  for (int i = 0; i < THREADS; ++i) {
    (void)pthread_join(threads[i], NULL);
    right += askers[i].right;
  }
  /* After 0 the callback never runs, after 1 it has. Either way `server`, which it uses, may go. */
  if (asked == 0 && libzelx_cancel(server, ticket) == 0) fprintf(stderr, "the slow one was given up\n");
  fprintf(stderr, "%d of %d answers were right\n", right, THREADS * QUESTIONS);
  return right == THREADS * QUESTIONS ? 0 : 1;
}

int main(int argc, char** argv) {
  ZelDeviceId device;
  if (argc != 4) {
    fprintf(stderr, "usage: ask_many DEVICE PORT SLOW_PORT\n");
    return 2;
  }
  if (libzel_init() != 0) return 1;
  (void)libzel_makeZelDeviceId(argv[1], &device);
  const ZelInstance server = libzel_createInstance(&device, 0);
  if (server == 0) return 1;
  const int status = AskAll(server, (uint16_t)atoi(argv[2]), (uint16_t)atoi(argv[3]));
  (void)libzel_releaseInstance(server); /* always 8193 */
  (void)libzel_destory();
  return status;
}
