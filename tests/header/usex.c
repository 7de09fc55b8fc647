/* Includes nothing but the second public header; valid C99, C11, C++11 and C++20. */
#include <libzel/libzelx.h>

static int SizesAreRight(void) {
  return sizeof(libzelx_Request) == 40 && sizeof(libzelx_Outcome) == 24 && sizeof(libzelx_Message) == 40 &&
         sizeof(libzelx_Stats) == 152 && sizeof(libzelx_FileEvent) == 56 && sizeof(libzelx_Discovery) == 712;
}

static int ReleaseIsRight(void) {
  const uint32_t expected[] = EXPECTED_RELEASE;
  uint32_t found[] = {9, 9, 9};
  libzelx_version(&found[0], &found[1], &found[2]);
  return found[0] == expected[0] && found[1] == expected[1] && found[2] == expected[2];
}

static int IsText(const char* text, const char* expected) {
  while (*text != '\0' && *text == *expected) {
    ++text;
    ++expected;
  }
  return *text == *expected;
}

int main(void) {
  if (!SizesAreRight()) return 1;
  if (!ReleaseIsRight()) return 2;
  if (!IsText(libzelx_strerror(LIBZELX_E_CANCELLED), "cancelled")) return 3;
  return IsText(libzelx_strerror(ZEL_E_HANDLE), "invaild handler") ? 0 : 4;
}
