#include "tamlogctl/server/backup.h"

#include <string_view>

#include "client/file/log_file_writer.h"
#include "tamlogctl/base/console.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogSnapshot;
using TamLogClient::Status;

LogFileHeader HeaderOf(const LogSnapshot& snapshot, std::size_t messages) {
  LogFileHeader header = snapshot.header;
  header.readCount = 0;
  header.serverRunning = 0;
  header.messageCount = static_cast<std::int32_t>(messages);
  header.nextSlot = header.messageCount % header.maxMessages;
  return header;
}

template <typename Record>
std::string_view BytesOf(const Record& record) {
  return {reinterpret_cast<const char*>(&record), sizeof(record)};
}

}  // namespace

Status WriteBackup(const std::string& path, const LogSnapshot& snapshot) {
  if (!snapshot.HeaderIsSound()) return Status::Damaged;
  TamLogClient::AtomicFile file;
  if (const Status status = file.Open(path, false); status != Status::Ok) return status;
  const auto order = OrderMessages(snapshot).oldestFirst;
  const LockNames names{};  // the server writes them when it opens the file
  bool good = file.Write(BytesOf(HeaderOf(snapshot, order.size()))) && file.Write(BytesOf(names));
  for (const std::uint32_t slot : order) good = good && file.Write(BytesOf(snapshot.slots[slot]));
  const LogMessage empty{};
  for (auto i = order.size(); i < static_cast<std::size_t>(snapshot.header.maxMessages); ++i)
    good = good && file.Write(BytesOf(empty));
  return good ? file.Commit() : Status::SystemError;
}

std::string BackupName() {
  const TamLogClient::TimeWords now = Now();
  std::string digits;
  const auto add = [&digits](int value, std::size_t width) {
    const std::string text = std::to_string(value);
    digits += std::string(text.size() < width ? width - text.size() : 0, '0') + text;
  };
  add(now[0], 4);
  add(now[1], 2);
  add(now[2], 2);
  digits += '-';
  add(now[3], 2);
  add(now[4], 2);
  add(now[5], 2);
  return "tamlog-" + digits + ".dat";
}

}  // namespace TamLogCtl
