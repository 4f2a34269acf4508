#include "bench/bench_store.h"

#include <cstdlib>
#include <fstream>

#include "util/win32.h"

namespace Bench {

void Store::WriteFullFile() const {
  std::ofstream file(configuration.logFile, std::ios::binary);
  LogFileHeader header{};
  header.maxMessages = static_cast<std::int32_t>(configuration.maxMessage);
  header.messageCount = header.maxMessages;
  header.nextSequence = configuration.maxMessage;
  char head[kSlotsOffset] = {};
  std::memcpy(head, &header, sizeof header);
  file.write(head, sizeof head);
  for (std::uint32_t i = 0; i < configuration.maxMessage; ++i) {
    const LogMessage message = {.sequence = i, .body = MessageAt(std::uint64_t{i} * 10), .padding = {}};
    file.write(reinterpret_cast<const char*>(&message), sizeof message);
  }
}

View::View() : mapping(OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, kMap)) {
  bytes = static_cast<char*>(MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0));
  if (bytes == nullptr) std::exit(2);
}

View::~View() {
  UnmapViewOfFile(bytes);
  CloseHandle(mapping);
}

}  // namespace Bench
