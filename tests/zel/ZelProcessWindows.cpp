#include <winsock2.h>

#include <windows.h>

#include "ZelProcessSystem.h"

namespace {

std::wstring Wide(const std::string& utf8) {
  const int size = static_cast<int>(utf8.size());
  std::wstring wide(static_cast<size_t>(MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, nullptr, 0)),
                    L' ');
  (void)MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, wide.data(), static_cast<int>(wide.size()));
  return wide;
}

HANDLE OpenInherited(const std::string& path, DWORD access, DWORD disposition) {
  SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
  return CreateFileW(Wide(path).c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, disposition,
                     FILE_ATTRIBUTE_NORMAL, nullptr);
}

// As the receiving program takes a command line apart again.
std::string Quoted(const std::string& argument) {
  std::string out = "\"";
  size_t backslashes = 0;
  for (const char character : argument) {
    if (character == '"') out.append(backslashes + 1, '\\');
    backslashes = character == '\\' ? backslashes + 1 : 0;
    out += character;
  }
  return out.append(backslashes, '\\') + "\"";
}

HANDLE AsHandle(intptr_t process) { return reinterpret_cast<HANDLE>(process); }

}  // namespace

ZelProcess::System::System(const std::string& program, const std::vector<std::string>& arguments,
                           const std::string& prefix, const std::string& output) {
  std::string line = Quoted(program);
  for (const std::string& argument : arguments) line += " " + Quoted(argument);
  std::wstring wideLine = Wide(line);
  STARTUPINFOW start{};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdInput = OpenInherited(prefix + ".in", GENERIC_READ, OPEN_EXISTING);
  start.hStdOutput = OpenInherited(output, GENERIC_WRITE, CREATE_ALWAYS);
  start.hStdError = OpenInherited(prefix + ".err", GENERIC_WRITE, CREATE_ALWAYS);
  PROCESS_INFORMATION info{};
  (void)CreateProcessW(nullptr, wideLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start, &info);
  for (HANDLE handle : {start.hStdInput, start.hStdOutput, start.hStdError, info.hThread})
    (void)CloseHandle(handle);
  process_ = reinterpret_cast<intptr_t>(info.hProcess);
}

ZelProcess::System::~System() { (void)CloseHandle(AsHandle(process_)); }

bool ZelProcess::System::HasEnded(int& status) {
  if (WaitForSingleObject(AsHandle(process_), 0) != WAIT_OBJECT_0) return false;
  DWORD code = 0;
  (void)GetExitCodeProcess(AsHandle(process_), &code);
  status = static_cast<int>(code);
  return true;
}

std::chrono::nanoseconds ZelProcess::System::HeldUp() { return {}; }

void ZelProcess::System::Interrupt() {}

void ZelProcess::System::End() {
  (void)TerminateProcess(AsHandle(process_), 99);
  (void)WaitForSingleObject(AsHandle(process_), INFINITE);
}

HeldUdpPort::HeldUdpPort(uint16_t port) {
  WSADATA unused{};
  (void)WSAStartup(MAKEWORD(2, 2), &unused);
  const SOCKET held = socket(AF_INET, SOCK_DGRAM, 0);
  const BOOL alone = TRUE;
  (void)setsockopt(held, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&alone),
                   sizeof alone);
  sockaddr_in here{};
  here.sin_family = AF_INET;
  here.sin_port = htons(port);
  isHeld_ = bind(held, reinterpret_cast<const sockaddr*>(&here), sizeof here) == 0;
  socket_ = static_cast<intptr_t>(held);
}

HeldUdpPort::~HeldUdpPort() {
  (void)closesocket(static_cast<SOCKET>(socket_));
  (void)WSACleanup();
}

std::string HeldUdpPort::Holder() { return "another program"; }
