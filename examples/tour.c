/* A tour of the library: a device is found, asked who it is and given a name, requests and topics and routed
 * messages go back and forth, its server is lost and found again, and it is sent a file.
 *
 *   tour LOG FILE
 *
 * LOG is the file that takes the library's own log, FILE the one that is sent, as "tour.bin". The device
 * answers discovery, direct requests, and requests on port 600 with what it was sent; it sends messages on
 * port 700 by itself and takes files on port 701. When the tour prints "Take the server away." end the
 * device, and when it prints "Bring it back.", start it again; each is waited for at most half a minute. The
 * exit status is 0 when everything went as it should.
 */
#include <libzel/libzel.h>

#include <inttypes.h>
#include <stdatomic.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#define REQUEST_PORT 600
#define MESSAGE_PORT 700
#define FILE_PORT 701
#define TOPIC "press/4/temperature"
#define PATIENCE_SEC 30

/* The callbacks write these on threads of the library, the main thread reads them. So they are atomic; what
 * is not is written before the atomic that tells of it. */
static ZelScanResult g_device; /* the first device found; complete once g_devices is not 0 */
static atomic_int g_devices;
static atomic_int g_quarters; /* of the file that have been sent */
static atomic_int g_transferEnds;
static atomic_int g_transferError;
static atomic_int g_publications;
static atomic_int g_messages;
static atomic_int g_connects;
static atomic_int g_losses;

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
static int WaitFor(const atomic_int* counter, int wanted, int patienceSec) {
  const time_t end = time(NULL) + patienceSec;
  while (*counter < wanted && time(NULL) < end) (void)usleep(10 * 1000);
  return *counter >= wanted;
}

static void OnDevice(ZelScanResult device, void* user) {
  (void)user;
  if (g_devices == 0) {
    g_device = device;
    g_devices = 1;
  }
}

static int32_t OnProgress(const ZelDeviceId* device, uint32_t transfer, float progress, uint32_t error,
                          uint8_t state, void* user) {
  static const char bar[] = "##########..........";
  (void)device;
  (void)transfer;
  (void)user;
  while (g_quarters < (int)(progress * 4)) {
    ++g_quarters;
    fprintf(stderr, "    [%.*s] %3d %%\n", 8, bar + 10 - 2 * g_quarters, g_quarters * 25);
  }
  if (error != 0) g_transferError = (int)error;
  if (error != 0 || state == 2) ++g_transferEnds;
  return error != 0 ? -1 : 0;
}

static int SameId(const ZelDeviceId* left, const ZelDeviceId* right) {
  return memcmp(left->bytes, right->bytes, sizeof left->bytes) == 0;
}

static void ShowDiscovery(ZelDeviceId* device) {
  (void)libzel_registerZelScanEvent(OnDevice, NULL);
  (void)libzel_startZelScan();
  Say("a device is found on the network", WaitFor(&g_devices, 1, PATIENCE_SEC));
  (void)libzel_stopZelScan();
  fprintf(stderr, "    %-16s %-12s %-10s %-10s %s\n", "identifier", "address", "host name", "serial no",
          "hardware address");
  fprintf(stderr, "    %-16s %-12s %-10s %-10s %s\n", g_device.zelDeviceId, g_device.ip, g_device.hostName,
          g_device.serialNo, g_device.frameMacAddr);
  (void)libzel_makeZelDeviceId(g_device.zelDeviceId, device);
}

static void ShowIdentifier(const ZelDeviceId* device) {
  ZelDeviceId answer;
  ZelDeviceId other;
  (void)libzel_makeZelDeviceId("10.9.8.7.6.5", &other);
  Say("asked directly, the device tells the same identifier",
      libzel_getRemoteZelDeviceId(g_device.ip, 1000, &answer) == 0 && SameId(&answer, device));
  Say("it takes another one", libzel_setRemoteZelDeviceId(g_device.ip, "10.9.8.7.6.5", 1000) == 0 &&
                                  libzel_getRemoteZelDeviceId(g_device.ip, 1000, &answer) == 0 &&
                                  SameId(&answer, &other));
  Say("and its own again", libzel_setRemoteZelDeviceId(g_device.ip, g_device.zelDeviceId, 1000) == 0);
}

static void ShowFile(const ZelDeviceId* device, const char* path) {
  ZelDeviceAddr target;
  target.id = *device;
  target.port = FILE_PORT;
  (void)ZelFileTransfer(target, 0, 0, path, "tour.bin", OnProgress, NULL);
  Say("a file is sent", WaitFor(&g_transferEnds, 1, PATIENCE_SEC) && g_transferError == 0 && g_quarters == 4);
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

static void Tour(const char* file) {
  ZelDeviceId device;
  ZelInstance instance;
  ShowDiscovery(&device);
  ShowIdentifier(&device);
  instance = libzel_createInstanceEx(&device, 0, 1500, OnEvent, NULL);
  Say("an instance is made by that identifier, and connected", instance != 0 && g_connects == 1);
  ShowRequest(instance);
  Say("the receive thread starts", libzel_loop_start(instance) == 0);
  Say("a topic is subscribed", libzel_subscribe(instance, TOPIC, OnTopic, NULL) == 0);
  ShowTopic(instance, "what is published arrives");
  Say("a port gets a handler", libzel__registerRouterEvent(instance, MESSAGE_PORT, OnMessage, NULL) == 0);
  Say("a message is routed to it", WaitFor(&g_messages, 1, PATIENCE_SEC));
  ShowLossAndReturn(instance);
  ShowFile(&device, file);
  Say("the topic is unsubscribed", libzel_unsubscribe(instance, TOPIC) == 0);
  Say("the instance is released (the result is always 8193)",
      libzel_releaseInstance(instance) == ZEL_E_HANDLE);
  Say("its handle is not live any more", libzel_loop_start(instance) == ZEL_E_HANDLE);
}

int main(int argc, char** argv) {
  uint32_t major, minor, patch;
  if (argc != 3) {
    fprintf(stderr, "usage: tour LOG FILE\n");
    return 2;
  }
  /* The library logs to standard output. */
  if (freopen(argv[1], "w", stdout) == NULL) {
    perror(argv[1]);
    return 1;
  }
  (void)libzel_version(&major, &minor, &patch);
  fprintf(stderr, "libzel %" PRIu32 ".%" PRIu32 ".%" PRIu32 ", the library's log is in %s\n", major, minor,
          patch, argv[1]);
  Say("the library starts", libzel_init() == 0);
  Tour(argv[2]);
  Say("the library ends", libzel_destory() == 0);
  fprintf(stderr, "%d of %d steps went well\n", g_steps - g_failures, g_steps);
  return g_failures == 0 ? 0 : 1;
}
