// A child that the test's process forks off. POSIX only.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

namespace zeltest {

// The exit status of a child that runs `body` and ends with its result at once, -1 when
// it did not within 20 s.
template <typename Body>
int StatusOfChild(Body body) {
  const pid_t child = fork();
  if (child == 0) {
    (void)alarm(20);
    _exit(body());
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace zeltest
