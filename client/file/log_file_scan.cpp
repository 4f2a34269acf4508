#include "client/file/log_file_scan.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <future>
#include <system_error>
#include <thread>
#include <vector>

#include "client/file/file_path.h"
#include "client/file/message_shape.h"
#include "client/file/read_ahead.h"
#include "client/log/ring.h"
#include "client/message/log_message_view.h"

namespace TamLogClient {

namespace {

bool ReadAt(std::ifstream& file, std::uint64_t offset, void* to, std::size_t bytes) {
  file.seekg(static_cast<std::streamoff>(offset));
  file.read(static_cast<char*>(to), static_cast<std::streamsize>(bytes));
  return file.good();
}

bool HeaderFits(const LogFileHeader& header, std::uint64_t bytes) {
  return RingIsSound(header) && bytes == LogFileSize(static_cast<std::uint64_t>(header.maxMessages));
}

// Reads pieces that fit into a processor's cache while they are examined.
std::optional<LogFileSurvey> SurveyPart(LogFileScan& scan, std::uint32_t from, std::uint32_t to) {
  constexpr std::uint32_t kPiece = 512;
  LogFileSurvey part;
  std::vector<LogMessage> piece;
  while (from < to) {
    piece.resize(std::min(kPiece, to - from));
    if (!scan.Read(from, piece)) return std::nullopt;
    for (const LogMessage& message : piece) part.Add(message);
    from += static_cast<std::uint32_t>(piece.size());
  }
  return part;
}

}  // namespace

void LogFileSurvey::Add(const LogMessage& message) {
  if (LogMessageView(message).Damaged()) ++damaged;
  if (!LooksLikeMessage(message)) ++doubtful;
  const ArrivalStamp stamp = ArrivalOf(message);
  if (last && !IsShownOlder(*last, stamp)) inOrder = false;
  if (!first) first = stamp;
  last = stamp;
}

void LogFileSurvey::Add(const LogFileSurvey& next) {
  damaged += next.damaged;
  doubtful += next.doubtful;
  inOrder = inOrder && next.inOrder && (!last || !next.first || IsShownOlder(*last, *next.first));
  if (!first) first = next.first;
  if (next.last) last = next.last;
}

bool LogFileScan::Open(const std::string& path) {
  place = path;
  std::error_code error;
  const auto bytes = std::filesystem::file_size(PathOf(path), error);
  if (error) return false;  // a pipe: what is read here would be missing in the next attempt
  file.open(PathOf(path), std::ios::binary);
  return file.is_open() && ReadAt(file, 0, &header, sizeof(header)) && HeaderFits(header, bytes);
}

bool LogFileScan::Read(std::uint32_t position, std::span<LogMessage> to) {
  // A run of positions is at most two runs of slots.
  while (!to.empty()) {
    const std::uint32_t slot = SlotAt(header, position);
    const std::size_t run = std::min(to.size(), static_cast<std::size_t>(header.maxMessages) - slot);
    if (!ReadAt(file, kSlotsOffset + std::uint64_t{slot} * sizeof(LogMessage), to.data(),
                run * sizeof(LogMessage)))
      return false;
    position += static_cast<std::uint32_t>(run);
    to = to.subspan(run);
  }
  return true;
}

bool LogFileScan::ForEach(const std::function<bool(const LogMessage&)>& take, std::uint32_t from) {
  ReadAhead ahead(*this, from);
  while (const std::vector<LogMessage>* piece = ahead.Next()) {
    for (const LogMessage& message : *piece) {
      if (!take(message)) return true;
    }
  }
  return !ahead.Failed();
}

std::optional<LogFileSurvey> LogFileScan::Survey() const {
  // A stream has one read position, so each part opens the file for itself.
  const auto survey = [this](std::uint32_t from, std::uint32_t to) -> std::optional<LogFileSurvey> {
    LogFileScan own;
    if (!own.Open(place) || std::memcmp(&own.header, &header, sizeof(header)) != 0) return std::nullopt;
    return SurveyPart(own, from, to);
  };
  const std::uint32_t parts = std::clamp(std::thread::hardware_concurrency(), 1U, 4U);
  const std::uint32_t each = MessageCount() / parts + 1;
  std::vector<std::future<std::optional<LogFileSurvey>>> coming;
  for (std::uint32_t from = 0; from < MessageCount(); from += each) {
    coming.push_back(std::async(std::launch::async, survey, from, std::min(from + each, MessageCount())));
  }
  LogFileSurvey whole;
  for (auto& next : coming) {
    const auto part = next.get();
    if (!part) return std::nullopt;
    whole.Add(*part);
  }
  return whole;
}

}  // namespace TamLogClient
