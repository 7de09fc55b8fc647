// Why a device cannot be reached, and what to try next, in sentences. Everything here is a pure function.
#pragma once

#include <string>

namespace zeltool {

struct Reason {
  std::string sentence;
  std::string advice;
};

// Of a connect to a host that failed; `failure` is what the library says of the link
// ("connect 10.0.0.9:9999: refused").
Reason ExplainConnect(const std::string& host, const std::string& failure);

// Of a host that was silent when it was asked for its identifier.
Reason ExplainSilence(const std::string& host, bool isServerThere);

}  // namespace zeltool
