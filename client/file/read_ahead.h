#pragma once

// Reads the messages of a log file in a thread of its own, up to four pieces ahead of the thread that uses
// them. The public functions belong to that one thread.

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "records/log_file_format.h"

namespace TamLogClient {

class LogFileScan;

class ReadAhead {
 public:
  // Reads from position `from` of the ring order on. The scan must outlive this object, and nothing else may
  // read from it.
  ReadAhead(LogFileScan& file, std::uint32_t from);

  // Stops reading, even when pieces are left.
  ~ReadAhead();
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;

  // Waits for the next piece, which is valid until the next call. Null after the last one.
  const std::vector<LogMessage>* Next();

  // Returns whether messages are missing because the file has become shorter. Call it after the last piece.
  bool Failed();

 private:
  static constexpr std::size_t kPieces = 4;
  static constexpr std::uint32_t kPieceSize = 1024;  // messages; half a megabyte

  void ReadAll();
  bool WaitForRoom();
  void End(bool whole);

  LogFileScan& scan;
  std::uint32_t position;

  // A piece belongs to the reading thread until `read` counts it, then to the caller until its next call.
  std::array<std::vector<LogMessage>, kPieces> pieces;

  std::mutex lock;  // guards what follows
  std::condition_variable changed;
  std::size_t read = 0;   // pieces; only the reader changes it
  std::size_t taken = 0;  // pieces
  bool ended = false;
  bool failed = false;

  std::thread reader;
};

}  // namespace TamLogClient
