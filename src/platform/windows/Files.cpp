#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>

#include "platform/Platform.h"

namespace libzel::platform {

namespace {

constexpr int kLastStandard = 2;

// The descriptors 0 to 2 belong to the standard streams, also while these are closed. A file that gets one of them keeps it
// taken until the file is open once more elsewhere.
int OpenAboveStandard(const char* path, int mode) {
  std::array<int, kLastStandard + 1> low{};
  size_t count = 0;
  int descriptor = _open(path, mode);
  while (descriptor >= 0 && descriptor <= kLastStandard && count < low.size()) {
    low[count++] = descriptor;
    descriptor = _open(path, mode);
  }
  const int error = errno;
  for (size_t i = 0; i < count; ++i) (void)_close(low[i]);
  errno = error;
  return descriptor;
}

// The runtime's number for the calling thread's last system error.
int RuntimeNumberOfFileError() {
  switch (GetLastError()) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE: return ENOENT;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION: return EACCES;
    case ERROR_INVALID_HANDLE: return EBADF;
    case ERROR_TOO_MANY_OPEN_FILES: return EMFILE;
    case ERROR_FILENAME_EXCED_RANGE: return ENAMETOOLONG;
    case ERROR_INVALID_NAME:
    case ERROR_NO_UNICODE_TRANSLATION: return EINVAL;
    default: return EIO;
  }
}

std::wstring WideFromUtf8(const char* text) {
  const int size = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, nullptr, 0);
  if (size <= 0) return {};
  std::wstring wide(static_cast<size_t>(size), L'\0');
  (void)MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, wide.data(), size);
  return wide;
}

HANDLE HandleOf(FileHandle file) { return reinterpret_cast<HANDLE>(file); }

}  // namespace

FileInfo GetFileInfo(const char* path) {
  struct _stat64 status {};
  if (_stat64(path, &status) != 0) return {};
  return {true, (status.st_mode & _S_IFMT) == _S_IFREG, (status.st_mode & _S_IFMT) == _S_IFDIR,
          status.st_size};
}

std::FILE* OpenForReading(const char* path, FileKind kind) {
  const bool isText = kind == FileKind::kText;
  const int descriptor = OpenAboveStandard(path, _O_RDONLY | _O_NOINHERIT | (isText ? _O_TEXT : _O_BINARY));
  if (descriptor < 0) return nullptr;
  std::FILE* const stream = _fdopen(descriptor, isText ? "r" : "rb");
  if (stream != nullptr) return stream;
  const int error = errno;
  (void)_close(descriptor);
  errno = error;
  return nullptr;
}

// Others may write to the file, cut it and take it away meanwhile, as where nothing keeps them from it. Whoever owns a pipe
// of that name must not act in this process's name.
FileHandle OpenUtf8Path(const char* path) {
  const std::wstring wide = WideFromUtf8(path);
  if (!wide.empty()) {
    const HANDLE file = CreateFileW(
        wide.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr);
    if (file != INVALID_HANDLE_VALUE) return reinterpret_cast<FileHandle>(file);
  }
  errno = RuntimeNumberOfFileError();
  return kNoFile;
}

void CloseFile(FileHandle file) { (void)CloseHandle(HandleOf(file)); }

// A handle that is no file of a disk is a pipe's or a device's. Directories cannot be opened.
FileInfo GetOpenFileInfo(FileHandle file) {
  LARGE_INTEGER size{};
  if (GetFileType(HandleOf(file)) != FILE_TYPE_DISK) return {true, false, false, 0};
  if (GetFileSizeEx(HandleOf(file), &size) == 0) return {true, false, false, 0};
  return {true, true, false, size.QuadPart};
}

int64_t ReadFileAt(FileHandle file, uint64_t offset, std::span<uint8_t> buffer) {
  size_t count = 0;
  while (count < buffer.size()) {
    OVERLAPPED from{};
    from.Offset = static_cast<DWORD>(offset + count);
    from.OffsetHigh = static_cast<DWORD>((offset + count) >> 32);
    DWORD got = 0;
    const auto wanted = static_cast<DWORD>(std::min<size_t>(buffer.size() - count, 1U << 30));
    const bool isRead = ReadFile(HandleOf(file), &buffer[count], wanted, &got, &from) != 0;
    if (!isRead && GetLastError() != ERROR_HANDLE_EOF && count == 0) {
      errno = RuntimeNumberOfFileError();
      return -1;
    }
    if (!isRead || got == 0) break;
    count += got;
  }
  return static_cast<int64_t>(count);
}

}  // namespace libzel::platform
