// The servers of a fleet, as processes on hosts of the lab's network (servers.sh says which). Run by its
// COMMAND.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>

namespace gatelab {

class Servers {
 public:
  Servers() = default;
  // Kills them all.
  ~Servers();
  Servers(const Servers&) = delete;
  Servers& operator=(const Servers&) = delete;

  // Starts "hub-1", say, with what it kept before. With a change, a sed expression, its configuration is
  // another one.
  void Start(const std::string& name, const std::string& change = "");
  // Starts hub-1 to hub-3, north and south.
  void StartAll();
  // With -9. It keeps what is on its disk.
  void Kill(const std::string& name);

  // From here on no packet passes between a site and the hub, or another one of its servers; and again.
  static void Part(const std::string& one, const std::string& other);
  static void Join(const std::string& one, const std::string& other);
  static void PartFromHub(const std::string& site);
  static void JoinToHub(const std::string& site);

  // What the server has said.
  static std::string Log(const std::string& name);
  // The file of its host's network: /run/netns/device4
  static std::string Namespace(const std::string& name);
  // 10.77.0.5
  static std::string Address(const std::string& name);
  // nats://north.zel.example:4222
  static std::string Url(const std::string& name);
  // The certificate of the authority that all trust, and of another one ("stranger").
  static std::string Authority(const std::string& name = "ca");
  // Gives the server a certificate that the stranger signed, before it is started.
  static void ForgeCertificate(const std::string& name, const std::string& host);

 private:
  std::map<std::string, pid_t> running_;
};

}  // namespace gatelab
