#pragma once

// Reads and writes whole files as byte strings.

#include <fstream>
#include <sstream>
#include <string>

namespace TestSupport {

// Returns an empty string when the file does not exist.
inline std::string ReadBytes(const std::string& path) {
  const std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  if (file) bytes << file.rdbuf();
  return bytes.str();
}

inline void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace TestSupport
