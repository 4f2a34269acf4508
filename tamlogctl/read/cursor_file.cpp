#include "tamlogctl/read/cursor_file.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "client/file/file_path.h"
#include "tamlogctl/base/console.h"

namespace TamLogCtl {

namespace {

namespace fs = std::filesystem;
using TamLogClient::PathOf;

constexpr const char* kNone = "none";

bool Refuse(const std::string& path, const std::string& problem) {
  Say("--cursor-file '" + path + "': " + problem);
  return false;
}

}  // namespace

bool ReadCursorFile(const std::string& path, CursorFile& to) {
  to = {};
  std::error_code error;
  if (!fs::exists(PathOf(path), error) && !error) return true;
  std::ifstream file(PathOf(path), std::ios::binary);
  std::string line;
  if (fs::is_directory(PathOf(path), error) || !file) return Refuse(path, "cannot be read");
  std::getline(file, line);
  if (!line.empty() && line.back() == '\r') line.pop_back();
  to.cursor = TamLogClient::ParseCursor(line);
  std::ostringstream rest;
  if (file.peek() != std::ifstream::traits_type::eof()) rest << file.rdbuf();
  const std::string memory = rest.str();
  if (!memory.empty()) to.memory = TamLogClient::ParseMemory(memory);
  const bool nothing = line == kNone;
  if ((!to.cursor && !nothing) || (to.memory.has_value() == memory.empty())) {
    return Refuse(path, "is not a cursor file; remove it to begin with the oldest message");
  }
  return true;
}

bool WriteCursorFile(const std::string& path, const TamLogClient::LogSnapshot& snapshot,
                     const TamLogClient::FollowerMemory& memory) {
  const auto order = OrderMessages(snapshot).oldestFirst;
  const std::string cursor =
      order.empty() ? kNone : FormatCursor(CursorOf(snapshot, order, order.size() - 1));
  const std::string fresh = path + ".new" + std::to_string(ProcessId());
  std::ofstream file(PathOf(fresh), std::ios::binary | std::ios::trunc);
  file << cursor << '\n' << FormatMemory(memory);
  file.close();
  std::error_code error;
  if (file) fs::rename(PathOf(fresh), PathOf(path), error);
  if (file && !error) return true;
  std::error_code ignored;
  fs::remove(PathOf(fresh), ignored);
  return Refuse(path, "cannot be written; the next run will print the same messages again");
}

}  // namespace TamLogCtl
