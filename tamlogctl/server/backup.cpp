#include "tamlogctl/server/backup.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include "client/file/file_path.h"
#include "client/message/local_time.h"
#include "tamlogctl/base/console.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogSnapshot;

LogFileHeader HeaderOf(const LogSnapshot& snapshot, std::size_t messages) {
  LogFileHeader header = snapshot.header;
  header.readCount = 0;
  header.serverRunning = 0;
  header.messageCount = static_cast<std::int32_t>(messages);
  header.nextSlot = header.messageCount % header.maxMessages;
  return header;
}

bool Write(const std::filesystem::path& path, const LogSnapshot& snapshot) {
  const auto order = OrderMessages(snapshot).oldestFirst;
  const LogFileHeader header = HeaderOf(snapshot, order.size());
  const LockNames names{};  // the server writes them when it opens the file
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(&header), sizeof(header));
  file.write(reinterpret_cast<const char*>(&names), sizeof(names));
  const auto write = [&file](const LogMessage& slot) {
    file.write(reinterpret_cast<const char*>(&slot), sizeof(slot));
  };
  for (const std::uint32_t slot : order) write(snapshot.slots[slot]);
  const LogMessage empty{};
  for (auto i = order.size(); i < static_cast<std::size_t>(header.maxMessages); ++i) write(empty);
  file.close();
  return !file.fail();
}

}  // namespace

bool WriteBackup(const std::string& path, const LogSnapshot& snapshot, std::string& problem) {
  const std::filesystem::path target = TamLogClient::PathOf(path);
  std::filesystem::path partial = target;
  partial += ".part";
  std::error_code error;
  if (!snapshot.HeaderIsSound()) {
    problem = "the log is damaged, so that no sound copy can be made";
  } else if (std::filesystem::exists(target, error)) {
    problem = path + ": exists already; name another file";
  } else if (!Write(partial, snapshot)) {
    problem = path + ": cannot be written";
    std::filesystem::remove(partial, error);
  } else {
    std::filesystem::rename(partial, target, error);
    if (error) problem = path + ": cannot be renamed into place: " + error.message();
    return !error;
  }
  return false;
}

std::string BackupName() {
  const TamLogClient::TimeWords now = TamLogClient::LocalNow();
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
