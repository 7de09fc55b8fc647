#include "Trace.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>

#include "Text.h"

namespace zelsim {

TraceLine::TraceLine(std::string_view event) {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  char text[48];
  std::snprintf(text, sizeof text,
                "t=%lld.%03ld event=", static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000,
                now.tv_nsec / 1000 % 1000);
  line_ = text;
  line_ += event;
}

TraceLine& TraceLine::Text(std::string_view key, std::string_view value) { return Plain(key, Escape(value)); }

TraceLine& TraceLine::Hex(std::string_view key, uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
  return Plain(key, text);
}

TraceLine& TraceLine::Plain(std::string_view key, std::string_view value) {
  line_ += ' ';
  line_ += key;
  line_ += '=';
  line_ += value;
  return *this;
}

Trace::~Trace() {
  if (descriptor_ > STDERR_FILENO) close(descriptor_);
}

bool Trace::Open(const std::string& path) {
  descriptor_ =
      path == "-" ? STDOUT_FILENO : open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  return On();
}

void Trace::Write(const TraceLine& line) {
  const std::string text = line.Line() + "\n";
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t count = write(descriptor_, text.data() + done, text.size() - done);
    if (count <= 0) return;  // a trace that cannot be written must not stop the simulation
    done += static_cast<size_t>(count);
  }
}

}  // namespace zelsim
