#pragma once

// A directory of a test's own, removed with its contents at the end. On Windows it lies in the directory of
// the test executable (so that Linux programs find it too), otherwise in the system's temporary directory. It
// is always new, because process ids are reused: after a test that was killed and left its directory, and in
// another Wine prefix.

#include <atomic>
#include <filesystem>
#include <string>
#include <system_error>

#ifdef _WIN32
#include <process.h>

#include "util/helpers.h"
#else
#include <unistd.h>
#endif

namespace TestSupport {

// Returns the number that makes the names of this process's files, pipes, events and services unique.
inline std::string ProcessSuffix() {
#ifdef _WIN32
  return std::to_string(_getpid());
#else
  return std::to_string(getpid());
#endif
}

class TempDir {
 public:
  TempDir() {
    do path = MakeName();
    while (!std::filesystem::create_directory(path));
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string Path() const { return path.string(); }
  // Returns the path of `name` in it, in the system's own notation.
  std::string File(const std::string& name) const { return (path / name).string(); }

 private:
  static std::filesystem::path MakeName() {
    static std::atomic<int> count{0};
    const std::string name = "test_" + ProcessSuffix() + "_" + std::to_string(++count);
#ifdef _WIN32
    return TamLogUtil::PathBesideExecutable(name);
#else
    return std::filesystem::temp_directory_path() / name;
#endif
  }

  std::filesystem::path path;
};

}  // namespace TestSupport
