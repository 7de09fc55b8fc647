#include "Program.h"

int main(int argc, char** argv) { return zeltool::RunProgram(argc, argv); }
