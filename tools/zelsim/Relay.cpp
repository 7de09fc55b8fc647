#include "Relay.h"

#include "Text.h"

namespace zelsim {
namespace {

constexpr std::chrono::milliseconds kRelayAcceptRetry{50};

// A range of addresses is listened to on all; who is meant shows when a client has come.
asio::ip::tcp::endpoint ListenEndpoint(const AddressRange& range) {
  return {range.IsOne() ? asio::ip::address_v4(range.base) : asio::ip::address_v4::any(), range.port};
}

}  // namespace

Relay::Relay(asio::io_context& loop, std::vector<RelayRule> rules, Trace& trace)
    : loop_(loop), rules_(std::move(rules)), trace_(trace) {}

std::string Relay::Listen() {
  for (const RelayRule& rule : rules_) {
    const std::string problem = Add(rule);
    if (!problem.empty()) {
      return "cannot relay on " + EndpointText(ListenEndpoint(rule.listen)) + ": " + problem;
    }
  }
  return {};
}

std::string Relay::Add(const RelayRule& rule) {
  const auto endpoint = ListenEndpoint(rule.listen);
  for (Listener& listener : listeners_) {
    if (listener.acceptor.local_endpoint() != endpoint) continue;
    listener.rules.push_back(&rule);
    return {};
  }
  Listener& listener = listeners_.emplace_back(Listener{
      .acceptor = asio::ip::tcp::acceptor(loop_), .retry = asio::steady_timer(loop_), .rules = {&rule}});
  asio::error_code error;
  listener.acceptor.open(endpoint.protocol(), error);
  if (!error) listener.acceptor.set_option(asio::socket_base::reuse_address(true), error);
  if (!error) listener.acceptor.bind(endpoint, error);
  if (!error) listener.acceptor.listen(asio::socket_base::max_listen_connections, error);
  if (error) return error.message();
  if (trace_.On())
    trace_.Write(TraceLine("listen").Text("local", EndpointText(listener.acceptor.local_endpoint())));
  Accept(listener);
  return {};
}

std::vector<asio::ip::tcp::endpoint> Relay::LocalEndpoints() const {
  std::vector<asio::ip::tcp::endpoint> endpoints;
  for (const Listener& listener : listeners_) endpoints.push_back(listener.acceptor.local_endpoint());
  return endpoints;
}

void Relay::Accept(Listener& listener) {
  listener.acceptor.async_accept(
      [this, &listener](const asio::error_code& error, asio::ip::tcp::socket socket) {
        OnAccepted(listener, error, std::move(socket));
      });
}

void Relay::OnAccepted(Listener& listener, const asio::error_code& error, asio::ip::tcp::socket socket) {
  if (stopped_) return;
  if (error) {  // out of descriptors, for one: look again when some may be free
    listener.retry.expires_after(kRelayAcceptRetry);
    listener.retry.async_wait([this, &listener](const asio::error_code& waited) {
      if (!waited) Accept(listener);
    });
    return;
  }
  Pass(listener, std::move(socket));
  Accept(listener);
}

void Relay::Pass(const Listener& listener, asio::ip::tcp::socket socket) {
  asio::error_code ignored;
  const uint32_t address = socket.local_endpoint(ignored).address().to_v4().to_uint();
  for (const RelayRule* rule : listener.rules) {
    if (!rule->listen.Has(address)) continue;
    RelaySettings settings{.id = ++lastId_,
                           .target = rule->target.MemberFor(address),
                           .conduct = rule->conduct,
                           .ended = [this](uint64_t id) { links_.erase(id); }};
    const uint64_t id = settings.id;
    links_[id] = std::make_shared<RelayLink>(std::move(socket), std::move(settings), trace_);
    links_[id]->Start();
    return;
  }
}

void Relay::Stop() {
  stopped_ = true;
  for (Listener& listener : listeners_) {
    asio::error_code ignored;
    listener.acceptor.close(ignored);
    listener.retry.cancel();
  }
  for (auto& [id, link] : links_) link->Close("stop");
}

}  // namespace zelsim
