// The program but for its entry: reads the command line, keeps output and log apart, runs the command.
#ifndef ZEL_TOOLS_ZEL_PROGRAM_H
#define ZEL_TOOLS_ZEL_PROGRAM_H

namespace zeltool {

// Result: the exit status (Failure.h).
int RunProgram(int argc, char** argv);

}  // namespace zeltool

#endif
