#include "Server.h"

#include <algorithm>

#include "Text.h"
#include "TopicRecord.h"

namespace zelsim {
namespace {

constexpr std::chrono::milliseconds kAcceptRetry{50};

std::optional<asio::ip::tcp::endpoint> ParseEndpoint(std::string_view text) {
  const auto sides = SplitOnce(text, ':');
  if (!sides) return std::nullopt;
  const auto address = ParseAddress(sides->first);
  const auto port = ParsePort(sides->second);
  if (!address || !port) return std::nullopt;
  return asio::ip::tcp::endpoint(*address, *port);
}

}  // namespace

Server::Server(asio::io_context& loop, ServerOptions options, Trace& trace)
    : loop_(loop), options_(std::move(options)), trace_(trace) {
  for (const TickRule& rule : options_.ticks) {
    tickers_.emplace_back(loop_, rule, [this](const TickRule& due) { SendTicks(due); });
  }
}

Server::~Server() = default;

std::string Server::Listen() {
  for (const std::string& where : options_.listens) {
    const std::string problem = OpenListener(where);
    if (!problem.empty()) return "cannot listen on " + where + ": " + problem;
  }
  for (Ticker& ticker : tickers_) ticker.Start();
  return {};
}

std::string Server::OpenListener(const std::string& where) {
  const auto endpoint = ParseEndpoint(where);
  if (!endpoint) return "not of the form A.B.C.D:PORT";
  Listener& listener = listeners_.emplace_back(Listener{
      .where = where, .acceptor = asio::ip::tcp::acceptor(loop_), .retry = asio::steady_timer(loop_)});
  asio::error_code error;
  listener.acceptor.open(endpoint->protocol(), error);
  if (!error) listener.acceptor.set_option(asio::socket_base::reuse_address(true), error);
  if (!error) listener.acceptor.bind(*endpoint, error);
  if (!error) listener.acceptor.listen(asio::socket_base::max_listen_connections, error);
  if (error) return error.message();
  if (trace_.On())
    trace_.Write(TraceLine("listen").Text("local", EndpointText(listener.acceptor.local_endpoint())));
  Accept(listener);
  return {};
}

std::vector<asio::ip::tcp::endpoint> Server::LocalEndpoints() const {
  std::vector<asio::ip::tcp::endpoint> endpoints;
  for (const Listener& listener : listeners_) endpoints.push_back(listener.acceptor.local_endpoint());
  return endpoints;
}

void Server::Accept(Listener& listener) {
  listener.acceptor.async_accept(
      [this, &listener](const asio::error_code& error, asio::ip::tcp::socket socket) {
        OnAccepted(listener, error, std::move(socket));
      });
}

void Server::OnAccepted(Listener& listener, const asio::error_code& error, asio::ip::tcp::socket socket) {
  if (stopped_) return;
  if (error) {  // out of descriptors, for one: look again when some may be free
    listener.retry.expires_after(kAcceptRetry);
    listener.retry.async_wait([this, &listener](const asio::error_code& waited) {
      if (!waited) Accept(listener);
    });
    return;
  }
  asio::error_code ignored;
  ConnectionSettings settings{.id = ++lastId_,
                              .local = EndpointText(socket.local_endpoint(ignored)),
                              .faults = FaultPlan(options_.faults, listener.where, ++listener.accepted),
                              .spin = options_.spin};
  auto connection = std::make_shared<Connection>(std::move(socket), std::move(settings), *this, trace_);
  clients_[connection->Id()].connection = connection;
  connection->Start();
  Accept(listener);
}

void Server::Stop(std::function<void()> done) {
  stopped_ = std::move(done);
  for (Ticker& ticker : tickers_) ticker.Stop();
  for (Listener& listener : listeners_) {
    asio::error_code ignored;
    listener.acceptor.close(ignored);
    listener.retry.cancel();
  }
  for (auto& [id, client] : clients_) client.connection->CloseAfterFlush("stop");
  if (clients_.empty()) stopped_();
}

void Server::OnClosed(Connection& connection) {
  topics_.Forget(connection);
  for (const auto& [port, service] : services_) service->OnClosed(connection);
  clients_.erase(connection.Id());
  if (stopped_ && clients_.empty()) stopped_();
}

bool Server::OnRequest(Connection& connection, const Request& request, uint64_t frame) {
  if (request.port == kTopicPort) return OnTopicRequest(connection, request);
  if (const auto found = services_.find(request.port); found != services_.end()) {
    found->second->OnRequest(connection, request, frame);
  } else {
    AnswerByRule(connection, request, frame);
  }
  return true;
}

void Server::AnswerByRule(Connection& connection, const Request& request, uint64_t frame) {
  const AnswerRule& rule = options_.answers.For(request.port);
  const AnswerHead head = AnswerTo(request, rule.error);
  switch (rule.kind) {
    case AnswerRule::Kind::kEcho: return connection.Answer(frame, head, request.payload);
    case AnswerRule::Kind::kDelay:
      return connection.AnswerLater(std::chrono::milliseconds(rule.delayMs), frame, head, request.payload);
    case AnswerRule::Kind::kSize:
    case AnswerRule::Kind::kError:
      if (counting_.size() < rule.size) counting_ = CountingBytes(rule.size);
      return connection.Answer(frame, head, ByteView(counting_).first(rule.size));
    case AnswerRule::Kind::kSilent: return;
  }
}

// Subscribing, unsubscribing and publishing are never answered: a client that waits for the answer to a later
// request would only have to skip it.
bool Server::OnTopicRequest(Connection& connection, const Request& request) {
  const auto record = ParseTopicRecord(request.payload);
  if (!record) return false;
  if (record->verb == "sub") {
    OnSubscribe(record->topic, connection);
  } else if (record->verb == "unsub") {
    topics_.Unsubscribe(record->topic, connection);
    connection.StopBurst(record->topic);
  } else if (record->verb == "pub") {
    Publish(record->topic, request.payload);
  } else {
    return false;
  }
  return true;
}

void Server::OnSubscribe(std::string_view topic, Connection& connection) {
  if (!topics_.Subscribe(topic, connection)) return;
  for (const BurstRule& rule : options_.bursts) {
    if (rule.topic == topic) connection.StartBurst(rule);
  }
}

void Server::Publish(std::string_view topic, ByteView record) {
  const auto& subscribers = topics_.Subscribers(topic);
  if (subscribers.empty()) return;
  const Bytes frame = EncodeAnswer({.port = kTopicPort}, record);
  for (Connection* subscriber : subscribers) subscriber->SendMessage(frame);
}

void Server::SendTicks(const TickRule& rule) {
  for (auto& [id, client] : clients_)
    client.connection->SendMessage(EncodeTick(rule, ++client.ticks[rule.port]));
}

}  // namespace zelsim
