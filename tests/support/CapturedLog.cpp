#include "support/CapturedLog.h"

#include <fcntl.h>

#include <cstdio>
#include <fstream>
#include <stdexcept>

#include "support/Recorders.h"

#ifdef _WIN32
#include <io.h>
#include <process.h>
#include <stdlib.h>
#include <sys/stat.h>
#else
#include <unistd.h>
#endif

namespace zeltest {

namespace {

#ifdef _WIN32
int OpenTemporary(std::string& path) {
  static int count = 0;
  const char* folder = getenv("TEMP");
  path = std::string(folder != nullptr ? folder : ".") + "\\zellog" + std::to_string(_getpid()) + "." +
         std::to_string(++count);
  return _open(path.c_str(), _O_CREAT | _O_TRUNC | _O_RDWR | _O_BINARY, _S_IREAD | _S_IWRITE);
}
int Duplicate(int descriptor) { return _dup(descriptor); }
void DuplicateTo(int from, int to) { (void)_dup2(from, to); }
void CloseDescriptor(int descriptor) { (void)_close(descriptor); }
#else
int OpenTemporary(std::string& path) {
  path = "/tmp/zellog.XXXXXX";
  return mkstemp(path.data());
}
int Duplicate(int descriptor) { return dup(descriptor); }
void DuplicateTo(int from, int to) { (void)dup2(from, to); }
void CloseDescriptor(int descriptor) { (void)close(descriptor); }
#endif

constexpr int kStandardOutput = 1;

std::string CutUpTo(std::string_view& rest, char end) {
  const size_t at = rest.find(end);
  const std::string part(rest.substr(0, at));
  rest.remove_prefix(at == std::string_view::npos ? rest.size() : at + 1);
  return part;
}

// "<time> <colour>[libzel,LEVEL,file,function,line,thread<colour>]:message"; a function's name may have
// commas.
bool Parse(std::string_view text, LogLine& line) {
  constexpr std::string_view kStart = "[libzel,";
  const size_t start = text.find(kStart);
  const size_t end = text.find("]:");
  if (start == std::string_view::npos || end == std::string_view::npos) return false;
  std::string_view head = text.substr(start + kStart.size(), end - start - kStart.size());
  line.level = CutUpTo(head, ',');
  line.file = CutUpTo(head, ',');
  head = head.substr(0, head.rfind(','));
  line.function = head.substr(0, head.rfind(','));
  line.message = text.substr(end + 2);
  if (!line.message.empty() && line.message.back() == '\r') line.message.pop_back();
  return true;
}

}  // namespace

CapturedLog::CapturedLog() {
  (void)fflush(stdout);
  const int file = OpenTemporary(path_);
  if (file < 0) throw std::runtime_error("no file for the log");
  saved_ = Duplicate(kStandardOutput);
  DuplicateTo(file, kStandardOutput);
  CloseDescriptor(file);
}

CapturedLog::~CapturedLog() {
  (void)fflush(stdout);
  DuplicateTo(saved_, kStandardOutput);
  CloseDescriptor(saved_);
  // What a test said meanwhile must not get lost.
  std::ifstream file(path_, std::ios::binary);
  LogLine line;
  for (std::string text; std::getline(file, text);) {
    if (!Parse(text, line)) (void)printf("%s\n", text.c_str());
  }
  file.close();
  (void)remove(path_.c_str());
}

std::vector<LogLine> CapturedLog::Lines() const {
  (void)fflush(stdout);
  std::ifstream file(path_, std::ios::binary);
  std::vector<LogLine> lines;
  for (std::string text; std::getline(file, text);) {
    LogLine line;
    if (Parse(text, line)) lines.push_back(line);
  }
  return lines;
}

int CapturedLog::Count(std::string_view level, std::string_view message) const {
  int count = 0;
  for (const LogLine& line : Lines()) count += line.level == level && line.message == message ? 1 : 0;
  return count;
}

bool CapturedLog::Await(std::string_view level, std::string_view message, int times) const {
  return Eventually([&] { return Count(level, message) >= times; });
}

bool CapturedLog::HasStart(std::string_view level, std::string_view start) const {
  for (const LogLine& line : Lines()) {
    if (line.level == level && line.message.starts_with(start)) return true;
  }
  return false;
}

std::string CapturedLog::FunctionOf(std::string_view message) const {
  for (const LogLine& line : Lines()) {
    if (line.message == message) return line.function;
  }
  return {};
}

std::string CapturedLog::FileOf(std::string_view message) const {
  for (const LogLine& line : Lines()) {
    if (line.message == message) return line.file;
  }
  return {};
}

}  // namespace zeltest
