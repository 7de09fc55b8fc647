#include "RelayLink.h"

#include <algorithm>
#include <asio/post.hpp>

#include "Text.h"

namespace zelsim {
namespace {

using std::chrono::duration_cast;
using std::chrono::microseconds;
using std::chrono::milliseconds;

void Prepare(asio::ip::tcp::socket& socket) {
  asio::error_code ignored;
  socket.set_option(asio::ip::tcp::no_delay(true), ignored);
  socket.non_blocking(true, ignored);
}

void EndWithReset(asio::ip::tcp::socket& socket) {
  asio::error_code ignored;
  socket.set_option(asio::socket_base::linger(true, 0), ignored);
  socket.close(ignored);
}

}  // namespace

RelayLink::RelayLink(asio::ip::tcp::socket client, RelaySettings settings, Trace& trace)
    : client_(std::move(client)),
      server_(client_.get_executor()),
      settings_(std::move(settings)),
      trace_(trace),
      toServer_(client_, server_),
      toClient_(server_, client_) {}

void RelayLink::Start() {
  asio::error_code ignored;
  peer_ = EndpointText(client_.remote_endpoint(ignored));
  local_ = EndpointText(client_.local_endpoint(ignored));
  if (trace_.On()) trace_.Write(Line("relay").Text("target", EndpointText(settings_.target)));
  Prepare(client_);
  server_.async_connect(settings_.target, [this, self = shared_from_this()](const asio::error_code& error) {
    OnConnected(error);
  });
}

void RelayLink::OnConnected(const asio::error_code& error) {
  if (closed_) return;
  if (error) return Reset(error.message());
  Prepare(server_);
  const RelayConduct& conduct = settings_.conduct;
  for (RelayStream* stream : {&toServer_, &toClient_}) stream->SetDelay(conduct.delay, conduct.jitter);
  toClient_.SetPieces(conduct.pieceBytes, conduct.pieceGap);
  if (conduct.silenceAfter) toClient_.At(*conduct.silenceAfter, [this] { GoSilent(); });
  if (conduct.dropAfter) toClient_.At(*conduct.dropAfter, [this] { Reset("drop"); });
  const RelayStream::Hooks hooks{
      .finished = [this] { OnFinished(); },
      .failed = [this](const asio::error_code& failure) { Reset(failure.message()); }};
  for (RelayStream* stream : {&toClient_, &toServer_}) {
    if (!closed_) stream->Start(weak_from_this(), hooks);
  }
}

void RelayLink::OnFinished() {
  if (++finished_ == 2) Close("end");
}

void RelayLink::GoSilent() {
  if (trace_.On()) {
    trace_.Write(
        Line("silence").Number("ms", duration_cast<milliseconds>(settings_.conduct.silence).count()));
  }
  const auto until = RelayStream::Clock::now() + settings_.conduct.silence;
  for (RelayStream* stream : {&toServer_, &toClient_}) stream->Pause(until);
}

void RelayLink::Close(std::string_view reason) {
  if (closed_) return;
  closed_ = true;
  toServer_.Stop();
  toClient_.Stop();
  if (trace_.On()) {
    const microseconds late = std::max(toServer_.latest(), toClient_.latest());
    trace_.Write(Line("relay-end")
                     .Text("reason", reason)
                     .Number("toServer", toServer_.passed())
                     .Number("toClient", toClient_.passed())
                     .Number("lateUs", late.count()));
  }
  asio::error_code ignored;
  client_.close(ignored);
  server_.close(ignored);
  asio::post(client_.get_executor(),
             [self = shared_from_this()] { self->settings_.ended(self->settings_.id); });
}

void RelayLink::Reset(std::string_view reason) {
  if (closed_) return;
  EndWithReset(client_);
  EndWithReset(server_);
  Close(reason);
}

TraceLine RelayLink::Line(std::string_view event) const {
  TraceLine line(event);
  line.Number("conn", settings_.id).Text("peer", peer_).Text("local", local_);
  return line;
}

}  // namespace zelsim
