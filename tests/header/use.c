/* Includes nothing but the public header; valid C99, C11, C++11 and C++20. */
#include <libzel/libzel.h>

static int SizesAreRight(void) {
  return sizeof(ZelDeviceId) == 6 && sizeof(ZelDeviceAddr) == 8 && sizeof(ZelScanResult) == 544;
}

static int TextsAreThere(void) {
  const char* text = libzel_strerror(ZEL_E_HANDLE);
  const char* expected = "invaild handler";
  while (*text != '\0' && *text == *expected) {
    ++text;
    ++expected;
  }
  return *text == *expected;
}

int main(void) {
  uint32_t major = 1;
  uint32_t minor = 0;
  uint32_t patch = 0;
  if (!SizesAreRight() || !TextsAreThere()) return 1;
  if (libzel_version(&major, &minor, &patch) != ZEL_OK) return 2;
  if (major != 0 || minor != 2 || patch != 3) return 3;
  return libzel_loop_start(0) == ZEL_E_HANDLE && libzel_get_errno() == ZEL_E_HANDLE ? 0 : 4;
}
