#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include <utility>

#include "platform/Console.h"

namespace zeltool {
namespace {

constexpr int kInput = 0;
constexpr int kOutput = 1;
constexpr int kError = 2;

std::function<void()>& Handler() {
  static std::function<void()> handler;
  return handler;
}

BOOL WINAPI OnControl(DWORD) {
  Handler()();
  return TRUE;
}

int OpenLog(LogTarget target, const std::string& logFile) {
  if (target == LogTarget::kStandardError) return _dup(kError);
  const char* path = target == LogTarget::kNowhere ? "NUL" : logFile.c_str();
  return _open(path, _O_WRONLY | _O_CREAT | _O_APPEND | _O_NOINHERIT | _O_TEXT, _S_IREAD | _S_IWRITE);
}

HANDLE HandleOf(std::FILE* stream) { return reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream))); }

}  // namespace

std::FILE* SeparateOutputFromLog(LogTarget target, const std::string& logFile) {
  const int output = _dup(kOutput);
  if (output < 0) return nullptr;
  const int log = OpenLog(target, logFile);
  if (log < 0 || _dup2(log, kOutput) < 0) {
    (void)_close(output);
    return nullptr;
  }
  (void)_close(log);
  (void)_setmode(output, _O_BINARY);
  return _fdopen(output, "wb");
}

bool IsTerminal(std::FILE* stream) {
  DWORD mode = 0;
  return GetConsoleMode(HandleOf(stream), &mode) != 0;
}

bool IsErrorTerminal() { return IsTerminal(stderr); }

TerminalSize GetTerminalSize(std::FILE* stream) {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  TerminalSize result;
  if (GetConsoleScreenBufferInfo(HandleOf(stream), &info) == 0) return result;
  const int columns = info.srWindow.Right - info.srWindow.Left + 1;
  const int rows = info.srWindow.Bottom - info.srWindow.Top + 1;
  result.columns = static_cast<size_t>(columns);
  result.rows = static_cast<size_t>(rows);
  return result;
}

void PrepareTerminal(std::FILE* stream) {
  DWORD mode = 0;
  if (GetConsoleMode(HandleOf(stream), &mode) == 0) return;
  (void)SetConsoleMode(HandleOf(stream), mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
  (void)SetConsoleOutputCP(CP_UTF8);
}

void ReadInputAsBytes() { (void)_setmode(kInput, _O_BINARY); }

void OnInterrupt(std::function<void()> handler) {
  Handler() = std::move(handler);
  (void)SetConsoleCtrlHandler(OnControl, TRUE);
}

unsigned long ProcessNumber() { return GetCurrentProcessId(); }

std::string TimeOfDay() {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  char text[32];
  (void)std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", now.wHour, now.wMinute, now.wSecond,
                      now.wMilliseconds);
  return text;
}

}  // namespace zeltool
