#include "Reasons.h"

namespace zeltool {

Reason ExplainConnect(const std::string& host, const std::string& failure) {
  if (failure.ends_with(": refused")) {
    return {host + " refuses connections to TCP port 9999",
            "Something is at this address, but no server: is it the right one, has the device started?"};
  }
  if (failure.ends_with(": no route")) {
    return {"there is no way to " + host,
            "Has this machine an address in the device's network? Look at cable, adapter and gateway."};
  }
  if (failure.ends_with(": timed out")) {
    return {host + " does not answer on TCP port 9999",
            "Is the device on, is the address right, does a firewall drop TCP port 9999? More time: "
            "--connect-timeout."};
  }
  return {failure.empty() ? host + " cannot be reached" : failure, ""};
}

Reason ExplainSilence(const std::string& host, bool isServerThere) {
  if (isServerThere) {
    return {host + " is there, its TCP port 9999 is open, but it does not answer on UDP port 38898",
            "Does a firewall drop UDP? Connections work all the same."};
  }
  return {host + " does not answer on UDP port 38898, nor on TCP port 9999",
          "Is the device on, is the address right? zel scan shows who is there."};
}

}  // namespace zeltool
