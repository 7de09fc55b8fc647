#include "Simulator.h"

#include <asio/post.hpp>
#include <csignal>

namespace zelsim {
namespace {

constexpr std::chrono::seconds kLastCall{1};

}  // namespace

Simulator::Simulator(const Options& options)
    : options_(options),
      loop_(1),
      signals_(loop_),
      lastCall_(loop_),
      files_(options_.files, trace_),
      server_(loop_, options_.server, trace_),
      devices_(loop_, options_.devices, trace_),
      relay_(loop_, options_.relays, trace_) {
  if (files_.Wanted()) server_.Serve(files_);
}

std::string Simulator::Start() {
  if (!options_.trace.empty() && !trace_.Open(options_.trace))
    return "cannot write the trace to " + options_.trace;
  std::string problem = files_.Open();
  if (problem.empty()) problem = devices_.Open();
  if (problem.empty()) problem = server_.Listen();
  return problem.empty() ? relay_.Listen() : problem;
}

std::vector<asio::ip::tcp::endpoint> Simulator::LocalEndpoints() const {
  auto endpoints = server_.LocalEndpoints();
  for (const auto& endpoint : relay_.LocalEndpoints()) endpoints.push_back(endpoint);
  return endpoints;
}

void Simulator::StopOnSignals() {
  signals_.add(SIGTERM);
  signals_.add(SIGINT);
  signals_.async_wait([this](const asio::error_code& error, int) {
    if (!error) Stop();
  });
}

void Simulator::Run() { loop_.run(); }

void Simulator::RequestStop() {
  asio::post(loop_, [this] { Stop(); });
}

void Simulator::Stop() {
  signals_.cancel();
  devices_.Close();
  relay_.Stop();
  lastCall_.expires_after(kLastCall);
  lastCall_.async_wait([this](const asio::error_code&) { loop_.stop(); });
  server_.Stop([this] { loop_.stop(); });
}

}  // namespace zelsim
