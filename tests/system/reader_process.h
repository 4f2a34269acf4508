#pragma once

// A reader of the shared log in a process of its own (system_reader.exe), as the tests handle it.

#include <chrono>
#include <string>
#include <vector>

#include "records/log_file_format.h"
#include "tests/system/platform.h"

class ReaderProcess {
 public:
  // `mode` as system_reader.cpp lists them; `resultFile` only for the modes that have one.
  explicit ReaderProcess(const std::string& mode, const std::string& resultFile = {});

  // The next line that it prints; "" when none comes.
  std::string NextLine(std::chrono::milliseconds limit = std::chrono::seconds(20));
  // The line it waits for.
  void Tell() { child.WriteLine("go on"); }
  void Kill() { child.Kill(); }
  bool HasEnded(std::chrono::milliseconds limit) { return child.WaitForEnd(limit).has_value(); }

  // Of "hold" and "snapshot": the header and the messages, newest first.
  LogFileHeader ResultHeader() const;
  std::vector<LogMessage> ResultMessages() const;
  // Of "follow": the messages in the order in which it met them.
  std::vector<LogMessage> FollowedMessages() const;

 private:
  std::string file;
  ChildProcess child;
};
