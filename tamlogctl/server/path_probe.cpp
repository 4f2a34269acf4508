#include "tamlogctl/server/path_probe.h"

#include <array>
#include <memory>
#include <system_error>

#include "client/file/system_file.h"
#include "client/live/handle.h"
#include "client/log/ring.h"
#include "client/message/win32.h"
#include "records/log_file_format.h"
#include "tamlogctl/base/system_text.h"
#include "tamlogctl/base/wide_text.h"
#include "tamlogctl/server/access_list_reader.h"

// Must follow windows.h.
#include <aclapi.h>

namespace TamLogCtl {

namespace {

using TamLogClient::Handle;

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

bool IsLink(DWORD attributes) {
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

// Returns the first directory of the path, or the file itself, that is a link; empty when none is.
std::string FirstLink(const std::string& path) {
  for (std::size_t end = path.find_first_of("\\/", 3);; end = path.find_first_of("\\/", end + 1)) {
    std::string part = path.substr(0, end);
    if (IsLink(GetFileAttributesW(AnsiToWide(part).c_str()))) return part;
    if (end == std::string::npos) return "";
  }
}

void LookAtDrive(const std::string& path, PathFacts& facts) {
  const std::string root = path.substr(0, 2) + "\\";
  const UINT type = GetDriveTypeW(AnsiToWide(root).c_str());
  facts.networkDrive = type == DRIVE_REMOTE;
  facts.driveThere = type != DRIVE_NO_ROOT_DIR && type != DRIVE_UNKNOWN;
}

void LookAtFolder(const std::string& folder, PathFacts& facts) {
  const std::wstring name = AnsiToWide(folder);
  const DWORD attributes = GetFileAttributesW(name.c_str());
  facts.folderThere = attributes != INVALID_FILE_ATTRIBUTES || GetLastError() == ERROR_ACCESS_DENIED;
  facts.folderIsFile = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
  ULARGE_INTEGER free{};
  if (GetDiskFreeSpaceExW(name.c_str(), nullptr, nullptr, &free) != FALSE) facts.freeBytes = free.QuadPart;
}

void LookAtAccessList(const std::string& folder, PathFacts& facts) {
  ACL* list = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  std::wstring name = AnsiToWide(folder);
  if (GetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &list,
                            nullptr, &descriptor) != ERROR_SUCCESS)
    return;
  const std::unique_ptr<void, decltype(&LocalFree)> owner(descriptor, &LocalFree);
  facts.serviceMayCreate = (GrantedTo(EntriesOf(list), LocalSystemSids()) & FILE_ADD_FILE) != 0;
}

void LookAtFile(const std::string& path, PathFacts& facts) {
  const std::wstring name = AnsiToWide(path);
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (GetFileAttributesExW(name.c_str(), GetFileExInfoStandard, &data) == FALSE) {
    facts.file = GetLastError() == ERROR_ACCESS_DENIED ? PathFile::Unknown : PathFile::Missing;
    return;
  }
  facts.fileBytes = (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32U) | data.nFileSizeLow;
  facts.readOnly = (data.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0;
  facts.file = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? PathFile::Directory
               : facts.fileBytes == 0                                  ? PathFile::Empty
                                                                       : PathFile::Unknown;
}

void LookIntoFile(const std::string& path, DWORD flags, PathFacts& facts) {
  const std::wstring name = AnsiToWide(path);
  Handle file;
  DWORD error = ERROR_SUCCESS;
  TamLogClient::OpenPatiently([&] {
    file = Handle(CreateFileW(name.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, flags, nullptr));
    error = file ? ERROR_SUCCESS : GetLastError();
    return TamLogClient::FileStatusOf({static_cast<int>(error), std::system_category()});
  });
  if (!file) {
    if (error == ERROR_SHARING_VIOLATION) facts.file = PathFile::InUse;
    return;
  }
  LogFileHeader header{};
  DWORD read = 0;
  const bool whole =
      ReadFile(file.Get(), &header, sizeof(header), &read, nullptr) != FALSE && read == sizeof(header);
  const bool log = whole && TamLogClient::RingIsSound(header) &&
                   facts.fileBytes == LogFileSize(static_cast<std::uint64_t>(header.maxMessages));
  facts.file = log ? PathFile::Log : PathFile::Other;
  if (log) facts.messages = static_cast<std::uint32_t>(header.messageCount);
}

void TryToCreate(const std::string& path, PathFacts& facts) {
  const std::wstring name = AnsiToWide(path);
  const Handle file(CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE | DELETE, 0, nullptr, CREATE_NEW,
                                FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
  if (file) return;
  facts.createError = GetLastError();
  facts.createText = SystemText(facts.createError);
}

std::wstring VolumeOf(const std::string& path) {
  std::array<wchar_t, MAX_PATH + 1> volume{};
  return GetVolumePathNameW(AnsiToWide(path).c_str(), volume.data(), static_cast<DWORD>(volume.size())) !=
                 FALSE
             ? volume.data()
             : L"";
}

}  // namespace

PathFacts LookAtForeignPath(const std::string& path) {
  PathFacts facts;
  LookAtDrive(path, facts);
  if (facts.networkDrive || !facts.driveThere) return facts;
  facts.link = FirstLink(path);
  if (!facts.link.empty()) return facts;
  const std::string folder = DirectoryOf(path);
  LookAtFolder(folder, facts);
  if (!facts.folderThere || facts.folderIsFile) return facts;
  LookAtAccessList(folder, facts);
  LookAtFile(path, facts);
  if (facts.file == PathFile::Unknown) LookIntoFile(path, FILE_FLAG_OPEN_REPARSE_POINT, facts);
  // The server opens its file alone for moments.
  if (facts.file == PathFile::InUse) facts.file = PathFile::Unknown;
  return facts;
}

PathFacts TryPath(const std::string& path) {
  PathFacts facts;
  LookAtDrive(path, facts);
  if (facts.networkDrive || !facts.driveThere) return facts;
  const std::string folder = DirectoryOf(path);
  LookAtFolder(folder, facts);
  if (!facts.folderThere || facts.folderIsFile) return facts;
  LookAtAccessList(folder, facts);
  LookAtFile(path, facts);
  if (facts.file == PathFile::Unknown) LookIntoFile(path, FILE_ATTRIBUTE_NORMAL, facts);
  if (facts.file == PathFile::Missing) TryToCreate(path, facts);
  return facts;
}

bool OnOneVolume(const std::string& left, const std::string& right) {
  const std::wstring volume = VolumeOf(left);
  return !volume.empty() && volume == VolumeOf(right);
}

}  // namespace TamLogCtl
