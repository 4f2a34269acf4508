// Fuzzes the messages from the driver, and the names and switches of the filters: the kept messages and their
// order in the file have to agree with a direct implementation of both rules.
//
// Input: switches of types (1), capacity (1), number of filters (1), the filters (kind 1, length 1, text),
// then records of 546 bytes, each preceded by a byte that says whether a flush comes before it.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/input.h"
#include "records/log_file_format.h"
#include "store/message_filter.h"
#include "store/pending_list.h"
#include "store/server_configuration.h"
#include "tests/store/memory_file.h"
#include "tests/store/plain_pending_list.h"
#include "util/helpers.h"

namespace {

using Fuzz::Require;
using StoreTest::MemoryFile;

constexpr int kMostRecords = 60;

struct Filters {
  ServerConfiguration configuration;
  std::vector<std::string> includes;
  std::vector<std::string> excludes;
};

Filters TakeFilters(Fuzz::Input& input) {
  Filters filters;
  TamLogUtil::UnpackFlags(input.Take<std::uint8_t>(), filters.configuration.typeFilter, kMessageTypes);
  filters.configuration.maxMessage = input.Take<std::uint8_t>() % 20U;
  for (int left = input.Take<std::uint8_t>() % 8; left > 0; --left) {
    const bool include = input.Take<std::uint8_t>() % 2U == 0;
    const std::string text = input.TakeText(input.Take<std::uint8_t>());
    (include ? filters.includes : filters.excludes).push_back(text);
    (include ? filters.configuration.includeFilters : filters.configuration.excludeFilters).push_back(text);
  }
  return filters;
}

bool IsKept(const Filters& filters, const LogMessageBody& body) {
  if (body.type >= kMessageTypes || !filters.configuration.typeFilter[body.type]) return false;
  const std::string_view field(body.source, sizeof body.source);
  const std::string_view source = field.substr(0, field.find('\0'));
  if (!filters.includes.empty()) return TamLogUtil::MatchesAnyPrefix(source, filters.includes);
  return !TamLogUtil::MatchesAnyPrefix(source, filters.excludes);
}

struct Log {
  explicit Log(std::int32_t capacity) : file(capacity), plainFile(capacity) {}

  void Add(const LogMessageBody& body, std::uint32_t capacity) {
    list.Add(body, capacity);
    plainList.Add(body, capacity);
    Require(list.PendingCount() == plainList.PendingCount());
  }
  void Flush() {
    file.Flush(list);
    plainFile.Flush(plainList);
    Require(std::memcmp(&file.header, &plainFile.header, sizeof file.header) == 0);
    const std::size_t bytes = file.slots.size() * sizeof(LogMessage);
    Require(bytes == 0 || std::memcmp(file.slots.data(), plainFile.slots.data(), bytes) == 0);
  }

  MemoryFile file;
  MemoryFile plainFile;
  PendingList list;
  StoreTest::PlainPendingList plainList;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  const Filters filters = TakeFilters(input);
  const std::uint32_t capacity = filters.configuration.maxMessage;
  Log log(static_cast<std::int32_t>(capacity));
  for (int records = 0; records < kMostRecords && !input.Empty(); ++records) {
    if (input.Take<std::uint8_t>() % 8U == 0) log.Flush();
    const auto body = input.Take<LogMessageBody>();
    const bool kept = IsMessageKept(filters.configuration, body);
    Require(kept == IsKept(filters, body));
    if (kept) log.Add(body, capacity);
  }
  log.Flush();
  return 0;
}
