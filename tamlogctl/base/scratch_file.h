#pragma once

// A file for data of this run, in the system's directory for temporary files. Only this user can read it. It
// is removed with the object; after a kill the system (Linux) or the next scratch file (Windows) removes it.

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace TamLogCtl {

class ScratchFile {
 public:
  // Creates an empty file. Null, and the system's reason in `failure`, when that failed.
  static std::unique_ptr<ScratchFile> Create(std::string& failure);

  virtual ~ScratchFile() = default;
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  // Appends `bytes`. Returns false when that failed, with the system's reason in Problem().
  virtual bool Write(std::string_view bytes) = 0;

  // Returns the name (UTF-8) under which this process can open the file for reading.
  const std::string& Path() const { return path; }
  const std::string& Problem() const { return problem; }

 protected:
  ScratchFile() = default;

  std::string path;
  std::string problem;
};

// Reads standard input as bytes. Returns their number, 0 at the end, nothing when reading failed.
std::optional<std::size_t> ReadStandardInput(char* to, std::size_t most);

}  // namespace TamLogCtl
