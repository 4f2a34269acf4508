#include "client/file/file_path.h"

#include <system_error>

#include "client/file/system_file.h"

namespace TamLogClient {

std::filesystem::path PathOf(const std::string& utf8) {
  return {std::u8string(utf8.begin(), utf8.end())};
}

FileStatus OpenForReading(const std::string& path, std::ifstream& file) {
  std::error_code ignored;
  if (std::filesystem::is_directory(PathOf(path), ignored)) return Status::NotAFile;
  return OpenPatiently([&] {
    file.open(PathOf(path), std::ios::binary);
    return file.is_open() ? FileStatus() : LastFileError();
  });
}

}  // namespace TamLogClient
