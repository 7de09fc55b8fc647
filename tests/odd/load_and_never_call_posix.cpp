// Loads the library that it is given, finds a function, calls nothing, and lets go of it again.
#include <dlfcn.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  void* const library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr || dlsym(library, "libzel_init") == nullptr) {
    std::fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  return dlclose(library);
}
