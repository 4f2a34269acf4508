#pragma once

// The files of a package, by a list of their relative paths: one a line, UTF-8. Failures throw SetupError.

#include <filesystem>
#include <string>
#include <vector>

namespace TamLogSetup {

inline constexpr wchar_t kListName[] = L"setup-files.txt";

using FileList = std::vector<std::filesystem::path>;

// Reads a list; empty when the file does not exist. A path that is absolute or leaves the directory is
// refused.
FileList ReadList(const std::filesystem::path& list);

// The files of a package that are replaced or removed: moved aside, so that they can come back, also while a
// program runs from one of them.
class FilesAside {
 public:
  // They stay below `owner`, because a move to another drive would be a copy.
  explicit FilesAside(std::filesystem::path owner);

  // Throws SetupError where a directory of a file is a link.
  void Move(const FileList& files);
  void MoveBack();
  // Deletes them; those still in use go at the next start of the system.
  void Delete();

 private:
  void Create();

  std::filesystem::path directory;
  std::filesystem::path aside;  // empty until the first file is moved
  FileList moved;
};

// Deletes what was moved aside by earlier runs and was in use at that time.
void DeleteLeftAside(const std::filesystem::path& directory);

// Throws SetupError where a file exists or a directory of a file is a link.
void CopyFiles(const FileList& files, const std::filesystem::path& from, const std::filesystem::path& to);
// Deletes the files that exist, then the directories that are empty, `directory` included.
void DeleteFiles(const FileList& files, const std::filesystem::path& directory);
void DeleteEmptyDirectories(const FileList& files, const std::filesystem::path& directory);

}  // namespace TamLogSetup
