#pragma once

// Writes files so that no other program ever sees half of one: into a temporary file in the same directory,
// which is renamed when it is complete. The temporary file has a random name, is created exclusively, and no
// link is followed: another user who can write to the directory cannot redirect it to a file of ours.

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "client/file/file_status.h"
#include "client/file/system_file.h"

namespace TamLogClient {

// Returns a random part of a file name.
std::string RandomName();

// A file that appears complete or not at all. One thread at a time.
class AtomicFile {
 public:
  // `randomName` is called for each name that is tried.
  explicit AtomicFile(std::function<std::string()> randomName = RandomName) : naming(std::move(randomName)) {}
  ~AtomicFile();  // removes the temporary file unless it was committed
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  // Creates a temporary file for `path` (UTF-8). NotAFile for a directory or a device; Exists for a file that
  // may not be overwritten; NotFound when the directory does not exist.
  FileStatus Open(const std::string& path, bool overwrite);

  // Writes the bytes; they may be buffered until Commit. Returns false once a write has failed; Commit then
  // returns the reason.
  bool Write(std::string_view bytes);

  // Lets Commit wait until the disk holds the file.
  void SyncAtCommit() { sync = true; }

  // Renames the file to its path; unless the result is Ok, nothing is left of it. Exists when another program
  // has meanwhile written a file of this name that may not be overwritten.
  FileStatus Commit();

 private:
  FileStatus Create();
  bool WriteBuffered();

  std::function<std::string()> naming;
  std::filesystem::path target;
  std::filesystem::path temporary;  // empty: nothing to remove
  bool mayOverwrite = false;
  bool sync = false;
  SystemFile file;
  std::string buffered;
  FileStatus failure;
};

// Removes the temporary files of `path` (UTF-8) that writers left which were killed; those of a running
// program stay. Call it before writing `path` for the first time.
void RemoveLeftovers(const std::string& path);

}  // namespace TamLogClient
