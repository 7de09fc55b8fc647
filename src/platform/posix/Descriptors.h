// The descriptors 0 to 2 belong to the standard streams, also while these are closed: the next file of the process gets
// the lowest descriptor that is free, and what is written to a closed stream would get into it.
#pragma once

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>

namespace libzel::platform {

constexpr int kLastStandard = STDERR_FILENO;

// Gives the same open file under a descriptor of its own, where it has one of the standard streams'.
inline int MoveAboveStandard(int descriptor) {
  if (descriptor < 0 || descriptor > kLastStandard) return descriptor;
  const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, kLastStandard + 1);
  const int error = errno;
  (void)close(descriptor);
  errno = error;
  return moved;
}

// Keeps the standard streams' descriptors taken while it lives, by a path, which can be written to as little as a closed
// descriptor. A socket must not be there for an instant either: a line of the log could hit it, and a socket without a peer
// answers with a signal.
class StandardDescriptorsTaken {
 public:
  StandardDescriptorsTaken() {
    (void)pthread_mutex_lock(&g_mutex);
    for (int i = 0; i <= kLastStandard; ++i) {
      if (fcntl(i, F_GETFD) < 0) taken_[count_++] = open("/", O_PATH | O_CLOEXEC);
    }
  }
  ~StandardDescriptorsTaken() {
    const int error = errno;
    for (size_t i = 0; i < count_; ++i) (void)close(taken_[i]);
    (void)pthread_mutex_unlock(&g_mutex);
    errno = error;
  }
  StandardDescriptorsTaken(const StandardDescriptorsTaken&) = delete;
  StandardDescriptorsTaken& operator=(const StandardDescriptorsTaken&) = delete;

 private:
  static inline pthread_mutex_t g_mutex =
      PTHREAD_MUTEX_INITIALIZER;  // another thread's path would go too soon

  std::array<int, kLastStandard + 1> taken_{};
  size_t count_ = 0;
};

}  // namespace libzel::platform
