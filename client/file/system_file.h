#pragma once

// The calls of the system for files that are written: what the standard library cannot do safely, or cannot
// do at all. Temporary files next to a target are created so that nothing follows a link that another user
// planted there.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string_view>
#include <system_error>

#include "client/file/file_status.h"

namespace TamLogClient {

// Identifies a file as long as it exists, whatever it is renamed to. All zeros: no file.
struct FileId {
  std::uint64_t volume = 0;
  std::uint64_t number = 0;

  bool operator==(const FileId&) const = default;
};

// A file that is open for writing. On Windows other programs can read it meanwhile, but neither rename nor
// remove it. One thread at a time.
class SystemFile {
 public:
  SystemFile() = default;
  ~SystemFile() { Close(); }
  SystemFile(const SystemFile&) = delete;
  SystemFile& operator=(const SystemFile&) = delete;

  // Creates the file, and holds it so that RemoveAbandoned leaves it alone. Exists when there is anything of
  // that name, also a link that points nowhere: no link is followed.
  FileStatus Create(const std::filesystem::path& path);

  // Opens the file for writing at its end. Creates it when it does not exist, unless it `mustExist`. Follows
  // links, so `path` has to be a name that the user chose.
  FileStatus OpenToAppend(const std::filesystem::path& path, bool mustExist = false);

  FileStatus Write(std::string_view bytes);

  // Ends the file after `length` bytes; the next bytes are written there.
  FileStatus Cut(std::uint64_t length);

  // Waits until the disk holds everything that was written.
  FileStatus Sync();

  // Closes the file; does nothing when it is not open. A failure means that bytes were not written.
  FileStatus Close();

  bool IsOpen() const { return handle != kClosed; }
  std::uint64_t Length() const;
  FileId Id() const;

 private:
  static constexpr std::intptr_t kClosed = -1;

  std::intptr_t handle = kClosed;
};

// Returns the id of the ordinary file `path`, also through links; all zeros for anything else.
FileId IdOf(const std::filesystem::path& path);

// Renames a file within its directory. Exists when there is anything of the new name.
FileStatus RenameToNew(const std::filesystem::path& from, const std::filesystem::path& to);

// Renames a file within its directory, over the file of the new name if there is one.
FileStatus RenameOver(const std::filesystem::path& from, const std::filesystem::path& to);

// Calls `open`, on Windows again for up to a second while it fails because another program does not share the
// file: scanners and backups open files so for a moment. The functions above do so by themselves. Returns the
// last result.
FileStatus OpenPatiently(const std::function<FileStatus()>& open);

// Removes an ordinary file of this user that was created by SystemFile::Create and is no longer open. Leaves
// anything else alone.
void RemoveAbandoned(const std::filesystem::path& path);

// Returns the status for an error of the system, and for the last error of a stream or a C function on a
// file. Call the latter before anything else can fail.
FileStatus FileStatusOf(const std::error_code& error);
FileStatus LastFileError();

}  // namespace TamLogClient
