#include "client/file/file_path.h"

#include <cerrno>

namespace TamLogClient {

std::filesystem::path PathOf(const std::string& utf8) {
  return {std::u8string(utf8.begin(), utf8.end())};
}

Status StatusOfErrno(int error) {
  if (error == ENOENT || error == ENOTDIR) return Status::NotFound;
  return error == EACCES || error == EPERM ? Status::AccessDenied : Status::SystemError;
}

}  // namespace TamLogClient
