// One connection that passes a relay: the client's side, the server's side and the two streams between them.
//
// Lives on the event loop's thread. The relay owns it by shared_ptr; pending operations keep it alive too.
#pragma once

#include <asio/ip/tcp.hpp>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "RelayRule.h"
#include "RelayStream.h"
#include "Trace.h"

namespace zelsim {

struct RelaySettings {
  uint64_t id = 0;  // number in the trace, unique in the relay
  asio::ip::tcp::endpoint target;
  RelayConduct conduct;
  std::function<void(uint64_t id)> ended;  // called once, never from inside Start
};

class RelayLink : public std::enable_shared_from_this<RelayLink> {
 public:
  RelayLink(asio::ip::tcp::socket client, RelaySettings settings, Trace& trace);

  void Start();
  // Ends both sides now, in an orderly way.
  void Close(std::string_view reason);
  // Ends both sides with a reset.
  void Reset(std::string_view reason);

 private:
  void OnConnected(const asio::error_code& error);
  void OnFinished();
  void GoSilent();
  TraceLine Line(std::string_view event) const;

  asio::ip::tcp::socket client_;
  asio::ip::tcp::socket server_;
  RelaySettings settings_;
  Trace& trace_;
  std::string peer_;
  std::string local_;
  RelayStream toServer_;
  RelayStream toClient_;
  int finished_ = 0;
  bool closed_ = false;
};

}  // namespace zelsim
