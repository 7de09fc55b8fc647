/* A tour of the library: request and answer, topics, routed messages, and a server that is lost and found
 * again.
 *
 *   tour SERVER LOG
 *
 * SERVER is the server's IPv4 address, LOG the file that takes the library's own log. The server answers
 * requests on port 600 with what it was sent, and sends messages on port 700 by itself. When the tour prints
 * "Take the server away." end the server, and when it prints "Bring it back.", start it again; each is waited
 * for at most half a minute. The exit status is 0 when everything went as it should.
 */
#include <libzel/libzel.h>

#include <inttypes.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#define REQUEST_PORT 600
#define MESSAGE_PORT 700
#define TOPIC "press/4/temperature"
#define PATIENCE_SEC 30

/* The callbacks write these on the library's receive thread, the main thread reads them. */
static volatile int g_publications;
static volatile int g_messages;
static volatile int g_connects;
static volatile int g_losses;

static int g_steps;
static int g_failures;

static void Say(const char* what, int good) {
  ++g_steps;
  if (!good) ++g_failures;
  fprintf(stderr, "%2d. %-62s %s\n", g_steps, what, good ? "ok" : "FAILED");
}

static void OnEvent(const ZelDeviceId* device, void* user, int32_t event) {
  (void)device;
  (void)user;
  if (event == ZEL_EVENT_CONNECTED) ++g_connects;
  if (event == ZEL_EVENT_DISCONNECTED) ++g_losses;
}

static void OnTopic(uint32_t idGroup, uint32_t idOffset, const char* topic, const uint8_t* data,
                    uint32_t length, void* user) {
  (void)user;
  if (idGroup == 1 && idOffset == 2 && strcmp(topic, TOPIC) == 0 && length == 4 &&
      memcmp(data, "21.5", 4) == 0) {
    ++g_publications;
  }
}

static void OnMessage(uint16_t port, const uint8_t* payload, uint32_t length, void* user) {
  (void)payload;
  (void)user;
  if (port == MESSAGE_PORT && length > 0) ++g_messages;
}

/* True once *counter is at least `wanted`; gives up when patience ends. */
static int WaitFor(const volatile int* counter, int wanted, int patienceSec) {
  const time_t end = time(NULL) + patienceSec;
  while (*counter < wanted && time(NULL) < end) (void)usleep(10 * 1000);
  return *counter >= wanted;
}

static int ReadDevice(const char* host, ZelDeviceId* device) {
  unsigned part[4];
  int i;
  char rest;
  if (sscanf(host, "%3u.%3u.%3u.%3u%c", &part[0], &part[1], &part[2], &part[3], &rest) != 4) return 0;
  memset(device, 0, sizeof *device);
  for (i = 0; i < 4; ++i) device->bytes[i] = (uint8_t)part[i];
  device->bytes[5] = 1;
  return 1;
}

/* Without the receive thread an application reads its answers itself. */
static void ShowRequest(ZelInstance instance) {
  static const char question[] = "How are you?";
  uint8_t answer[64];
  int32_t sent;
  int32_t received;
  sent = libzel_sync_send(instance, REQUEST_PORT, 1, 2, (const uint8_t*)question, sizeof question, 1000);
  Say("a request is sent", sent == (int32_t)sizeof question + 29);
  received = libzel_sync_recv(instance, NULL, answer, sizeof answer, 1000);
  Say("its answer comes back",
      received == (int32_t)sizeof question && memcmp(answer, question, sizeof question) == 0);
}

/* Right after a reconnect the publication may be quicker than the subscription, which the receive thread
 * sends. So it is published again every now and then. */
static void ShowTopic(ZelInstance instance, const char* what) {
  const time_t end = time(NULL) + PATIENCE_SEC;
  const int before = g_publications;
  int arrived = 0;
  while (!arrived && time(NULL) < end) {
    arrived = libzel_publish(instance, 1, 2, TOPIC, (const uint8_t*)"21.5", 4) == 0 &&
              WaitFor(&g_publications, before + 1, 1);
  }
  Say(what, arrived);
}

static void ShowLossAndReturn(ZelInstance instance) {
  const int connects = g_connects;
  const int losses = g_losses;
  fprintf(stderr, "Take the server away.\n");
  Say("the loss of the server is reported", WaitFor(&g_losses, losses + 1, PATIENCE_SEC));
  Say("meanwhile a publication fails, with error 5",
      libzel_publish(instance, 1, 2, TOPIC, (const uint8_t*)"21.5", 4) == ZEL_E_DISCONNECTED);
  fprintf(stderr, "Bring it back.\n");
  Say("the library connects again by itself", WaitFor(&g_connects, connects + 1, PATIENCE_SEC));
  /* The event comes just before the subscriptions are sent again. Topics and this call use one link, so that
   * what was sent before is read before. */
  ShowTopic(instance, "the subscription is there again");
}

static void Tour(const ZelDeviceId* device) {
  const ZelInstance instance = libzel_createInstanceEx(device, 0, 1500, OnEvent, NULL);
  Say("an instance is created and connected", instance != 0 && g_connects == 1);
  ShowRequest(instance);
  Say("the receive thread starts", libzel_loop_start(instance) == 0);
  Say("a topic is subscribed", libzel_subscribe(instance, TOPIC, OnTopic, NULL) == 0);
  ShowTopic(instance, "what is published arrives");
  Say("a port gets a handler", libzel__registerRouterEvent(instance, MESSAGE_PORT, OnMessage, NULL) == 0);
  Say("a message is routed to it", WaitFor(&g_messages, 1, PATIENCE_SEC));
  ShowLossAndReturn(instance);
  Say("the topic is unsubscribed", libzel_unsubscribe(instance, TOPIC) == 0);
  Say("the instance is released (the result is always 8193)",
      libzel_releaseInstance(instance) == ZEL_E_HANDLE);
  Say("its handle is not live any more", libzel_loop_start(instance) == ZEL_E_HANDLE);
}

int main(int argc, char** argv) {
  ZelDeviceId device;
  uint32_t major, minor, patch;
  if (argc != 3 || !ReadDevice(argv[1], &device)) {
    fprintf(stderr, "usage: tour SERVER LOG\n");
    return 2;
  }
  /* The library logs to standard output. */
  if (freopen(argv[2], "w", stdout) == NULL) {
    perror(argv[2]);
    return 1;
  }
  (void)libzel_version(&major, &minor, &patch);
  fprintf(stderr, "libzel %" PRIu32 ".%" PRIu32 ".%" PRIu32 ", server %s, the library's log is in %s\n",
          major, minor, patch, argv[1], argv[2]);
  Say("the library starts", libzel_init() == 0);
  Tour(&device);
  Say("the library ends", libzel_destory() == 0);
  fprintf(stderr, "%d of %d steps went well\n", g_steps - g_failures, g_steps);
  return g_failures == 0 ? 0 : 1;
}
