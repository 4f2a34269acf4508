#include "client/file/read_ahead.h"

#include <algorithm>

#include "client/file/log_file_scan.h"

namespace TamLogClient {

ReadAhead::ReadAhead(LogFileScan& file, std::uint32_t from) : scan(file), position(from) {
  // Allocated here, where the caller sees a std::bad_alloc.
  for (auto& piece : pieces) piece.reserve(std::min(kPieceSize, scan.MessageCount()));
  reader = std::thread([this] { ReadAll(); });
}

ReadAhead::~ReadAhead() {
  End(true);
  reader.join();
}

const std::vector<LogMessage>* ReadAhead::Next() {
  std::unique_lock access(lock);
  changed.notify_one();
  changed.wait(access, [this] { return read > taken || ended; });
  return read > taken ? &pieces[taken++ % kPieces] : nullptr;
}

bool ReadAhead::Failed() {
  const std::lock_guard access(lock);
  return failed;
}

void ReadAhead::ReadAll() {
  while (position < scan.MessageCount() && WaitForRoom()) {
    std::vector<LogMessage>& piece = pieces[read % kPieces];
    piece.resize(std::min(kPieceSize, scan.MessageCount() - position));
    if (!scan.Read(position, piece)) return End(false);
    position += static_cast<std::uint32_t>(piece.size());
    const std::lock_guard access(lock);
    ++read;
    changed.notify_one();
  }
  End(true);
}

// Returns false when reading is to end. The piece taken last may still be in use.
bool ReadAhead::WaitForRoom() {
  std::unique_lock access(lock);
  changed.wait(access, [this] { return read + 1 < taken + kPieces || ended; });
  return !ended;
}

void ReadAhead::End(bool whole) {
  const std::lock_guard access(lock);
  ended = true;
  if (!whole) failed = true;
  changed.notify_one();
}

}  // namespace TamLogClient
