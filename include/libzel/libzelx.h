/** @file
 * libzelx: what the library can do beyond the functions of libzel.h, which stay as they are.
 *
 * Conventions, for every function unless it says otherwise:
 *
 *  1. Off until called. Nothing here changes what a function of libzel.h does until it is called.
 *  2. Threads. Any function may be called from any thread, from callbacks too. No lock of the library is held
 *     while a callback runs, but for a log sink. A callback must not throw.
 *  3. Results. An int32_t result is 0 or a code, which is also left as the thread's error number
 *     (libzel_get_errno); it is never a device's own error word. Functions without such a result leave the
 *     error number alone. Every function can give 8195 (the system failed the library; the log has the
 *     reason) and 8200 (out of memory); each says what else it can give. The texts come from
 *     libzelx_strerror.
 *  4. Handles. An instance that is not live gives ZEL_E_HANDLE (8193), as in libzel.h.
 *  5. Units. Times are in milliseconds, lengths in bytes. A `timeoutMs` bounds the whole call, whatever it
 *     waits for; 0 does what can be done without waiting.
 *  6. Ownership. The library copies what it is given and keeps no pointer after a call returns, but for
 *     callbacks and their user pointers, whose end is said where they are given. What a callback is given is
 *     valid during the call.
 *  7. Structures begin with `size`, the structure's sizeof in the program, and may grow at the end in later
 *     releases. In one that the library reads, what it does not know must be 0; in one that it fills, it sets
 *     what it does not know to 0 and writes nothing behind `size`. A size below that of the structure's first
 *     release, above 4096, or that is no multiple of 8 gives ZEL_E_PARAM (8196), and nothing is read or
 *     written by it. In one that a callback is given, `size` is the library's. Fields named `reserved` are 0.
 *  8. Texts are NUL-terminated and UTF-8. A text pointer may be null only where that is said; else it gives
 *     ZEL_E_PARAM (8196).
 */
#ifndef LIBZEL_LIBZELX_H
#define LIBZEL_LIBZELX_H

#include <libzel/libzel.h>
#include <stddef.h>

/** @cond */
/* Named after the type: in C99 one that is named after the line could meet one of libzel.h. */
#define LIBZELX_SIZE(type, bytes) \
  typedef char type##_size[sizeof(void*) != 8 || sizeof(type) == (bytes) ? 1 : -1]
/** @endcond */

#ifdef __cplusplus
extern "C" {
#endif

/** @defgroup beyond_family Beyond the letter
 * The functions of libzelx.h; the page \ref beyond tells what they are for.
 * @{ */

/** @defgroup beyond_library Codes and version
 * What is new beside the codes of libzel.h, and the release.
 * @{ */

/** @name Error codes
 * Raised by the functions of this header only, besides those of libzel.h. libzel_strerror does not know them.
 * @{ */
#define LIBZELX_E_CANCELLED 20481    /**< ended early: by a cancel, a stop, a release, or a callback */
#define LIBZELX_E_WOULD_BLOCK 20482  /**< called on the very thread that it would wait for */
#define LIBZELX_E_TOO_LATE 20483     /**< must be set before libzel_init */
#define LIBZELX_E_TOO_LONG 20484     /**< the frame would be longer than 10485760 bytes; nothing was sent */
#define LIBZELX_E_FILE_CHANGED 20485 /**< the file became shorter while it was sent */
#define LIBZELX_E_DEVICE 20486       /**< the device refused; its error word tells why */
/** @} */

/** Writes the release of the library, the version of its package, to the pointers that are not null.
 * libzel_version has the protocol library's version, which stays. */
ZEL_API void libzelx_version(uint32_t* major, uint32_t* minor, uint32_t* patch);

/** The constant English text of a code, of this header's as well as of libzel.h's; "Unknown error code" for
 * one that has none. The text belongs to the library and stays valid. */
ZEL_API const char* libzelx_strerror(int32_t code);

/** @} */

/** @defgroup beyond_options Options
 * Switches for the dangers of the letter. All are off, that is by the letter, until they are set.
 * @{ */

/** What can be set. Each says: by the letter (the default) | what libzelx_protect sets. "Before": to be set
 * before libzel_init, instance 0. "Process": any time, instance 0. "Instance": of one instance, or with
 * instance 0 the value that instances made later begin with. Values are 0 to 2147483647 unless said. */
typedef enum libzelx_Option {
  /** Before: 1 discovery starts in libzel_init | 0 in libzelx_startDiscovery; 0 or 1. */
  LIBZELX_DISCOVERY = 1,
  /** Before: 0 | 1 a description file that would be read for ever is refused; 0 or 1. */
  LIBZELX_CHECK_XML = 2,
  /** Process: 0 a malformed scan answer ends the process | 1 it is dropped and counted, with one WARNING
   * a minute that names the sender; 0 or 1. */
  LIBZELX_DROP_BAD_ANSWERS = 3,
  /** Process: 0 | 1 a direct request takes its answer from the asked host only; 0 or 1. */
  LIBZELX_CHECK_SENDER = 4,
  /** Process: 0 no limit | 100000; routes above the limit are not learned. */
  LIBZELX_MAX_ROUTES = 5,
  /** Process: 0 | 1 discovery never changes the route of a pinned or connected identifier; 0 or 1. */
  LIBZELX_KEEP_ROUTES = 6,
  /** Process: 0 | 0; 1: also adapters that share a hardware address, or have none, and with a description file,
   * too; 0 or 1. */
  LIBZELX_ALL_ADAPTERS = 7,
  /** Process: 0 never | 5000 after a failure discovery starts again, adapters read anew. */
  LIBZELX_DISCOVERY_RETRY_MS = 8,
  /** Process: 0 blocks all later files | 1 is reported and dropped; 0 or 1. */
  LIBZELX_FILE_DROP_UNOPENED = 9,
  /** Process: 0 no limit | 3600000 for a transfer. */
  LIBZELX_FILE_TOTAL_MS = 10,
  /** Process: 1 | 1 threads that send files for libzelx_sendFile; 1 to 64. */
  LIBZELX_FILE_WORKERS = 11,
  /** Instance: 0 a write waits for ever | 5000 without a byte moved: error 5, the link is dropped. */
  LIBZELX_WRITE_STALL_MS = 32,
  /** Instance: 0 unsent data are dropped | 1000 to get them out. */
  LIBZELX_CLOSE_WAIT_MS = 33,
  /** Instance: 20, then what came is dropped | 30000 of silence inside a header, then closed, event 5;
   * 1 and more. */
  LIBZELX_HEADER_WAIT_MS = 34,
  /** Instance: 0 1000 in all, then what came is dropped | 30000 of silence inside a body, then closed,
   * event 5. */
  LIBZELX_BODY_WAIT_MS = 35,
  /** Instance: 0 | 50 added at random to each pause between reconnects; 0 to 100. */
  LIBZELX_JITTER_PERCENT = 36,
  /** Instance: 0 pauses stay as they are | 60 s; they double from the interval up to it. */
  LIBZELX_RECONNECT_MAX_SEC = 37,
  /** Instance: 0 10485759 bytes on the receive thread, no limit in libzel_sync_recv | 10485759 in both;
   * above: closed, event 5; up to 10485759. */
  LIBZELX_MAX_BODY = 38,
  /** Instance: 0 after 165 s, and never with data under way | 30000. */
  LIBZELX_DEAD_PEER_MS = 39,
  /** Instance: 0 the host is fixed at creation | 1 it is looked up before each reconnect; 0 or 1. */
  LIBZELX_FOLLOW_ROUTE = 40
} libzelx_Option;

/** Sets an option, a libzelx_Option. Result: 0, or 8193 (ZEL_E_HANDLE: also an instance other than 0 with an
 * option of the process), 8196 (ZEL_E_PARAM: no such option, or a value out of range), or
 * LIBZELX_E_TOO_LATE. */
ZEL_API int32_t libzelx_setOption(ZelInstance instance, int32_t option, int64_t value);

/** Writes an option's value to `*value`. Result: 0, 8193 (ZEL_E_HANDLE, as above), or 8196 (ZEL_E_PARAM: no
 * such option, or null). */
ZEL_API int32_t libzelx_getOption(ZelInstance instance, int32_t option, int64_t* value);

/** Sets all protective values at once, before libzel_init. Options that were set before are overwritten;
 * those that are set afterwards hold. Result: 0, or LIBZELX_E_TOO_LATE: libzel_init has been called, nothing
 * was set. */
ZEL_API int32_t libzelx_protect(void);

/** Limits discovery, before libzel_init: to answers from the networks in `peers`
 * ("10.0.0.0/8,192.168.1.0/24"), and to asking on the adapters in `adapters` (addresses or names,
 * "eth0,10.0.0.5"). Null: all. Result: 0, 8196 (ZEL_E_PARAM: cannot be read; nothing was set), or
 * LIBZELX_E_TOO_LATE. */
ZEL_API int32_t libzelx_setNetworks(const char* peers, const char* adapters);

/** @} */

/** @defgroup beyond_discovery Discovery and routes
 * Starting discovery when it is wanted, its state, and the hosts of identifiers.
 * @{ */

/** Starts discovery when LIBZELX_DISCOVERY is 0: until then it has no socket and sends no packet. Returns
 * when its sockets are open. While it runs this does nothing; when it has ended by a failure it is started
 * once more. Result: 0, or 8195: it does not run (libzelx_getDiscovery has the reason). */
ZEL_API int32_t libzelx_startDiscovery(void);

/** The state of discovery: whether no device answered, or it is broken. */
typedef struct libzelx_Discovery {
  size_t size;           /**< sizeof(libzelx_Discovery) */
  int32_t running;       /**< 1 while it runs */
  uint32_t adapters;     /**< on how many adapters it asks */
  uint32_t restarts;     /**< how often it was started again after a failure */
  uint32_t reserved;     /**< 0 */
  uint64_t answers;      /**< answers taken */
  uint64_t dropped;      /**< answers dropped: malformed, or from networks that may not answer */
  char adapterList[512]; /**< their names, joined by commas; cut */
  char reason[160];      /**< why it does not run; empty while it does, and before it was started */
} libzelx_Discovery;
LIBZELX_SIZE(libzelx_Discovery, 712);

/** Writes the state of discovery; set `out->size` before. Result: 0, or 8196 (ZEL_E_PARAM: null, or a bad
 * size). */
ZEL_API int32_t libzelx_getDiscovery(libzelx_Discovery* out);

/** Pins the host (dotted IPv4) of an identifier for instances made later, or forgets what is known of it when
 * `host` is null. With LIBZELX_KEEP_ROUTES discovery leaves a pinned one alone.
 * Result: 0, 4097 (ZEL_E_DEVICE_ID: null), or 8196 (ZEL_E_PARAM: no address, or LIBZELX_MAX_ROUTES are
 * known). */
ZEL_API int32_t libzelx_setRoute(const ZelDeviceId* device, const char* host);

/** Writes the host that an instance made now would get: the one that is known, else the identifier's first
 * four bytes. 16 bytes are enough. Result: 0, 4097 (ZEL_E_DEVICE_ID: null), or 8196 (ZEL_E_PARAM: null, or
 * `size` is too small). */
ZEL_API int32_t libzelx_getRoute(const ZelDeviceId* device, char* host, size_t size);

/** @} */

/** @defgroup beyond_requests Requests from any thread
 * Any number of requests at the same time on one instance, each with an outcome of its own.
 * @{ */

/** Creates an instance for the server of `device` without connecting it: the receive thread, which is
 * started here, connects and restores the link. The host is found as in libzel_createInstance. `callback`
 * may be null; its calls run on the receive thread, or in a call that restores the link. The program
 * releases the instance (libzel_releaseInstance). Result: the instance, or 0 with error number 4097
 * (ZEL_E_DEVICE_ID: `device` is null). */
ZEL_API ZelInstance libzelx_createInstance(const ZelDeviceId* device, ZelConnEventCallback callback,
                                           void* user);

/** A request. */
typedef struct libzelx_Request {
  size_t size;        /**< sizeof(libzelx_Request) */
  uint16_t port;      /**< of the server, 0 to 65535 */
  uint16_t command;   /**< of the message; 0 means 9, that of libzel_sync_send */
  uint32_t group;     /**< the message's group */
  uint32_t offset;    /**< the message's offset */
  const void* data;   /**< the payload; may be null when `length` is 0 */
  uint32_t length;    /**< of the payload, at most 10485731 */
  uint32_t timeoutMs; /**< from the call to the answer: connect, other threads' writes, write, wait */
} libzelx_Request;
LIBZELX_SIZE(libzelx_Request, 40);

/** What became of a request. */
typedef struct libzelx_Outcome {
  size_t size;    /**< sizeof(libzelx_Outcome) */
  int32_t result; /**< 0: answered, whatever `deviceError` says; else the code that the call gives, too */
  uint32_t deviceError;  /**< the answer's error word, 0 without an answer */
  uint32_t answerLength; /**< length of the answer's payload, also of one that was not copied whole */
  uint32_t maySent; /**< 1: bytes of the request may have left; 0: none has. Nothing is ever sent twice */
} libzelx_Outcome;
LIBZELX_SIZE(libzelx_Outcome, 24);

/** The outcome of a request without a wait, exactly once for each ticket. `answer` has `out->answerLength`
 * bytes, and is null when there is no answer. Runs on the instance's receive thread, or on the thread that
 * stops or releases the instance. `user` is in use until this call has returned, or libzelx_cancel gave 0 for
 * the ticket. */
typedef void (*libzelx_AnswerCallback)(uint64_t ticket, const libzelx_Outcome* out, const void* answer,
                                       void* user);

/** Sends a request and waits for its answer, of which at most `size` bytes are copied to `answer` (may be
 * null when `size` is 0). `out` may be null, but then nobody learns the device's error word. Any number of
 * threads may ask at the same time on one instance, beside topics, routed messages and publications. Starts
 * the instance's receive thread if none runs; do not use libzel_sync_recv on the instance meanwhile. When the
 * link is down it is restored first, with one attempt, at most once per reconnect interval. Nothing is ever
 * sent twice: `out->maySent` tells whether bytes may have left. Result: 0 when an answer came, whatever its
 * error word (out->deviceError), or
 * - 8193 (ZEL_E_HANDLE): the instance is not live,
 * - 8196 (ZEL_E_PARAM): a null request, null data or answer with a length, a bad size of a structure,
 * - 5 (ZEL_E_DISCONNECTED): the link is down and could not be restored (not sent), or was lost (may be sent),
 * - 4104 (ZEL_E_TIMEOUT): no answer in time; or another thread's write, or a peer that reads
 *   nothing, took the time (not sent); or the peer read a part of the request in time: the link is
 *   dropped then (may be sent),
 * - LIBZELX_E_TOO_LONG: `length` is above 10485731; nothing was sent,
 * - LIBZELX_E_CANCELLED: the receive thread was stopped, or the instance released,
 * - LIBZELX_E_WOULD_BLOCK: called from a callback on the instance's receive thread; nothing was sent. */
ZEL_API int32_t libzelx_requestEx(ZelInstance instance, const libzelx_Request* request, void* answer,
                                  uint32_t size, libzelx_Outcome* out);

/** libzelx_requestEx with command 9, without the structure. */
ZEL_API int32_t libzelx_request(ZelInstance instance, uint16_t port, uint32_t group, uint32_t offset,
                                const void* data, uint32_t length, void* answer, uint32_t size,
                                uint32_t timeoutMs, libzelx_Outcome* out);

/** Sends a request and does not wait for its answer: `callback` (not null) gets the outcome, exactly once.
 * The data are copied. `*ticket` (may be null) is set before the callback can run, and is 0 when the call
 * fails; tickets count from 1 in a process and are never used again. Writing may take up to `timeoutMs`. May
 * be called from a callback. Result: 0 when the callback will run; else a code as in libzelx_requestEx (but
 * for LIBZELX_E_WOULD_BLOCK), and the callback will not run. Whether bytes may have left is not told then:
 * only 4104 and 5 leave it open. */
ZEL_API int32_t libzelx_requestAsync(ZelInstance instance, const libzelx_Request* request,
                                     libzelx_AnswerCallback callback, void* user, uint64_t* ticket);

/** Gives up waiting for the answer of a ticket; what was sent stays sent.
 * Result: 0 when the callback has not run and never will; 1 (no error) when it has run, or runs: then it is
 * waited for, unless this is called from within it; 8193 (ZEL_E_HANDLE); 8196 (ZEL_E_PARAM: no such ticket
 * was ever given, or it is another instance's and its callback has not run). */
ZEL_API int32_t libzelx_cancel(ZelInstance instance, uint64_t ticket);

/** @} */

/** @defgroup beyond_publishing Publishing
 * Publications in bounded time, one or many in a write.
 * @{ */

/** A publication. */
typedef struct libzelx_Message {
  size_t size;       /**< sizeof(libzelx_Message), the same in all of an array */
  const char* topic; /**< the topic */
  uint32_t group;    /**< the publication's group */
  uint32_t offset;   /**< the publication's offset */
  const void* data;  /**< what is published; may be null when `length` is 0 */
  uint32_t length;   /**< of the data */
  uint32_t reserved; /**< 0 */
} libzelx_Message;
LIBZELX_SIZE(libzelx_Message, 40);

/** Publishes as libzel_publish does, but in bounded time, and refuses what is too long. `data` may be null
 * when `length` is 0. Result: 0 when the frame was handed to the system whole, or
 * - 8193 (ZEL_E_HANDLE), 8196 (ZEL_E_PARAM: null topic, or null data with a length),
 * - 5 (ZEL_E_DISCONNECTED): the link is down and could not be restored, or was lost,
 * - 4104 (ZEL_E_TIMEOUT): another thread's write took the time (not sent), or the peer did not read the whole
 *   frame in time: the link is dropped then,
 * - LIBZELX_E_TOO_LONG: nothing was sent. */
ZEL_API int32_t libzelx_publish(ZelInstance instance, uint32_t group, uint32_t offset, const char* topic,
                                const void* data, uint32_t length, uint32_t timeoutMs);

/** Publishes `count` messages in order, packed into writes of about 64 KiB: far quicker than one call for
 * each. All are looked at before the first is sent. The elements' `size` is the array's step. `*sent` (may be
 * null) is how many were handed to the system whole, also on failure. Result: as libzelx_publish; 8196
 * (ZEL_E_PARAM) also for null messages with a count, and for sizes that differ. With LIBZELX_E_TOO_LONG and
 * 8196 nothing was sent. */
ZEL_API int32_t libzelx_publishMany(ZelInstance instance, const libzelx_Message* messages, size_t count,
                                    uint32_t timeoutMs, size_t* sent);

/** Waits until the peer's system has acknowledged all that was written to the link. The peer's program may
 * not have read it. Result: 0, or
 * - 8193 (ZEL_E_HANDLE),
 * - 5 (ZEL_E_DISCONNECTED): the link is down, or was lost meanwhile,
 * - 4104 (ZEL_E_TIMEOUT): not yet,
 * - 4107 (ZEL_E_PROTOCOL): the system cannot tell (Windows). */
ZEL_API int32_t libzelx_flush(ZelInstance instance, uint32_t timeoutMs);

/** @} */

/** @defgroup beyond_log The log
 * Where the library's log lines go, and which there are.
 * @{ */

/** @name Levels
 * A line is written when its level is not below the set one. Note the order: NOTICE stands above ERROR.
 * @{ */
#define LIBZELX_LOG_TRACE 0            /**< every step; the level before libzel_init */
#define LIBZELX_LOG_DEBUG 1            /**< each message; the level that libzel_init sets */
#define LIBZELX_LOG_INFO 2             /**< connects */
#define LIBZELX_LOG_WARNING 4          /**< what is wrong and was survived */
#define LIBZELX_LOG_ERROR 8            /**< failures */
#define LIBZELX_LOG_CRITICAL 16        /**< not used */
#define LIBZELX_LOG_NOTICE 32          /**< the version, at the start */
#define LIBZELX_LOG_COMM 256           /**< not used */
#define LIBZELX_LOG_NOTHING 2147483647 /**< no line at all, as a level to set */
/** @} */

/** Takes one line of the log: its level, its time in nanoseconds since 1970 (UTC), the system's number of the
 * thread that logs, the place in the library's sources, and the message (at most 8191 bytes, without a line
 * end). Runs on the thread that logs, one call at a time in the process: all other threads that log wait
 * meanwhile. So it must be quick; it must not call the library (but for libzelx_stdoutSink, libzelx_strerror
 * and libzel_strerror), and must not wait for a thread that may be in the library. Lines that it causes
 * itself all the same are dropped. */
typedef void (*libzelx_LogSink)(int32_t level, int64_t unixNs, uint32_t thread, const char* file,
                                const char* function, int32_t line, const char* message, void* user);

/** The sink of a process that sets none: writes the line to standard output in the manner of the protocol
 * library, with its colours and its time stamp of UTC and 8 hours. May be called by a sink, and on its own.
 * `user` is not looked at; a null text is written as "(null)". */
ZEL_API void libzelx_stdoutSink(int32_t level, int64_t unixNs, uint32_t thread, const char* file,
                                const char* function, int32_t line, const char* message, void* user);

/** Hands the log's lines to `sink` from now on, or drops them when it is null. May be called before
 * libzel_init. When it returns, no call of the earlier sink runs or will run, and what the earlier `user`
 * points to may go.
 * Result: 0, or LIBZELX_E_WOULD_BLOCK: called from within a sink; nothing was changed. */
ZEL_API int32_t libzelx_setLogSink(libzelx_LogSink sink, void* user);

/** Sets the level below which lines are not made, any value; such a line costs a comparison. May be called
 * before libzel_init, which keeps the level then. Result: 0. */
ZEL_API int32_t libzelx_setLogLevel(int32_t level);

/** @} */

/** @defgroup beyond_figures Reasons and figures
 * Why a link failed, and what has been counted.
 * @{ */

/** Why the link last failed, in one sentence: "connect 10.0.0.9:9999: refused", "receive from 10.0.0.9:9999:
 * bad length 20971520", "send to 10.0.0.9:9999: peer did not read for 5000 ms". Empty when it never did. It
 * stays when the link comes back. Cut to `size` bytes with its NUL. Result: 0, 8193 (ZEL_E_HANDLE), or 8196
 * (ZEL_E_PARAM: null text, or size 0). */
ZEL_API int32_t libzelx_lastFailure(ZelInstance instance, char* text, size_t size);

/** What has been counted: of an instance since it was created, of the process since it began. */
typedef struct libzelx_Stats {
  size_t size;             /**< sizeof(libzelx_Stats) */
  int32_t connected;       /**< 1 while the link is up; of the process: how many links are up */
  uint32_t inFlight;       /**< requests that have no outcome yet */
  int64_t connectedMs;     /**< how long the link has been up; 0 while it is down, and of the process */
  uint64_t framesIn;       /**< whole frames received */
  uint64_t framesOut;      /**< whole frames written */
  uint64_t bytesIn;        /**< bytes received, headers included */
  uint64_t bytesOut;       /**< bytes written, headers included */
  uint64_t connects;       /**< connects that succeeded */
  uint64_t failedConnects; /**< connects that failed */
  uint64_t losses;         /**< links that were up and were lost */
  uint64_t lateAnswers;    /**< answers that no request waited for any more, or ever */
  uint64_t shortHeaders;   /**< headers that ended before their 8 bytes, though the link did not */
  uint64_t badLengths;     /**< headers with a length that cannot be */
  uint64_t shortBodies;    /**< bodies that ended before their announced length */
  uint64_t badRecords;     /**< publications whose record could not be read */
  uint64_t noPort;         /**< messages dropped because no callback took their port */
  uint64_t noTopic;        /**< publications dropped because no callback took their topic */
  uint64_t tooLong;        /**< frames not sent because they were longer than 10485760 bytes */
  uint64_t stalledWrites;  /**< links dropped because the peer did not read in time */
} libzelx_Stats;
LIBZELX_SIZE(libzelx_Stats, 152);

/** What has been counted, of an instance, or with instance 0 of the process, released instances included. The
 * numbers are read one by one while they may change. Set `out->size` before. Result: 0, 8193 (ZEL_E_HANDLE),
 * or 8196 (ZEL_E_PARAM: null, or a bad size). */
ZEL_API int32_t libzelx_getStats(ZelInstance instance, libzelx_Stats* out);

/** @} */

/** @defgroup beyond_files Files
 * Sending files to several devices at a time, each with exactly one end.
 * @{ */

/** The progress or the end of a transfer. */
typedef struct libzelx_FileEvent {
  size_t size;     /**< sizeof(libzelx_FileEvent) */
  uint64_t ticket; /**< of libzelx_sendFile */
  uint64_t sent;   /**< bytes that the device has taken */
  uint64_t total;  /**< the file's length when it was opened; no more is sent */
  int32_t ended;   /**< 1 in exactly one event, the last */
  /** With `ended`: 0 all sent; LIBZELX_E_CANCELLED, LIBZELX_E_FILE_CHANGED, LIBZELX_E_DEVICE, 12291
   * (ZEL_E_FILE_READ), 12294 (ZEL_E_FILE_TRANSFER: the network), 4104 (ZEL_E_TIMEOUT). Else 0. */
  int32_t result;
  uint32_t deviceError; /**< the device's error word; else 0 */
  uint32_t reserved;    /**< 0 */
  uint64_t readOffset;  /**< with 12291: where the file could not be read */
} libzelx_FileEvent;
LIBZELX_SIZE(libzelx_FileEvent, 56);

/** The progress of a transfer, and its end. Runs on a thread that sends files, one call at a time per ticket.
 * -1 cancels, every other value lets it go on. `user` is in use until the call with `ended` has returned. */
typedef int32_t (*libzelx_FileCallback)(const libzelx_FileEvent* event, void* user);

/** Sends a file to a device on a thread of the library, and returns when it is opened. Files to one device
 * are sent one after the other, in order. `callback` is not null. `*ticket` (may be null) is set before the
 * callback can run, and is 0 when the call fails; tickets count from 1 in a process and are never used again.
 * May be called from a callback. libzel_destory ends all transfers as cancelled, and has run their callbacks
 * when it returns, but for the one that it is called from. Result: 0 when the callback will tell the end;
 * else the callback will not run:
 * - 8196 (ZEL_E_PARAM): null target, path or callback, a remote path of 256 bytes or more,
 * - 12289 (ZEL_E_FILE_OPEN): the file cannot be opened, is no regular file, or has 2 GiB or more. */
ZEL_API int32_t libzelx_sendFile(const ZelDeviceAddr* target, const char* localPath, const char* remotePath,
                                 libzelx_FileCallback callback, void* user, uint64_t* ticket);

/** Asks a transfer to end; it is not waited for. Result: 0: the end comes, as LIBZELX_E_CANCELLED unless
 * another one is on its way; 1 (no error): it has come; 8196 (ZEL_E_PARAM: no such ticket was ever given). */
ZEL_API int32_t libzelx_cancelFile(uint64_t ticket);

/** @} */

/** @} */

#ifdef __cplusplus
}
#endif

#endif /* LIBZEL_LIBZELX_H */
