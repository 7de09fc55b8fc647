// A small HTTP server for figures: GET alone, a few pages.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace zelgate {

struct HttpAnswer {
  int status = 200;
  std::string text;
  std::string type = "text/plain; charset=utf-8";
};

// The value of the parameter "device", empty when there is none. On one of the server's threads.
using HttpPage = std::function<HttpAnswer(const std::string& device)>;

class Http {
 public:
  Http();
  // Waits for pages that are being made.
  ~Http();
  Http(const Http&) = delete;
  Http& operator=(const Http&) = delete;

  // Once. Listens at "127.0.0.1:9470" or "[::1]:9470", port 0 takes a free one. Pages by path, "/metrics".
  // Why it cannot, one sentence, or nothing.
  std::string Start(const std::string& listen, const std::map<std::string, HttpPage>& pages);
  // The port that it listens at.
  int Port() const;

 private:
  struct Server;
  std::unique_ptr<Server> server_;
};

}  // namespace zelgate
