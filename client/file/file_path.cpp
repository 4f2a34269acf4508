#include "client/file/file_path.h"

#include <cerrno>
#include <system_error>

namespace TamLogClient {

std::filesystem::path PathOf(const std::string& utf8) {
  return {std::u8string(utf8.begin(), utf8.end())};
}

Status StatusOfErrno(int error) {
  if (error == ENOENT || error == ENOTDIR) return Status::NotFound;
  return error == EACCES || error == EPERM ? Status::AccessDenied : Status::SystemError;
}

Status OpenForReading(const std::string& path, std::ifstream& file) {
  std::error_code ignored;
  if (std::filesystem::is_directory(PathOf(path), ignored)) return Status::NotAFile;
  errno = 0;
  file.open(PathOf(path), std::ios::binary);
  return file.is_open() ? Status::Ok : StatusOfErrno(errno);
}

}  // namespace TamLogClient
