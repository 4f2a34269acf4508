#pragma once

// Reads the messages of a log file in a thread of its own, some pieces ahead of the thread that takes them.

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
  // From position `from` of the ring order on. The scan must outlive it, and nobody else may read from it.
  ReadAhead(LogFileScan& file, std::uint32_t from);

  // May come before everything was taken.
  ~ReadAhead();
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;

  // Waits for the next piece, which stays as it is until the next call. Null behind the last one.
  const std::vector<LogMessage>* Next();

  // Behind the last one: the file has become shorter, and messages are missing.
  bool Failed();

 private:
  static constexpr std::size_t kPieces = 4;
  static constexpr std::uint32_t kPieceSize = 1024;  // messages; half a megabyte

  void ReadAll();
  bool WaitForRoom();
  void End(bool whole);

  LogFileScan& scan;
  std::uint32_t position;

  // A piece belongs to the reader until it counts as read, and to who takes it until he asks for the next.
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
