/** @file
 * libzel: client library of the Zel device communication protocol.
 *
 * Conventions, for every function unless it says otherwise:
 *
 *  1. Threads. Any function may be called from any thread. The functions that stop or release an instance
 *     must not be called from a callback of its receive thread: they wait for that thread, and the process
 *     then ends.
 *  2. Errors. On entry the calling thread's error number is set to 0. A failure leaves its code there
 *     (libzel_get_errno) and is reported by the result as each function says. Codes are signed 32-bit; their
 *     values are the ZEL_E_ constants below, their texts come from libzel_strerror. Nothing is ever thrown.
 *  3. Handles. A ZelInstance is looked up among the live instances before it is used. One that is not live
 *     (never created, released, 0) gives ZEL_E_HANDLE (8193).
 *  4. Units. Time-outs are in milliseconds, intervals in seconds, lengths in bytes.
 *  5. Ownership. The library copies what it is given and keeps no pointer after a call returns, but for
 *     callbacks and their user pointers, which must stay valid until they are replaced or the instance is
 *     released. What a callback is given is valid during the call only.
 *  6. Texts are NUL-terminated bytes. Paths are in the system's own encoding: on Windows in the process's
 *     ANSI code page (which is UTF-8 only where the application asks for that), elsewhere the bytes as they
 *     are.
 *  7. Null pointers. Callbacks, user pointers, data of length 0 and buffers of size 0 may be null, and what a
 *     function says may be. Any other null pointer gives ZEL_E_PARAM (8196), but in libzel_version; an
 *     instance is looked up before.
 *  8. Fork. In a child that a process forks off after it called the library, nothing is left to work with,
 *     and the connections are the parent's: every function fails with ZEL_E_HANDLE (8193) there and touches
 *     nothing, but for libzel_version, libzel_get_errno, libzel_strerror and ZelSyncWriteReq. A callback must
 *     not return in a child that it forked off. A program that the child executes starts afresh.
 */
#ifndef LIBZEL_LIBZEL_H
#define LIBZEL_LIBZEL_H

#include <stdbool.h>
#include <stdint.h>

/** @cond */
#if defined(ZEL_STATIC) || defined(ZEL_BUILDING_LIBRARY) && defined(_WIN32)
#define ZEL_API
#elif defined(_WIN32)
#define ZEL_API __declspec(dllimport)
#else
#define ZEL_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#define ZEL_STATIC_ASSERT(condition, text) static_assert(condition, text)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define ZEL_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#else
#define ZEL_STATIC_ASSERT_NAME(line) zel_static_assert_##line
#define ZEL_STATIC_ASSERT_LINE(condition, line) \
  typedef char ZEL_STATIC_ASSERT_NAME(line)[(condition) ? 1 : -1]
#define ZEL_STATIC_ASSERT(condition, text) ZEL_STATIC_ASSERT_LINE(condition, __LINE__)
#endif
/** @endcond */

/** @defgroup types Types
 * Instances, identifiers, and what a scan finds.
 * @{ */

/** A live instance: one connection to one Zel server. 0 is never live. */
typedef uintptr_t ZelInstance;

/** A device's identifier: six bytes, written as six decimals joined by ".", for example 192.168.1.20.0.1. */
typedef struct ZelDeviceId {
  uint8_t bytes[6]; /**< in the order in which they are written */
} ZelDeviceId;
ZEL_STATIC_ASSERT(sizeof(ZelDeviceId) == 6, "a device identifier is 6 bytes");

/** A router port on a device. The port is in host byte order. */
typedef struct ZelDeviceAddr {
  ZelDeviceId id; /**< the device */
  uint16_t port;  /**< its router port */
} ZelDeviceAddr;
ZEL_STATIC_ASSERT(sizeof(ZelDeviceAddr) == 8, "a device address is 8 bytes");

/** A device that answered a scan. Every text is NUL-terminated, zero-filled behind its end, and cut to its
 * field. */
typedef struct ZelScanResult {
  char ip[32];             /**< sender of the answer, dotted IPv4 */
  char spare[32];          /**< all zero */
  char frameMacAddr[32];   /**< hardware address of the frame whose address is `ip`; may be empty */
  char serialNo[32];       /**< the device's "serialNo" */
  char sn[32];             /**< the device's "sn", its second serial number */
  char zelDeviceId[32];    /**< the identifier as the device wrote it */
  char zelVersion[32];     /**< version of its protocol */
  char rteVersion[32];     /**< version of its runtime */
  char vorlinVersion[256]; /**< version of its system */
  char hostName[32];       /**< its host name */
} ZelScanResult;
ZEL_STATIC_ASSERT(sizeof(ZelScanResult) == 544, "a scan result is 544 bytes");

/** @} */

/** @defgroup codes Codes
 * Events and errors; the page \ref errors has cause and cure of each.
 * @{ */

/** @name Connection events
 * What a ZelConnEventCallback is told.
 * @{ */
#define ZEL_EVENT_CONNECTED 1    /**< a connect or reconnect succeeded */
#define ZEL_EVENT_PENDING 2      /**< a connect or reconnect is about to be tried */
#define ZEL_EVENT_DISCONNECTED 5 /**< an established connection was lost or closed */
#define ZEL_EVENT_FAILED 6       /**< a connect or reconnect failed */
/** @} */

/** @name Error codes
 * Those that the library raises by itself, and ZEL_E_ADAPTER. Servers and devices may answer with any other
 * value.
 * @{ */
#define ZEL_OK 0                  /**< no error */
#define ZEL_E_DISCONNECTED 5      /**< the connection is down and could not be restored */
#define ZEL_E_DEVICE_ID 4097      /**< null device identifier */
#define ZEL_E_NO_ROUTER 4101      /**< a message arrived on a port without a router */
#define ZEL_E_ROUTER 4103         /**< the port already has a router, or (on removal) has none */
#define ZEL_E_TIMEOUT 4104        /**< nothing arrived in time */
#define ZEL_E_TOPIC 4106          /**< the topic was never subscribed */
#define ZEL_E_PROTOCOL 4107       /**< the connection type is not supported */
#define ZEL_E_TOO_SHORT 4108      /**< a message is shorter than its header */
#define ZEL_E_LENGTH 4112         /**< a message's length does not match its header */
#define ZEL_E_SEND 4113           /**< a datagram could not be sent */
#define ZEL_E_RESERVED_PORT 4114  /**< ports 0 to 500 are the system's */
#define ZEL_E_INVOKE_ID 4115      /**< an answer belongs to another request */
#define ZEL_E_HANDLE 8193         /**< the instance is not live */
#define ZEL_E_ADAPTER 8194        /**< a device's word: no usable network adapter */
#define ZEL_E_RESOURCE 8195       /**< the library met with an unexpected failure; the log has it */
#define ZEL_E_PARAM 8196          /**< a pointer is null that must not be */
#define ZEL_E_MEMORY 8200         /**< the process is out of memory */
#define ZEL_E_FILE_OPEN 12289     /**< the file cannot be opened, or cannot be sent */
#define ZEL_E_FILE_READ 12291     /**< the file cannot be read */
#define ZEL_E_FILE_HANDLE 12293   /**< the file is not open */
#define ZEL_E_FILE_TRANSFER 12294 /**< the network failed during a file transfer */
/** @} */

/** @} */

/** @defgroup callbacks Callbacks
 * What an application is called with, and on which thread.
 * @{ */

/** A connection event (ZEL_EVENT_...). Runs on the thread that connects: the creating thread, one in
 * libzel_reconnect, one whose send or receive reconnects, or the instance's receive thread. No lock of the
 * library is held. */
typedef void (*ZelConnEventCallback)(const ZelDeviceId* device, void* user, int32_t event);

/** A publication on a subscribed topic. Runs on the instance's receive thread, one message at a time. `data`
 * has `length` bytes and is followed by a NUL that is not counted. */
typedef void (*ZelTopicCallback)(uint32_t idGroup, uint32_t idOffset, const char* topic, const uint8_t* data,
                                 uint32_t length, void* user);

/** A message on a registered port. Runs on the instance's receive thread, one message at a time. The callback
 * may register and unregister ports, its own included. */
typedef void (*ZelRouterCallback)(uint16_t port, const uint8_t* payload, uint32_t length, void* user);

/** A device that answered a scan; the record is the callee's own. Runs on the library's scan thread, never on
 * one of the application's, and delays discovery while it runs. */
typedef void (*ZelScanEventCallback)(ZelScanResult device, void* user);

/** The progress of a file transfer: `progress` chunks sent by chunk count, from 0 to 1, and beyond 1 when the
 * file grows meanwhile; `error` 0 or a code; `state` 0 registered, 1 going on, 2 finished, 3 failed. The
 * first call of a transfer runs on the thread that calls ZelFileTransfer, all later ones on the library's
 * transfer thread. A result of -1 asks for the transfer to stop; every other value lets it go on.
 *
 * State 2 is the device's word that it has the whole file. A device that says so too early is told the rest
 * all the same, so that state 2 may come more than once; one that never says so gives no state 2 at all.
 * After state 3 with a device's error the transfer goes on. No call says that it is the last one: `user` must
 * live until the transfer is over, best as long as the process. */
typedef int32_t (*FileTransferCallback)(const ZelDeviceId* device, uint32_t transfer, float progress,
                                        uint32_t error, uint8_t state, void* user);

/** @} */

/** @defgroup library The library
 * Setting up, ending, version, error numbers.
 * @{ */

/** Sets the library up: logs version and build time, raises the log threshold to DEBUG, starts the system's
 * socket library, derives the local device identifier and starts the discovery thread. Call it once, before
 * anything else; several threads may do so at once. Every further call starts the socket library once more.
 * Result: 0, or the error of the system's socket start-up; -1 with the error number 8193, 8195 or 8200. */
ZEL_API int32_t libzel_init(void);

/** Writes the library's version, 0.2.3, to the three pointers, which must be valid. Result: 0. */
ZEL_API int32_t libzel_version(uint32_t* major, uint32_t* minor, uint32_t* patch);

/** The calling thread's error number: that of the last library function called on this thread, 0 before any.
 * It is not cleared by this call. Note that after libzel_sync_recv it is the error word of the server's
 * answer. */
ZEL_API int32_t libzel_get_errno(void);

/** The constant English text of a code, "Unknown error code" for one that has none. The text belongs to the
 * library and stays valid. The thread's error number is left alone. */
ZEL_API const char* libzel_strerror(int32_t code);

/** Releases every live instance as libzel_releaseInstance does: first all of them end their calls under way
 * and close, then their threads and callbacks are waited for. Then undoes one of libzel_init's starts of the
 * system's socket library, if there is one left. Must not be called from a callback. Discovery goes on until
 * the process ends. Result: 0. */
ZEL_API int32_t libzel_destory(void);

/** @} */

/** @defgroup instances Instances
 * Connections: making, running, restoring, releasing.
 * @{ */

/** Creates an instance for the server of `device` and connects it, waiting at most 1500 ms. The host is the
 * one that the library knows for the identifier (from discovery and the identifier calls), else its first
 * four bytes taken as an IPv4 address; the port is 9999. A failed connect is not an error of this call: later
 * sends and the receive thread reconnect. `type` is 0 for TCP.
 * Result: the instance, which the caller releases, or 0 with the error number
 * - 4107 (ZEL_E_PROTOCOL): `type` is 1, 2, 3 or 4,
 * - 4097 (ZEL_E_DEVICE_ID): `device` is null. */
ZEL_API ZelInstance libzel_createInstance(const ZelDeviceId* device, uint32_t type);

/** As libzel_createInstance, but installs an event callback (may be null) before it connects, and waits at
 * most `timeoutMs` for the connect; less than 100 counts as 100. When libzel_destory comes meanwhile, the
 * connect ends at once, and the instance that is given is no longer live. */
ZEL_API ZelInstance libzel_createInstanceEx(const ZelDeviceId* device, uint32_t type, int32_t timeoutMs,
                                            ZelConnEventCallback callback, void* user);

/** Releases an instance, in this order: it is no longer live, so that every later call with it gives 8193;
 * its event callback is told nothing more; its connection closes, and the calls under way on other threads
 * end within 100 ms: libzel_sync_send and libzel_sync_recv with -1 and error number 5, libzel_publish,
 * libzel_subscribe and libzel_unsubscribe with 5, libzel_reconnect with false and error number 5. Then it
 * waits for an event callback that runs on another thread, and for the receive thread with the callback that
 * this is running. When it returns, none of the instance's callbacks runs on another thread, or will run.
 * Calls with other instances do not wait for it.
 *
 * Must not be called from a topic or port callback of the instance: its receive thread would wait for itself,
 * and the process ends. From an event callback on a thread of the application it may be called.
 * Result: always 8193 (ZEL_E_HANDLE), also left as the error number, even when the instance was released.
 * Deliberate: never treat it as a failure. */
ZEL_API int32_t libzel_releaseInstance(ZelInstance instance);

/** Starts the instance's receive thread, which delivers topics and routed messages and restores a lost link.
 * Again while it runs does nothing. If the system cannot create a thread, the process ends.
 * Result: 0, or 8193 (ZEL_E_HANDLE). */
ZEL_API int32_t libzel_loop_start(ZelInstance instance);

/** Stops the instance's receive thread and waits for it; a callback that is running is finished first, and a
 * connect that is under way. The connection stays, and calls on other threads go on. Must not be called from
 * a callback of the receive thread. Result: 0, or 8193 (ZEL_E_HANDLE). */
ZEL_API int32_t libzel_loop_stop(ZelInstance instance);

/** Connects the instance again, whatever its present state, waiting at most `timeoutMs` (50 and less count as
 * 50), and subscribes its topics again. While another thread connects it, waits at most `timeoutMs` for that
 * thread: when the link is up then, that is all (events 2 and 1, true); else it tries by itself, again with
 * the whole `timeoutMs`.
 * Result: true when connected; false when not, with error number 5 (ZEL_E_DISCONNECTED) when the instance was
 * released meanwhile, 8193 (ZEL_E_HANDLE) when it is not live. */
ZEL_API bool libzel_reconnect(ZelInstance instance, int32_t timeoutMs);

/** Sets the least time in seconds between two automatic reconnects (2 in a new instance) and switches them
 * on. The first can come when that time has passed since the instance was created. Result: 0, or 8193
 * (ZEL_E_HANDLE). */
ZEL_API int32_t libzel_reconnect_delay_set(ZelInstance instance, uint32_t intervalSec);

/** @} */

/** @defgroup discovery Discovery
 * Finding the devices on the local networks.
 * @{ */

/** Installs the callback for devices that answer a scan (null for none) and its user pointer, replacing any
 * earlier pair. Result: 0. */
ZEL_API int32_t libzel_registerZelScanEvent(ZelScanEventCallback callback, void* user);

/** Switches scanning on; it takes effect within about a second. While it is on, requests go out every 1 to 2
 * seconds by multicast and broadcast, and each answer is reported to the callback and remembered as the way
 * to its device.
 * Result: 0. */
ZEL_API int32_t libzel_startZelScan(void);

/** Switches scanning off; it takes effect within about a second. Result: 0. */
ZEL_API int32_t libzel_stopZelScan(void);

/** @} */

/** @defgroup messages Messages
 * Requests and answers, topics, routed messages.
 * @{ */

/** Sends one request with a fresh invoke identifier to `port` of the server (0 to 65535, not checked). `data`
 * may be null when `length` is 0. When the link is down it is restored first, at most once per reconnect
 * interval, waiting at most `timeoutMs` for the connect; while another thread is at that, the call fails at
 * once. The write itself waits for the peer however long it takes (deliberate), or until the instance is
 * released.
 * Result: bytes written (`length` + 29), or
 * - 0: the frame is longer than 10485760 bytes; nothing was sent,
 * - -1 with error number 8193 (ZEL_E_HANDLE), 8196 (ZEL_E_PARAM), 5 (ZEL_E_DISCONNECTED: the link is down or
 *   broke, or the instance is being released), or the system's number of another send failure. */
ZEL_API int32_t libzel_sync_send(ZelInstance instance, uint16_t port, uint32_t idGroup, uint32_t idOffset,
                                 const uint8_t* data, uint32_t length, uint32_t timeoutMs);

/** Waits at most `timeoutMs` for the answer to the instance's last request, skipping other answers, and
 * copies at most `size` bytes of its payload. One thread at a time runs such a pair of calls per instance,
 * and not while the receive thread runs: both would read the same stream. Publishing, subscribing,
 * unsubscribing and reconnecting (with topics) are requests, too: from a second thread they make theirs the
 * last one, and the answer that this call waits for is then skipped. Deliberate. `unused` is not looked at. A
 * time-out of 0 or 1 has run out at once. The error word of the answer becomes the thread's error number.
 * Result: bytes copied; 0 when nothing was copied and the answer's error word is 0; or -1 when nothing was
 * copied and the error word is not 0, or with error number
 * - 8193 (ZEL_E_HANDLE): the instance is not live,
 * - 8196 (ZEL_E_PARAM): `buffer` is null and `size` is not 0,
 * - 5 (ZEL_E_DISCONNECTED): the link is down, the server closed it, or the instance is being released,
 * - 4104 (ZEL_E_TIMEOUT): no answer in time,
 * - 4112 (ZEL_E_LENGTH): a header or a body was short. */
ZEL_API int32_t libzel_sync_recv(ZelInstance instance, void* unused, uint8_t* buffer, uint32_t size,
                                 uint32_t timeoutMs);

/** Publishes `length` bytes on a topic. From another thread than the one that waits for an answer it makes
 * that one's request no longer the last: see libzel_sync_recv.
 * Result: 0; also 0 when the frame would be longer than 10485760 bytes and nothing was sent; 8193
 * (ZEL_E_HANDLE), 8196 (ZEL_E_PARAM), 5 (ZEL_E_DISCONNECTED), or the system's number of another send failure.
 * */
ZEL_API int32_t libzel_publish(ZelInstance instance, uint32_t idGroup, uint32_t idOffset, const char* topic,
                               const uint8_t* data, uint32_t length);

/** Subscribes a topic, or gives a subscribed one a new callback. The callback runs on the receive thread, so
 * start it (libzel_loop_start). The subscription is kept when the send fails and is sent again after every
 * reconnect.
 * Result: 0, or 8193 (ZEL_E_HANDLE), 8196 (ZEL_E_PARAM), 5 (ZEL_E_DISCONNECTED), or the system's number of
 * another send failure. */
ZEL_API int32_t libzel_subscribe(ZelInstance instance, const char* topic, ZelTopicCallback callback,
                                 void* user);

/** Ends a subscription, also when the send fails. A callback that runs at this moment is not waited for.
 * Result: 0, or 8193 (ZEL_E_HANDLE), 8196 (ZEL_E_PARAM), 4106 (ZEL_E_TOPIC: not subscribed; nothing was
 * sent), 5 (ZEL_E_DISCONNECTED), or the system's number of another send failure. */
ZEL_API int32_t libzel_unsubscribe(ZelInstance instance, const char* topic);

/** Hands the messages that arrive on `port` (501 to 65535) to a callback on the receive thread.
 * Result: 0, or 4114 (ZEL_E_RESERVED_PORT: `port` is 500 or less; tested before the instance), 8193
 * (ZEL_E_HANDLE), 4103 (ZEL_E_ROUTER: the port has a callback, which stays). */
ZEL_API int32_t libzel__registerRouterEvent(ZelInstance instance, uint16_t port, ZelRouterCallback callback,
                                            void* user);

/** Removes the callback of a port. Ports of 500 and less are not refused here: never remove port 103, which
 * delivers the topics. Result: 0, or 8193 (ZEL_E_HANDLE), 4103 (ZEL_E_ROUTER: the port has no callback). */
ZEL_API int32_t libzel__unregisterRouterEvent(ZelInstance instance, uint16_t port);

/** @} */

/** @defgroup identifiers Device identifiers
 * Reading them, and asking and telling devices.
 * @{ */

/** Reads an identifier from its text. Each of the six components is read as a signed decimal of which the low
 * 8 bits are kept. A text that has not six components gives the all-zero identifier, and no error. `out` may
 * be null.
 * Result: 0, or 8196 (ZEL_E_PARAM: `text` is null). */
ZEL_API int32_t libzel_makeZelDeviceId(const char* text, ZelDeviceId* out);

/** As libzel_makeZelDeviceId, and adds a port. `out` may be null. Result: 0, or 8196 (ZEL_E_PARAM). */
ZEL_API int32_t libzel_makeZelDeviceAddr(const char* text, uint16_t port, ZelDeviceAddr* out);

/** This machine's identifier, and remembers 127.0.0.1 as the way to it. Result: 0, or 8196 (ZEL_E_PARAM:
 * null). */
ZEL_API int32_t libzel_getLocalZelDeviceId(ZelDeviceId* out);

/** Asks the host (dotted IPv4) for its identifier with one datagram to UDP port 38898, waits at most
 * `timeoutMs` (negative counts as 0) for the answer, and remembers the host as the way to that identifier.
 * Result: 0, or
 * - 8196 (ZEL_E_PARAM): `host` or `out` is null (also left as the error number),
 * - 4113 (ZEL_E_SEND): the request could not be sent (also left as the error number),
 * - 4104 (ZEL_E_TIMEOUT): no answer in time, or one longer than 4096 bytes (also left as the error number),
 * - 4112 (ZEL_E_LENGTH): the answer's length does not match its header,
 * - 4108 (ZEL_E_TOO_SHORT): the answer is shorter than its headers,
 * - 4115 (ZEL_E_INVOKE_ID): the answer belongs to another request,
 * - or the device's own error word. */
ZEL_API int32_t libzel_getRemoteZelDeviceId(const char* host, int32_t timeoutMs, ZelDeviceId* out);

/** Gives the host a new identifier, from its text (read as libzel_makeZelDeviceId does), and remembers the
 * host as the way to it. Result: as libzel_getRemoteZelDeviceId; 8196 for a null `host` or `text`. */
ZEL_API int32_t libzel_setRemoteZelDeviceId(const char* host, const char* text, int32_t timeoutMs);

/** @} */

/** @defgroup family The Zel family
 * The second family of functions: identifiers again, read requests, file transfer.
 * @{ */

/** libzel_init under its second name. */
ZEL_API int32_t ZelInit(void);

/** libzel_makeZelDeviceId under its second name. */
ZEL_API int32_t ZelMakeDeviceId(const char* text, ZelDeviceId* out);

/** libzel_getLocalZelDeviceId under its second name. */
ZEL_API int32_t ZelGetLocalDeviceId(ZelDeviceId* out);

/** libzel_getRemoteZelDeviceId; note the order of the last two arguments. */
ZEL_API int32_t ZelGetRemoteDeviceId(const char* host, ZelDeviceId* out, int32_t timeoutMs);

/** Sends a read request (command 2) to the target over a connection that is made on first use and kept for
 * the identifier. `reserved` is not looked at. Sets `*outLength` to 0 when outLength is not null; outBuffer
 * is not filled.
 * Result: always 0xFFFFFFFF, also once the request has left. Deliberate: the answer is not awaited, and the
 * record that it would fill, about 200 bytes, stays reserved until the process ends. A null `target` leaves
 * the error number 8196. */
ZEL_API uint32_t ZelSyncReadReq(const ZelDeviceAddr* target, uint32_t idGroup, uint32_t idOffset,
                                uint32_t reserved, uint8_t* outBuffer, uint32_t* outLength,
                                uint32_t timeoutMs);

/** Does nothing. Result: 0. Deliberate. */
ZEL_API uint32_t ZelSyncWriteReq(const ZelDeviceAddr* target, uint32_t idGroup, uint32_t idOffset,
                                 uint32_t reserved, const uint8_t* data, uint32_t length, uint32_t timeoutMs);

/** Sends a local file to a device in chunks of 8192 bytes on the library's transfer thread, one transfer
 * after the other, and returns at once. Both paths are shorter than 256 bytes. The callback (may be null) is
 * told of every step, and first, on the calling thread, of the registration: with error 12289
 * (ZEL_E_FILE_OPEN) when the file cannot be opened, is no regular file, is 2 GiB or longer, or its path is
 * too long. Return -1 then: a transfer without a file otherwise holds up all later ones. The file's name as
 * the device sees it is what follows the last backslash. Later errors: 12294 (ZEL_E_FILE_TRANSFER: the
 * network failed; the transfer ends), or the device's own (the transfer goes on). A transfer that cannot be
 * begun, as one of its paths is null (8196, ZEL_E_PARAM) or something fails, tells its callback once, with
 * the code and state 3, leaves the code as the error number, and is over. The reserved arguments are not
 * looked at. Result: the transfer's number, 0 for the first; the call itself never fails. */
ZEL_API uint32_t ZelFileTransfer(ZelDeviceAddr target, uint64_t reserved1, uint64_t reserved2,
                                 const char* localPath, const char* remotePath, FileTransferCallback callback,
                                 void* user);

/** @} */

#ifdef __cplusplus
}
#endif

#endif /* LIBZEL_LIBZEL_H */
