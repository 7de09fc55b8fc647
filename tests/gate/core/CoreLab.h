// One NATS server and any number of zelgate run on the command's own host, and NATS as their users have it.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Nats.h"

namespace gatecore {

// Waits until it holds; false when it does not within half a minute. A look may take a while.
bool Until(const std::function<bool()>& holds, std::chrono::milliseconds most = std::chrono::seconds(30));

// A program in the background, with standard error in a file. It is killed with this object.
class Child {
 public:
  Child(std::vector<std::string> words, std::string name);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  void Signal(int number) const;
  // SIGSTOP; when it returns all threads stand still.
  void Stop() const;
  // The exit status, 1000 and its number for a signal, -1 when it does not end in half a minute.
  int Wait();
  bool Says(const std::string& text) const;
  std::string Errors() const;

 private:
  bool HasEnded();

  std::string path_;
  pid_t process_ = -1;
  int status_ = -1;
};

struct StreamEvent {
  std::string subject;
  std::string data;
  std::string id;     // Nats-Msg-Id
  std::string group;  // headers
  std::string offset;
  std::string time;
  std::string sequence;
};

struct Reply {
  natsStatus status = NATS_OK;
  std::string verdict;
  std::string error;
  std::string reason;
  std::string data;
};

// A site with a server that keeps its data while it is killed and started again.
class SiteLab : public ::testing::Test {
 protected:
  SiteLab();
  ~SiteLab() override;

  void StartServer();
  // With -9.
  void KillServer();
  Child& Server() { return *server_; }
  // "north" and so on are names for the logs.
  std::unique_ptr<Child> StartGate(const std::string& name);

  // What zelgate find would write: the device that a simulator plays at this address, "127.0.0.2".
  void AddDevice(const std::string& address, const std::string& twin = "");
  void RemoveDevice(const std::string& address);
  void SetProfile(const std::string& name, const std::string& json);
  static std::string TokenOf(const std::string& address);
  // The value of the key in zel_devices; empty when there is none.
  std::string LinkOf(const std::string& address);
  bool IsUp(const std::string& address);

  // A copy of what is in the stream under the subject now.
  std::vector<StreamEvent> Events(const std::string& subject);
  uint64_t CountEvents(const std::string& subject);
  std::string EventSubject(const std::string& address, const std::string& rest) const;

  // zel.core.ask.DEV.PORT.1.2
  Reply Ask(const std::string& address, int port, std::string_view data, const std::string& timeout = "",
            std::chrono::milliseconds patience = std::chrono::seconds(20));
  Reply Publish(const std::string& address, const std::string& topic, std::string_view data);
  zelgate::Nats& Nats() { return nats_; }

  // Text that the configuration's end gets.
  std::string more_;

 private:
  Reply RequestOf(zelgate::NatsMessage& message, std::chrono::milliseconds patience);

  std::string folder_;
  std::unique_ptr<Child> server_;
  zelgate::Nats nats_;
  zelgate::KeyValue devices_;
  zelgate::KeyValue profiles_;
};

}  // namespace gatecore
