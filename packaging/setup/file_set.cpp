#include "packaging/setup/file_set.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <utility>

#include "client/message/win32.h"
#include "packaging/setup/setup_error.h"

namespace TamLogSetup {

namespace fs = std::filesystem;

namespace {

constexpr wchar_t kAside[] = L"setup-old-";

std::string Name(const fs::path& path) {
  return Utf8(path.wstring());
}

bool StaysInside(const fs::path& path) {
  if (path.empty() || path.has_root_path()) return false;
  return std::none_of(path.begin(), path.end(),
                      [](const fs::path& part) { return part == ".." || part == "."; });
}

void MakeDirectory(const fs::path& directory) {
  std::error_code error;
  fs::create_directories(directory, error);
  if (error) Fail("cannot create " + Name(directory), static_cast<DWORD>(error.value()));
}

void MoveFileTo(const fs::path& from, const fs::path& to) {
  MakeDirectory(to.parent_path());
  if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING) == FALSE)
    FailLast("cannot move " + Name(from));
}

void DeleteOne(const fs::path& file) {
  if (DeleteFileW(file.c_str()) != FALSE) return;
  const DWORD error = GetLastError();
  if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return;
  MoveFileExW(file.c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
}

void DeleteDirectories(const std::set<fs::path>& directories) {
  std::vector<fs::path> deepestFirst(directories.begin(), directories.end());
  std::sort(deepestFirst.begin(), deepestFirst.end(), [](const fs::path& left, const fs::path& right) {
    return left.native().size() > right.native().size();
  });
  for (const fs::path& part : deepestFirst) RemoveDirectoryW(part.c_str());  // fails where it is not empty
}

bool IsLink(const fs::path& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

// Deletes links themselves; this run-time library takes those of Windows for directories.
void DeleteAside(const fs::path& path) {
  std::error_code error;
  if (!IsLink(path)) {
    std::vector<fs::path> entries;
    for (fs::directory_iterator entry(path, error), end; !error && entry != end; entry.increment(error))
      entries.push_back(entry->path());
    for (const fs::path& entry : entries) {
      if (fs::is_directory(entry, error)) {
        DeleteAside(entry);
      } else {
        DeleteOne(entry);
      }
    }
  }
  RemoveDirectoryW(path.c_str());
}

// A link below the directory of the package would lead copies, moves and deletions somewhere else.
void RefuseLinks(const fs::path& directory, const FileList& files) {
  for (const fs::path& file : files) {
    for (fs::path part = file.parent_path(); !part.empty(); part = part.parent_path()) {
      if (IsLink(directory / part)) throw SetupError(Name(directory / part) + " is a link; delete it");
    }
  }
}

}  // namespace

FileList ReadList(const fs::path& list) {
  std::ifstream file(list);
  FileList files;
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) continue;
    fs::path path = fs::path(std::u8string(line.begin(), line.end())).make_preferred();
    if (!StaysInside(path)) throw SetupError(Name(list) + " names a file outside of the directory: " + line);
    files.push_back(std::move(path));
  }
  return files;
}

FilesAside::FilesAside(fs::path owner) : directory(std::move(owner)) {}

void FilesAside::Create() {
  MakeDirectory(directory);
  for (unsigned number = 1; aside.empty(); ++number) {
    const fs::path path = directory / (kAside + std::to_wstring(number));
    if (CreateDirectoryW(path.c_str(), nullptr) != FALSE) {
      aside = path;
    } else if (GetLastError() != ERROR_ALREADY_EXISTS) {
      FailLast("cannot create " + Name(path));
    }
  }
}

void FilesAside::Move(const FileList& files) {
  RefuseLinks(directory, files);
  for (const fs::path& file : files) {
    if (!fs::exists(directory / file)) continue;
    if (aside.empty()) Create();
    MoveFileTo(directory / file, aside / file);
    moved.push_back(file);
  }
}

void FilesAside::MoveBack() {
  while (!moved.empty()) {
    MoveFileTo(aside / moved.back(), directory / moved.back());
    moved.pop_back();
  }
  Delete();
}

void FilesAside::Delete() {
  if (!aside.empty()) DeleteAside(aside);
  aside.clear();
  moved.clear();
}

void DeleteLeftAside(const fs::path& directory) {
  std::error_code error;
  std::vector<fs::path> left;
  for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error)) {
    if (entry->path().filename().wstring().starts_with(kAside)) left.push_back(entry->path());
  }
  for (const fs::path& aside : left) DeleteAside(aside);
}

void CopyFiles(const FileList& files, const fs::path& from, const fs::path& to) {
  RefuseLinks(to, files);
  for (const fs::path& file : files) {
    MakeDirectory((to / file).parent_path());
    // Fails where a file exists: it would be overwritten without a way back.
    if (CopyFileW((from / file).c_str(), (to / file).c_str(), TRUE) == FALSE)
      FailLast("cannot create " + Name(to / file));
  }
}

void DeleteFiles(const FileList& files, const fs::path& directory) {
  for (const fs::path& file : files) DeleteOne(directory / file);
  DeleteEmptyDirectories(files, directory);
}

void DeleteEmptyDirectories(const FileList& files, const fs::path& directory) {
  std::set<fs::path> below{directory};
  for (const fs::path& file : files) {
    // The paths are relative, so this ends whatever the form of `directory`.
    for (fs::path part = file.parent_path(); !part.empty(); part = part.parent_path())
      below.insert(directory / part);
  }
  DeleteDirectories(below);
}

}  // namespace TamLogSetup
