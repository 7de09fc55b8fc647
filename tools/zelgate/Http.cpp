#include "Http.h"

#include <httplib.h>

#include <system_error>
#include <thread>
#include <utility>

namespace zelgate {
namespace {

constexpr int kThreads = 2;
constexpr int kPatienceSec = 5;
constexpr size_t kMostBody = 1024;
constexpr size_t kMostRequests = 100;  // on one connection

struct Place {
  std::string host;
  int port = -1;
};

Place PlaceOf(const std::string& listen) {
  const size_t colon = listen.rfind(':');
  if (colon == std::string::npos) return {};
  std::string host = listen.substr(0, colon);
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  const std::string digits = listen.substr(colon + 1);
  const bool isNumber =
      !digits.empty() && digits.size() <= 5 && digits.find_first_not_of("0123456789") == std::string::npos;
  const int port = isNumber ? std::stoi(digits) : -1;
  return {host.empty() ? "0.0.0.0" : host, port <= 65535 ? port : -1};
}

}  // namespace

struct Http::Server {
  httplib::Server http;
  std::thread thread;
  int port = 0;
};

Http::Http() : server_(std::make_unique<Server>()) {}

Http::~Http() {
  server_->http.stop();
  if (server_->thread.joinable()) server_->thread.join();
}

int Http::Port() const { return server_->port; }

std::string Http::Start(const std::string& listen, const std::map<std::string, HttpPage>& pages) {
  httplib::Server& http = server_->http;
  http.new_task_queue = [] { return new httplib::ThreadPool(kThreads); };  // httplib deletes it
  // Its own choice lets a second process listen at the same port, and each gets every other question.
  http.set_socket_options([](socket_t socket) {
    const int yes = 1;
    (void)setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes,
                     sizeof yes);  // else the port may be busy for a while
  });
  http.set_read_timeout(kPatienceSec);
  http.set_write_timeout(kPatienceSec);
  http.set_keep_alive_timeout(kPatienceSec);
  http.set_keep_alive_max_count(kMostRequests);
  http.set_payload_max_length(kMostBody);
  for (const auto& [path, page] : pages) {
    http.Get(path, [page = page](const httplib::Request& request, httplib::Response& response) {
      const HttpAnswer answer = page(request.get_param_value("device"));
      response.status = answer.status;
      response.set_content(answer.text, answer.type);
    });
  }
  const Place place = PlaceOf(listen);
  const bool isBound =
      place.port >= 0 && (place.port == 0 ? (server_->port = http.bind_to_any_port(place.host)) > 0
                                          : http.bind_to_port(place.host, place.port));
  if (!isBound) {
    return "cannot listen for HTTP at " + listen + ": " +
           (place.port < 0 ? "it is no address with a port" : std::generic_category().message(errno)) +
           "; write another http.listen, or name one with --http for each process of a host";
  }
  if (place.port != 0) server_->port = place.port;
  server_->thread = std::thread([this] { server_->http.listen_after_bind(); });
  return {};
}

}  // namespace zelgate
