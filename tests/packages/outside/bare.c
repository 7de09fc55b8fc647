/* Needs the library and nothing else, not even the language's runtime. */
#include <libzel/libzelx.h>

int Main(void) {
  uint32_t major = 1, minor = 0, patch = 0;
  if (libzel_version(&major, &minor, &patch) != ZEL_OK) return 1;
  if (major != 0 || minor < 2) return 2;
  libzelx_version(&major, &minor, &patch);
  return major == 0 && minor >= 2 ? 0 : 3;
}
