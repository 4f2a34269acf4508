// Writes the nasty messages into a log file, for programs that read it: nasty_log FILE [COUNT]
// COUNT 0 makes an empty log, more than there are messages repeats them.

#include <cstdlib>
#include <fstream>
#include <iostream>

#include "tests/client/format/nasty_messages.h"

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::cerr << "usage: nasty_log FILE [COUNT]\n";
    return 2;
  }
  const auto messages = TamLogTest::NastyMessages();
  const std::size_t count = argc == 3 ? std::strtoul(argv[2], nullptr, 10) : messages.size();
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
  for (std::size_t i = 0; i < count; ++i) write(messages[i % messages.size()]);
  for (int i = 0; i < 3; ++i) write(LogMessage{});
  file.close();
  return file ? 0 : 1;
}
