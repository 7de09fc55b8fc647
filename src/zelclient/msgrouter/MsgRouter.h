// The router of one connection: which handler gets the messages that arrive on a port.
//
// Any thread may register and remove; `call` runs on the connection's receive thread. The mutex is never held while a
// handler runs, so a handler may register and remove ports, its own included.
#pragma once

#include <cstdint>

#include "libzel/libzel.h"
#include "utils/LookupTable.h"
#include "zelcomm/Frame.h"

namespace libzel {

class IZelPeerConnection;

// Gets the raw header and body of every message on its port, whatever the version.
using ZelCmpRouterCallback = void (*)(const ZelHeader* header, const uint8_t* body, uint32_t length,
                                      IZelPeerConnection* connection, void* user);

class CMsgRouter {
 public:
  // A user router gets payloads only. 0, or 4103 when the port has an entry of either kind, which stays; the thread's
  // error number is set too.
  int32_t addUserMessaggeRouter(uint16_t port, ZelRouterCallback handler, void* user);
  int32_t addCmpMessageRouter(uint16_t port, ZelCmpRouterCallback handler, void* user);
  // 0, or 4103 when the port has no entry: the same code as for a double registration. Deliberate.
  int32_t delMessageRouter(uint16_t port);

  // Hands a message to its port's handler. 0; 4101 when the port has no entry (also the thread's error number); 4108
  // when a version 1 body is shorter than its inner header.
  int32_t call(const ZelHeader& header, const uint8_t* body, uint32_t length, IZelPeerConnection* connection);

 private:
  struct Entry {
    bool isComponent = false;
    uint16_t port = 0;
    void* user = nullptr;
    ZelRouterCallback userHandler = nullptr;
    ZelCmpRouterCallback componentHandler = nullptr;
  };

  static int32_t CallUser(const Entry& entry, const ZelHeader& header, const uint8_t* body, uint32_t length);

  LookupTable<uint16_t, Entry> entries_;
};

}  // namespace libzel
