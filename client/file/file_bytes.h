#pragma once

// The bytes of a file of any size, or of memory, read in pieces: a file is never held as a whole, except a
// pipe, which can be read only once. An object belongs to one thread at a time.

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "client/file/file_status.h"

namespace TamLogClient {

class FileBytes {
 public:
  // The most bytes that View returns at once.
  static constexpr std::size_t kMostViewed = 4096;

  FileBytes() = default;
  // Reads `memory`, which must outlive this object.
  explicit FileBytes(std::string_view memory) : whole(memory), inMemory(true), size(memory.size()) {}
  FileBytes(const FileBytes&) = delete;
  FileBytes& operator=(const FileBytes&) = delete;

  // Opens the file at `path` (UTF-8), or reads a pipe to its end. NotFound, NotAFile (a directory),
  // AccessDenied or SystemError when that fails.
  FileStatus Open(const std::string& path);

  // Returns why bytes could not be read, if that happened. They count as missing at the end of the file.
  const FileStatus& Failure() const { return failure; }

  // Returns the size in bytes that the file had when it was opened.
  std::uint64_t Size() const { return size; }

  // Returns `count` bytes from `offset` on, fewer at the end of the file; at most kMostViewed. They are valid
  // until the next call.
  std::string_view View(std::uint64_t offset, std::size_t count);

  // Copies `count` bytes from `offset` on. Returns how many there were: fewer at the end of the file, or when
  // it has become shorter.
  std::size_t Copy(std::uint64_t offset, void* to, std::size_t count);

 private:
  struct Piece {
    std::uint64_t number = kNone;
    std::vector<char> bytes;
  };
  static constexpr std::uint64_t kNone = ~std::uint64_t{0};

  FileStatus ReadPipe();
  const Piece& PieceAt(std::uint64_t number);

  std::ifstream file;
  std::string pipe;  // all bytes of a pipe
  std::string_view whole;
  bool inMemory = false;
  std::uint64_t size = 0;
  std::vector<Piece> pieces;
  FileStatus failure;
};

}  // namespace TamLogClient
