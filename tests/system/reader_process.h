#pragma once

// Controls a reader of the shared log in a process of its own (system_reader.exe).

#include <chrono>
#include <string>
#include <vector>

#include "records/log_file_format.h"
#include "tests/system/platform.h"

class ReaderProcess {
 public:
  // `mode` is one that system_reader.cpp lists; only modes with a file use `resultFile`.
  explicit ReaderProcess(const std::string& mode, const std::string& resultFile = {});

  // Returns the next line that it prints; "" when none comes.
  std::string NextLine(std::chrono::milliseconds limit = std::chrono::seconds(20));
  // Sends the line it waits for.
  void Tell() { child.WriteLine("go on"); }
  void Kill() { child.Kill(); }
  bool HasEnded(std::chrono::milliseconds limit) { return child.WaitForEnd(limit).has_value(); }

  // Result of "hold" and "snapshot": the header and the messages, newest first.
  LogFileHeader ResultHeader() const;
  std::vector<LogMessage> ResultMessages() const;
  // Result of "follow": the messages in the order in which the reader met them.
  std::vector<LogMessage> FollowedMessages() const;

 private:
  std::string file;
  ChildProcess child;
};
