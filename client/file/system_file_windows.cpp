#include <array>
#include <cstdlib>
#include <string>

#include "client/file/system_file.h"
#include "client/message/win32.h"

namespace TamLogClient {

namespace {

constexpr DWORD kShare = FILE_SHARE_READ | FILE_SHARE_WRITE;

// Returns the system's text for an error, without its full stop.
std::string TextOf(DWORD error) {
  std::array<wchar_t, 512> text{};
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK, nullptr,
      error, 0, text.data(), static_cast<DWORD>(text.size()), nullptr);
  std::array<char, 2048> utf8{};
  const int bytes = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(length), utf8.data(),
                                        static_cast<int>(utf8.size()), nullptr, nullptr);
  std::string words(utf8.data(), static_cast<std::size_t>(bytes));
  while (!words.empty() && (words.back() == ' ' || words.back() == '.')) words.pop_back();
  return words.empty() ? "system error " + std::to_string(error) : words;
}

FileStatus StatusOf(DWORD error) {
  switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
      return Status::NotFound;
    case ERROR_ACCESS_DENIED:
      return Status::AccessDenied;
    case ERROR_SHARING_VIOLATION:  // the text says that another program has the file
    case ERROR_LOCK_VIOLATION:
      return {Status::AccessDenied, TextOf(error)};
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
      return Status::Exists;
    default:
      return {Status::SystemError, TextOf(error)};
  }
}

FileStatus LastStatus() {
  return StatusOf(GetLastError());
}

HANDLE Native(std::intptr_t handle) {
  return reinterpret_cast<HANDLE>(handle);  // NOLINT(performance-no-int-to-ptr)
}

FileId IdOfHandle(HANDLE handle) {
  BY_HANDLE_FILE_INFORMATION found{};
  const bool ordinary = GetFileType(handle) == FILE_TYPE_DISK && GetFileInformationByHandle(handle, &found) &&
                        (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
  if (!ordinary) return {};
  return {found.dwVolumeSerialNumber, (std::uint64_t{found.nFileIndexHigh} << 32U) | found.nFileIndexLow};
}

// Calls `attempt` again for up to a second while it fails and `isHeld` takes the failure for that of a file
// that another program has open for a moment.
template <class Attempt, class IsHeld>
FileStatus Patiently(const Attempt& attempt, const IsHeld& isHeld) {
  constexpr int kTries = 50;
  constexpr DWORD kPauseMs = 20;
  FileStatus status = attempt();
  for (int i = 0; i < kTries && status != Status::Ok && isHeld(status); ++i) {
    Sleep(kPauseMs);
    status = attempt();
  }
  return status;
}

// A target that is open without shared deletion fails with "access denied", and a file that a scanner opened
// at its creation with a sharing violation.
FileStatus Rename(const std::filesystem::path& from, const std::filesystem::path& to, DWORD flags) {
  return Patiently([&] { return MoveFileExW(from.c_str(), to.c_str(), flags) ? FileStatus() : LastStatus(); },
                   [](const FileStatus& status) { return status == Status::AccessDenied; });
}

}  // namespace

// Without the flag a link of this name that points nowhere would be followed, and its target created.
FileStatus SystemFile::Create(const std::filesystem::path& path) {
  const HANDLE opened = CreateFileW(path.c_str(), GENERIC_WRITE | FILE_READ_ATTRIBUTES, kShare, nullptr,
                                    CREATE_NEW, FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  if (opened == INVALID_HANDLE_VALUE) return LastStatus();
  handle = reinterpret_cast<std::intptr_t>(opened);
  return Status::Ok;
}

FileStatus SystemFile::OpenToAppend(const std::filesystem::path& path, bool mustExist) {
  return OpenPatiently([&]() -> FileStatus {
    const HANDLE opened =
        CreateFileW(path.c_str(), GENERIC_WRITE | FILE_READ_ATTRIBUTES, kShare, nullptr,
                    mustExist ? OPEN_EXISTING : OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (opened == INVALID_HANDLE_VALUE) return LastStatus();
    handle = reinterpret_cast<std::intptr_t>(opened);
    LARGE_INTEGER none{};
    SetFilePointerEx(opened, none, nullptr, FILE_END);  // a device has no end
    return Status::Ok;
  });
}

// Write, Cut and Sync change the file, though not the handle.
// NOLINTBEGIN(readability-make-member-function-const)
FileStatus SystemFile::Write(std::string_view bytes) {
  constexpr std::size_t kMost = std::size_t{1} << 30U;
  while (!bytes.empty()) {
    DWORD written = 0;
    const auto now = static_cast<DWORD>(bytes.size() < kMost ? bytes.size() : kMost);
    if (!WriteFile(Native(handle), bytes.data(), now, &written, nullptr)) return LastStatus();
    bytes.remove_prefix(written);
  }
  return Status::Ok;
}

FileStatus SystemFile::Cut(std::uint64_t length) {
  LARGE_INTEGER end{};
  end.QuadPart = static_cast<LONGLONG>(length);
  const bool cut = SetFilePointerEx(Native(handle), end, nullptr, FILE_BEGIN) && SetEndOfFile(Native(handle));
  return cut ? FileStatus() : LastStatus();
}

FileStatus SystemFile::Sync() {
  if (FlushFileBuffers(Native(handle))) return Status::Ok;
  const DWORD error = GetLastError();
  return error == ERROR_INVALID_FUNCTION || error == ERROR_INVALID_HANDLE ? FileStatus()  // a device
                                                                          : StatusOf(error);
}

// NOLINTEND(readability-make-member-function-const)

FileStatus SystemFile::Close() {
  if (!IsOpen()) return Status::Ok;
  const bool closed = CloseHandle(Native(handle)) != 0;
  handle = kClosed;
  return closed ? FileStatus() : LastStatus();
}

std::uint64_t SystemFile::Length() const {
  LARGE_INTEGER length{};
  return GetFileSizeEx(Native(handle), &length) ? static_cast<std::uint64_t>(length.QuadPart) : 0;
}

FileId SystemFile::Id() const {
  return IdOfHandle(Native(handle));
}

FileId IdOf(const std::filesystem::path& path) {
  const HANDLE opened = CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, kShare | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (opened == INVALID_HANDLE_VALUE) return {};
  const FileId id = IdOfHandle(opened);
  CloseHandle(opened);
  return id;
}

FileStatus RenameToNew(const std::filesystem::path& from, const std::filesystem::path& to) {
  return Rename(from, to, 0);
}

FileStatus RenameOver(const std::filesystem::path& from, const std::filesystem::path& to) {
  return Rename(from, to, MOVEFILE_REPLACE_EXISTING);
}

// Only the sharing violation has a text of the system: StatusOf.
FileStatus OpenPatiently(const std::function<FileStatus()>& open) {
  return Patiently(
      open, [](const FileStatus& status) { return status == Status::AccessDenied && status.HasReason(); });
}

// Nobody can delete a file that Create has open: it does not share deletion.
void RemoveAbandoned(const std::filesystem::path& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  constexpr DWORD kNotOrdinary = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
  if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & kNotOrdinary) == 0) DeleteFileW(path.c_str());
}

FileStatus FileStatusOf(const std::error_code& error) {
  if (!error) return Status::Ok;
  if (error.category() == std::system_category()) return StatusOf(static_cast<DWORD>(error.value()));
  if (error == std::errc::no_such_file_or_directory) return Status::NotFound;
  if (error == std::errc::permission_denied) return Status::AccessDenied;
  return {Status::SystemError, error.message()};
}

// The C library, on which streams are built, keeps the system's error of its last failed call.
FileStatus LastFileError() {
  return StatusOf(_doserrno);
}

}  // namespace TamLogClient
