#include "client/file/log_file_reader.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <system_error>
#include <vector>

#include "client/file/file_path.h"
#include "client/log/ring.h"

namespace TamLogClient {

namespace {

namespace fs = std::filesystem;

// Reads slots in order, so that, if the file shrinks meanwhile, those before the cut are kept. Returns the
// bytes that were read.
std::uint64_t ReadSlots(std::ifstream& file, std::uint64_t expected, std::vector<LogMessage>& slots) {
  constexpr std::size_t kChunk = 1024;
  while (slots.size() < expected) {
    const std::size_t before = slots.size();
    slots.resize(before + static_cast<std::size_t>(std::min<std::uint64_t>(kChunk, expected - before)));
    const std::size_t wanted = (slots.size() - before) * sizeof(LogMessage);
    file.read(reinterpret_cast<char*>(&slots[before]), static_cast<std::streamsize>(wanted));
    const auto got = static_cast<std::size_t>(file.gcount());
    if (got < wanted) {
      slots.resize(before + got / sizeof(LogMessage));
      return std::uint64_t{before} * sizeof(LogMessage) + got;
    }
  }
  return expected * sizeof(LogMessage);
}

void Judge(LogFileContents& contents, std::uint64_t bytes) {
  const LogFileHeader& header = contents.snapshot.header;
  const std::string there = std::to_string(contents.snapshot.slots.size());
  if (!RingIsSound(header)) {
    contents.remark = "the header is not valid (capacity " + std::to_string(header.maxMessages) +
                      ", messages " + std::to_string(header.messageCount) + ", next slot " +
                      std::to_string(header.nextSlot) + ")";
  } else if (!contents.snapshot.HeaderIsSound()) {
    contents.remark =
        "the file is too short: it has " + there + " of " + std::to_string(header.maxMessages) + " slots";
  } else if (bytes != LogFileSize(static_cast<std::uint64_t>(header.maxMessages))) {
    contents.remark = "the file's size of " + std::to_string(bytes) + " bytes does not fit its capacity of " +
                      std::to_string(header.maxMessages) + " messages";
  } else {
    return;
  }
  contents.status = Status::Damaged;
}

}  // namespace

LogFileContents ReadLogFile(const std::string& path) {
  LogFileContents contents;
  std::ifstream file;
  contents.status = OpenForReading(path, file);
  if (contents.status != Status::Ok) return contents;
  std::array<char, kSlotsOffset> head{};
  file.read(head.data(), static_cast<std::streamsize>(head.size()));
  if (static_cast<std::size_t>(file.gcount()) < head.size()) {
    contents.status = Status::Damaged;
    contents.remark = "the file ends within its header";
    return contents;
  }
  std::memcpy(&contents.snapshot.header, head.data(), sizeof(LogFileHeader));
  std::vector<LogMessage>& slots = contents.snapshot.slots;
  std::error_code error;
  if (fs::is_fifo(PathOf(path), error)) {
    // A pipe has no size before its end.
    Judge(contents, kSlotsOffset + ReadSlots(file, std::numeric_limits<std::uint64_t>::max(), slots));
    return contents;
  }
  const std::uintmax_t size = fs::file_size(PathOf(path), error);
  const std::uint64_t bytes = error ? kSlotsOffset : static_cast<std::uint64_t>(size);
  const std::uint64_t expected = bytes > kSlotsOffset ? (bytes - kSlotsOffset) / sizeof(LogMessage) : 0;
  slots.reserve(expected);  // growing would hold every message twice for a while
  ReadSlots(file, expected, slots);
  Judge(contents, bytes);
  return contents;
}

}  // namespace TamLogClient
