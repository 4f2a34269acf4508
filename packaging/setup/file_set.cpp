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

// Works on what setup created itself, and follows no link.
void DeleteAside(const fs::path& aside) {
  std::error_code error;
  std::set<fs::path> directories{aside};
  std::vector<fs::path> files;
  for (fs::recursive_directory_iterator entry(aside, error), end; !error && entry != end;
       entry.increment(error)) {
    if (entry->is_directory()) {
      directories.insert(entry->path());
    } else {
      files.push_back(entry->path());
    }
  }
  for (const fs::path& file : files) DeleteOne(file);
  DeleteDirectories(directories);
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

FilesAside::FilesAside(fs::path owner) : directory(std::move(owner)) {
  for (unsigned number = 1;; ++number) {
    aside = directory / (kAside + std::to_wstring(number));
    if (!fs::exists(aside)) return;
  }
}

void FilesAside::Move(const FileList& files) {
  for (const fs::path& file : files) {
    if (!fs::exists(directory / file)) continue;
    MoveFileTo(directory / file, aside / file);
    moved.push_back(file);
  }
}

void FilesAside::MoveBack() {
  while (!moved.empty()) {
    MoveFileTo(aside / moved.back(), directory / moved.back());
    moved.pop_back();
  }
  DeleteAside(aside);
}

void FilesAside::Delete() {
  DeleteAside(aside);
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
