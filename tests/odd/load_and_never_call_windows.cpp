// Loads the library that it is given, finds a function, calls nothing, and lets go of it again.
#include <windows.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const HMODULE library = LoadLibraryA(argv[1]);
  if (library == nullptr || GetProcAddress(library, "libzel_init") == nullptr) {
    std::fprintf(stderr, "error %lu\n", GetLastError());
    return 1;
  }
  return FreeLibrary(library) != 0 ? 0 : 1;
}
