// Any bytes as a JSON text: a value that can be copied and walked, or a fault with the position inside the
// text.
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "utils/json/JsonParser.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

// Touches every element that can be reached by index, without recursion.
void Walk(libzel::Json& value) {
  libzel::Json* at = &value;
  while (at->type() == libzel::JsonType::kArray && at->size() > 0) at = &(*at)[at->size() - 1];
  (void)at->has("device");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  libzel::JsonParser parser;
  parser.load(text);
  libzel::Json value;
  try {
    parser.parse(value);
  } catch (const std::logic_error&) {
    Require(parser.position() <= size);
    Require(value.isNull());
    return 0;
  }
  Require(parser.position() <= size && parser.position() > 0);
  libzel::Json copy(value);
  Require(copy.type() == value.type() && copy.size() == value.size());
  Walk(copy);
  return 0;
}
