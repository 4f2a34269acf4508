#include "tamlogctl/server/backup.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "client/file/atomic_file.h"
#include "client/message/local_time.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"

namespace TamLogCtl {

namespace {

using TamLogClient::AtomicFile;
using TamLogClient::FileStatus;
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

FileStatus Write(const std::string& path, const LogSnapshot& snapshot) {
  AtomicFile file;
  if (FileStatus status = file.Open(path, false); status != Status::Ok) return status;
  const auto order = OrderMessages(snapshot).oldestFirst;
  const LogFileHeader header = HeaderOf(snapshot, order.size());
  const LockNames names{};  // the server writes them when it opens the file
  bool good = file.Write(BytesOf(header)) && file.Write(BytesOf(names));
  for (const std::uint32_t slot : order) good = good && file.Write(BytesOf(snapshot.slots[slot]));
  const LogMessage empty{};
  for (auto i = order.size(); good && i < static_cast<std::size_t>(header.maxMessages); ++i)
    good = file.Write(BytesOf(empty));
  return file.Commit();
}

}  // namespace

int WriteBackup(const std::string& path, const LogSnapshot& snapshot, const std::string& advice) {
  if (!snapshot.HeaderIsSound()) return Refuse(kDamaged, "the log is damaged, so it cannot be saved");
  const FileStatus status = Write(path, snapshot);
  return status == Status::Ok ? kDone : RefuseTarget(path, status, advice);
}

std::string BackupName() {
  std::string time;
  TamLogClient::AppendTime(TamLogClient::LocalNow(), '_', time);  // "2026-01-02_03:04:05.678"
  time.resize(time.find('.'));
  std::erase(time, '-');
  std::erase(time, ':');
  std::replace(time.begin(), time.end(), '_', '-');
  return "tamlog-" + time + ".dat";
}

}  // namespace TamLogCtl
