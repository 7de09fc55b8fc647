#include <winsock2.h>
#include <ws2tcpip.h>

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <iphlpapi.h>
#include <shellapi.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <set>
#include <utility>
#include <vector>

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

std::wstring ToWide(const std::string& utf8) {
  const int size = static_cast<int>(utf8.size());
  const int wideSize = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, nullptr, 0);
  std::wstring wide(static_cast<size_t>(wideSize), L' ');
  (void)MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, wide.data(), wideSize);
  return wide;
}

std::string ToUtf8(const wchar_t* wide) {
  const int size = WideCharToMultiByte(CP_UTF8, 0, wide, -1, nullptr, 0, nullptr, nullptr);
  std::string utf8(static_cast<size_t>(std::max(size, 1)), ' ');
  (void)WideCharToMultiByte(CP_UTF8, 0, wide, -1, utf8.data(), size, nullptr, nullptr);
  utf8.pop_back();  // its end
  return utf8;
}

HANDLE HandleOf(std::FILE* stream) { return reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream))); }

}  // namespace

// Not those of main: the runtime has changed what does not fit its code page, and has expanded patterns.
std::vector<std::string> ProgramArguments(int, char**) {
  int count = 0;
  LPWSTR* const words = CommandLineToArgvW(GetCommandLineW(), &count);
  std::vector<std::string> arguments;
  for (int i = 1; i < count; ++i) arguments.push_back(ToUtf8(words[i]));
  (void)LocalFree(words);
  return arguments;
}

std::FILE* OpenFile(const std::string& path, const char* mode) {
  return _wfopen(ToWide(path).c_str(), ToWide(mode).c_str());
}

void WriteOutputAsBytes() {
  (void)_setmode(kOutput, _O_BINARY);
  (void)_setmode(kError, _O_BINARY);
}

bool IsTerminal(std::FILE* stream) {
  DWORD mode = 0;
  return GetConsoleMode(HandleOf(stream), &mode) != 0;
}

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

std::string TimeOfDay(std::chrono::system_clock::time_point time) {
  const auto second = std::chrono::floor<std::chrono::seconds>(time);
  const std::time_t seconds = std::chrono::system_clock::to_time_t(second);
  tm local{};
  (void)localtime_s(&local, &seconds);
  const auto rest = std::chrono::floor<std::chrono::milliseconds>(time - second).count();
  char text[32];
  (void)std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min, local.tm_sec,
                      static_cast<int>(rest));
  return text;
}

std::optional<std::string> LookUpHost(const std::string& name) {
  addrinfo wanted{};
  wanted.ai_family = AF_INET;
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(name.c_str(), nullptr, &wanted, &found) != 0) return std::nullopt;
  char text[INET_ADDRSTRLEN] = {};
  (void)getnameinfo(found->ai_addr, static_cast<socklen_t>(found->ai_addrlen), text, sizeof text, nullptr, 0,
                    NI_NUMERICHOST);
  freeaddrinfo(found);
  return text;
}

namespace {

template <typename Table>
void CollectHolders(ULONG family, uint16_t port, std::set<DWORD>& processes) {
  DWORD size = 0;
  (void)GetExtendedUdpTable(nullptr, &size, FALSE, family, UDP_TABLE_OWNER_PID, 0);
  std::vector<char> room(size + 4096);
  size = static_cast<DWORD>(room.size());
  if (GetExtendedUdpTable(room.data(), &size, FALSE, family, UDP_TABLE_OWNER_PID, 0) != NO_ERROR) return;
  const auto* table = reinterpret_cast<const Table*>(room.data());
  for (DWORD i = 0; i < table->dwNumEntries; ++i) {
    if (ntohs(static_cast<u_short>(table->table[i].dwLocalPort)) == port) {
      processes.insert(table->table[i].dwOwningPid);
    }
  }
}

std::string NameOfProcess(DWORD process) {
  const HANDLE handle = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process);
  if (handle == nullptr) return {};
  std::array<wchar_t, 1024> path{};
  auto size = static_cast<DWORD>(path.size());
  const bool isKnown = QueryFullProcessImageNameW(handle, 0, path.data(), &size) != 0;
  (void)CloseHandle(handle);
  if (!isKnown) return {};
  const std::string name = ToUtf8(path.data());
  return name.substr(name.find_last_of('\\') + 1);
}

// "name (process 123)"
std::string DescribeProcess(DWORD process) {
  if (process == 0) return "another program";  // the system does not tell which
  const std::string name = NameOfProcess(process);
  const std::string number = "process " + std::to_string(process);
  return name.empty() ? number : name + " (" + number + ")";
}

}  // namespace

std::string HoldersOfUdpPort(uint16_t port) {
  std::set<DWORD> processes;
  CollectHolders<MIB_UDPTABLE_OWNER_PID>(AF_INET, port, processes);
  CollectHolders<MIB_UDP6TABLE_OWNER_PID>(AF_INET6, port, processes);
  std::string holders;
  for (const DWORD process : processes) {
    holders += (holders.empty() ? "" : ", ") + DescribeProcess(process);
  }
  return holders;
}

}  // namespace zeltool
