#include "zelclient/msgrouter/MsgRouter.h"

#include "utils/Log.h"
#include "zelcomm/ErrorCode.h"

namespace libzel {

int32_t CMsgRouter::addUserMessaggeRouter(uint16_t port, ZelRouterCallback handler, void* user) {
  if (entries_.Insert(port, {false, port, user, handler, nullptr})) return ZEL_OK;
  ZEL_LOG(kError, "port:%d router is already register...", port);
  SetErrno(ZEL_E_ROUTER);
  return ZEL_E_ROUTER;
}

int32_t CMsgRouter::addCmpMessageRouter(uint16_t port, ZelCmpRouterCallback handler, void* user) {
  if (entries_.Insert(port, {true, port, user, nullptr, handler})) {
    ZEL_LOG(kInfo, "Cmp port:%d router register...", port);
    return ZEL_OK;
  }
  ZEL_LOG(kError, "port:%d router is already register...", port);
  SetErrno(ZEL_E_ROUTER);
  return ZEL_E_ROUTER;
}

int32_t CMsgRouter::delMessageRouter(uint16_t port) {
  if (entries_.Erase(port)) return ZEL_OK;
  ZEL_LOG(kError, "port:%d router is not register...", port);
  SetErrno(ZEL_E_ROUTER);
  return ZEL_E_ROUTER;
}

int32_t CMsgRouter::call(const ZelHeader& header, const uint8_t* body, uint32_t length,
                         IZelPeerConnection* connection) {
  const auto* const found = entries_.Find(header.port);
  if (found == nullptr) {
    ZEL_LOG(kError, "port:%d router is not register...", header.port);
    SetErrno(ZEL_E_NO_ROUTER);
    return ZEL_E_NO_ROUTER;
  }
  const Entry entry = found->value;  // a handler may change the table, its own entry included
  if (!entry.isComponent) return CallUser(entry, header, body, length);
  if (entry.componentHandler != nullptr)
    entry.componentHandler(&header, body, length, connection, entry.user);
  return ZEL_OK;
}

int32_t CMsgRouter::CallUser(const Entry& entry, const ZelHeader& header, const uint8_t* body,
                             uint32_t length) {
  if (entry.userHandler == nullptr) return ZEL_OK;
  if (header.version == kVersionBare) {
    entry.userHandler(entry.port, body, length, entry.user);
    return ZEL_OK;
  }
  // Messages of versions that are not known yet are dropped without a word.
  if (header.version != kVersionZoe) return ZEL_OK;

  const auto zoe = ZoeHeader::Read({body, length});
  if (!zoe) {
    ZEL_LOG_AS("CMsgRouter::call", kError, "zel version 1,dataLen %d < %d", static_cast<int>(length),
               static_cast<int>(kZoeHeaderSize));
    return ZEL_E_TOO_SHORT;
  }
  ZEL_LOG_AS("CMsgRouter::call", kDebug, "ZoeHeader:error:%d,invokeId:%d,Cmd:%d",
             static_cast<int>(zoe->error), static_cast<int>(zoe->invokeId), zoe->Cmd);
  entry.userHandler(entry.port, body + kZoeHeaderSize, length - static_cast<uint32_t>(kZoeHeaderSize),
                    entry.user);
  return ZEL_OK;
}

}  // namespace libzel
