// Writes the nasty messages into a log file, for programs that read it: nasty_log FILE [COUNT]
// COUNT 0 makes an empty log, more than there are messages repeats them. They stand in order of time, as a
// server keeps them, so that the file is not damaged.

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <vector>

#include "records/log_file_format.h"
#include "tests/client/format/nasty_messages.h"

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::cerr << "usage: nasty_log FILE [COUNT]\n";
    return 2;
  }
  const auto kinds = TamLogTest::NastyMessages();
  const std::size_t count = argc == 3 ? std::strtoul(argv[2], nullptr, 10) : kinds.size();
  std::vector<LogMessage> messages;
  for (std::size_t i = 0; i < count; ++i) messages.push_back(kinds[i % kinds.size()]);
  std::stable_sort(messages.begin(), messages.end(), [](const LogMessage& left, const LogMessage& right) {
    return TimeKey(left.body) < TimeKey(right.body);
  });
  LogFileHeader header{};
  header.messageCount = static_cast<std::int32_t>(count);
  header.maxMessages = static_cast<std::int32_t>(count + 3);
  header.nextSlot = header.messageCount;
  header.changeCount = 3;
  header.rewriteCount = 1;
  header.nextSequence = 4711 + count;
  const LockNames names{};
  std::ofstream file(argv[1], std::ios::binary);
  const auto write = [&file](const auto& record) {
    file.write(reinterpret_cast<const char*>(&record), sizeof(record));
  };
  write(header);
  write(names);
  for (const LogMessage& message : messages) write(message);
  for (int i = 0; i < 3; ++i) write(LogMessage{});
  file.close();
  return file ? 0 : 1;
}
