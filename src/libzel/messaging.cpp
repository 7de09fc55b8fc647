// Requests and answers, topics, routed messages.
#include "libzel/Guard.h"
#include "libzel/libzel.h"
#include "zelcomm/Frame.h"

using namespace libzel;

int32_t libzel_sync_send(ZelInstance instance, uint16_t port, uint32_t idGroup, uint32_t idOffset,
                         const uint8_t* data, uint32_t length, uint32_t timeoutMs) {
  return WithInstance(instance, Always(-1), [&](IZelPeerConnection& connection) {
    if (IsMissing(data, length)) return Fail(Always(-1), ZEL_E_PARAM);
    return connection.Send(port, idGroup, idOffset, data, length, timeoutMs);
  });
}

int32_t libzel_sync_recv(ZelInstance instance, void* unused, uint8_t* buffer, uint32_t size,
                         uint32_t timeoutMs) {
  return WithInstance(instance, Always(-1), [&](IZelPeerConnection& connection) {
    if (IsMissing(buffer, size)) return Fail(Always(-1), ZEL_E_PARAM);
    return connection.Recv(unused, buffer, size, timeoutMs);
  });
}

int32_t libzel_publish(ZelInstance instance, uint32_t idGroup, uint32_t idOffset, const char* topic,
                       const uint8_t* data, uint32_t length) {
  return WithInstance(instance, kTheCode, [&](IZelPeerConnection& connection) {
    if (topic == nullptr || IsMissing(data, length)) return Fail(kTheCode, ZEL_E_PARAM);
    return connection.Publish(topic, idGroup, idOffset, data, length);
  });
}

int32_t libzel_subscribe(ZelInstance instance, const char* topic, ZelTopicCallback callback, void* user) {
  return WithInstance(instance, kTheCode, [&](IZelPeerConnection& connection) {
    if (topic == nullptr) return Fail(kTheCode, ZEL_E_PARAM);
    return connection.Subscribe(topic, callback, user);
  });
}

int32_t libzel_unsubscribe(ZelInstance instance, const char* topic) {
  return WithInstance(instance, kTheCode, [&](IZelPeerConnection& connection) {
    if (topic == nullptr) return Fail(kTheCode, ZEL_E_PARAM);
    return connection.UnSubscribe(topic);
  });
}

int32_t libzel__registerRouterEvent(ZelInstance instance, uint16_t port, ZelRouterCallback callback,
                                    void* user) {
  return Guard(kTheCode, [&] {
    if (port <= kLastReservedPort) return Fail(kTheCode, ZEL_E_RESERVED_PORT);
    return WithInstance(instance, kTheCode, [&](IZelPeerConnection& connection) {
      return connection.addUserMessaggeRouter(port, callback, user);
    });
  });
}

int32_t libzel__unregisterRouterEvent(ZelInstance instance, uint16_t port) {
  return WithInstance(instance, kTheCode,
                      [&](IZelPeerConnection& connection) { return connection.delMessageRouter(port); });
}
