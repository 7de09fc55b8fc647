// The program but for its entry: reads the command line, keeps output and log apart, runs the command.
#pragma once

namespace zeltool {

// Result: the exit status (Failure.h).
int RunProgram(int argc, char** argv);

}  // namespace zeltool
