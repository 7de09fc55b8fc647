// Initialises the library and ends without cleaning up.
#include <libzel/libzel.h>

int main() { return libzel_init(); }
