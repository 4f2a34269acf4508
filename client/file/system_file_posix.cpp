#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "client/file/system_file.h"

namespace TamLogClient {

namespace {

constexpr mode_t kMode = 0666;  // less the user's mask

FileStatus StatusOf(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return Status::NotFound;
    case EACCES:
    case EPERM:
      return Status::AccessDenied;
    case EEXIST:
      return Status::Exists;
    case EISDIR:
      return Status::NotAFile;
    default:
      return {Status::SystemError, std::generic_category().message(error)};
  }
}

int Descriptor(std::intptr_t handle) {
  return static_cast<int>(handle);
}

FileId IdOfStat(const struct stat& found) {
  return S_ISREG(found.st_mode) ? FileId{found.st_dev, found.st_ino} : FileId{};
}

// A removed file keeps its descriptor, but has no name any more.
bool HoldWithName(int descriptor) {
  struct stat found {};
  return flock(descriptor, LOCK_EX | LOCK_NB) == 0 && fstat(descriptor, &found) == 0 && found.st_nlink > 0;
}

}  // namespace

FileStatus SystemFile::Create(const std::filesystem::path& path) {
  const int opened = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kMode);
  if (opened < 0) return StatusOf(errno);
  handle = opened;
  if (HoldWithName(opened)) return Status::Ok;
  Close();  // RemoveAbandoned of another process was faster
  return Status::Exists;
}

FileStatus SystemFile::OpenToAppend(const std::filesystem::path& path, bool mustExist) {
  const int opened = open(path.c_str(), O_WRONLY | (mustExist ? 0 : O_CREAT) | O_APPEND | O_CLOEXEC, kMode);
  if (opened < 0) return StatusOf(errno);
  handle = opened;
  return Status::Ok;
}

FileStatus SystemFile::Write(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(Descriptor(handle), bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return StatusOf(errno);
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return Status::Ok;
}

FileStatus SystemFile::Cut(std::uint64_t length) {
  const auto end = static_cast<off_t>(length);
  const bool cut = ftruncate(Descriptor(handle), end) == 0 && lseek(Descriptor(handle), end, SEEK_SET) >= 0;
  return cut ? FileStatus() : StatusOf(errno);
}

FileStatus SystemFile::Sync() {
  if (fsync(Descriptor(handle)) == 0 || errno == EINVAL || errno == EROFS) return Status::Ok;  // a device
  return StatusOf(errno);
}

FileStatus SystemFile::Close() {
  if (!IsOpen()) return Status::Ok;
  const int result = close(Descriptor(handle));
  handle = kClosed;
  return result == 0 || errno == EINTR ? FileStatus() : StatusOf(errno);
}

std::uint64_t SystemFile::Length() const {
  struct stat found {};
  const bool known = fstat(Descriptor(handle), &found) == 0 && S_ISREG(found.st_mode);
  return known ? static_cast<std::uint64_t>(found.st_size) : 0;
}

FileId SystemFile::Id() const {
  struct stat found {};
  return fstat(Descriptor(handle), &found) == 0 ? IdOfStat(found) : FileId{};
}

FileId IdOf(const std::filesystem::path& path) {
  struct stat found {};
  return stat(path.c_str(), &found) == 0 ? IdOfStat(found) : FileId{};
}

// A link to the same file fails where the name is taken, which rename does not. File systems without links
// (FAT) remain with a check before the renaming.
FileStatus RenameToNew(const std::filesystem::path& from, const std::filesystem::path& to) {
  if (link(from.c_str(), to.c_str()) == 0) {
    unlink(from.c_str());
    return Status::Ok;
  }
  if (errno == EEXIST || errno == ENOENT || errno == EACCES) return StatusOf(errno);
  struct stat found {};
  if (lstat(to.c_str(), &found) == 0) return Status::Exists;
  return std::rename(from.c_str(), to.c_str()) == 0 ? FileStatus() : StatusOf(errno);
}

FileStatus RenameOver(const std::filesystem::path& from, const std::filesystem::path& to) {
  return std::rename(from.c_str(), to.c_str()) == 0 ? FileStatus() : StatusOf(errno);
}

FileStatus OpenPatiently(const std::function<FileStatus()>& open) {
  return open();
}

void RemoveAbandoned(const std::filesystem::path& path) {
  const int opened = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (opened < 0) return;
  struct stat found {};
  const bool own = fstat(opened, &found) == 0 && S_ISREG(found.st_mode) && found.st_uid == geteuid();
  if (own && flock(opened, LOCK_EX | LOCK_NB) == 0) unlink(path.c_str());
  close(opened);
}

FileStatus FileStatusOf(const std::error_code& error) {
  return error ? StatusOf(error.value()) : FileStatus();
}

FileStatus LastFileError() {
  return StatusOf(errno);
}

}  // namespace TamLogClient
