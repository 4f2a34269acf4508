#include "client/file/file_bytes.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "client/file/file_path.h"
#include "client/file/system_file.h"

namespace TamLogClient {

namespace {

// A request that begins in a piece ends in it, too: pieces overlap by kMostViewed.
constexpr std::size_t kPieceSize = std::size_t{1} << 16U;
constexpr std::size_t kPieces = 32;

// Windows reads at most 2 GiB at once, and its run-time library reports more as a failure.
constexpr std::size_t kMostRead = std::size_t{1} << 24U;

}  // namespace

FileStatus FileBytes::Open(const std::string& path) {
  if (FileStatus status = OpenForReading(path, file); status != Status::Ok) return status;
  std::error_code error;
  const auto kind = std::filesystem::status(PathOf(path), error).type();
  if (kind == std::filesystem::file_type::fifo) return ReadPipe();
  if (kind == std::filesystem::file_type::character) return {Status::NotAFile, "is a device"};
  size = std::filesystem::file_size(PathOf(path), error);
  if (error) return FileStatusOf(error);
  pieces.resize(kPieces);
  return Status::Ok;
}

FileStatus FileBytes::ReadPipe() {
  while (file) {
    const std::size_t before = pipe.size();
    pipe.resize(before + kPieceSize);
    file.read(pipe.data() + before, static_cast<std::streamsize>(kPieceSize));
    pipe.resize(before + static_cast<std::size_t>(file.gcount()));
  }
  whole = pipe;
  inMemory = true;
  size = pipe.size();
  return file.bad() ? LastFileError() : FileStatus();
}

const FileBytes::Piece& FileBytes::PieceAt(std::uint64_t number) {
  Piece& piece = pieces[number % kPieces];
  if (piece.number == number) return piece;
  piece.bytes.resize(kPieceSize + kMostViewed);
  piece.bytes.resize(Copy(number * kPieceSize, piece.bytes.data(), piece.bytes.size()));
  piece.number = number;
  return piece;
}

std::string_view FileBytes::View(std::uint64_t offset, std::size_t count) {
  if (offset >= size) return {};
  if (inMemory) return whole.substr(offset, count);
  const Piece& piece = PieceAt(offset / kPieceSize);
  const std::size_t begin = offset % kPieceSize;
  const std::string_view bytes(piece.bytes.data(), piece.bytes.size());
  return begin < bytes.size() ? bytes.substr(begin, std::min(count, kMostViewed)) : std::string_view();
}

std::size_t FileBytes::Copy(std::uint64_t offset, void* to, std::size_t count) {
  if (offset >= size) return 0;
  count = std::min<std::uint64_t>(count, size - offset);
  if (inMemory) {
    std::memcpy(to, whole.data() + offset, count);
    return count;
  }
  file.clear();
  file.seekg(static_cast<std::streamoff>(offset));
  std::size_t done = 0;
  while (done < count && file) {
    file.read(static_cast<char*>(to) + done, static_cast<std::streamsize>(std::min(kMostRead, count - done)));
    done += static_cast<std::size_t>(file.gcount());
  }
  if (file.bad()) failure = LastFileError();
  return done;
}

}  // namespace TamLogClient
