#include "client/file/log_file_writer.h"

#include <limits>
#include <string_view>

#include "client/file/atomic_file.h"
#include "client/message/log_message_view.h"

namespace TamLogClient {

namespace {

template <typename Record>
std::string_view BytesOf(const Record& record) {
  return {reinterpret_cast<const char*>(&record), sizeof(record)};
}

}  // namespace

FileStatus WriteLogFile(const std::string& path, std::uint64_t count, const MessageAt& messageAt,
                        std::uint32_t capacity, bool overwrite, const GoOn& goOn) {
  constexpr std::uint32_t kMostSlots = std::numeric_limits<std::int32_t>::max();
  if (capacity == 0 || capacity > kMostSlots || count > capacity) return Status::BadValue;
  RemoveLeftovers(path);
  AtomicFile file;
  if (FileStatus status = file.Open(path, overwrite); status != Status::Ok) return status;
  LogFileHeader header{};
  header.messageCount = static_cast<std::int32_t>(count);
  header.maxMessages = static_cast<std::int32_t>(capacity);
  header.nextSlot = static_cast<std::int32_t>(count % capacity);
  header.changeCount = 2;  // like a new file's
  header.rewriteCount = 1;
  header.nextSequence = count;
  const LockNames names{};  // a server writes them when it opens the file
  bool good = file.Write(BytesOf(header)) && file.Write(BytesOf(names));
  std::uint64_t key = 0;
  for (std::uint64_t i = 0; good && i < count; ++i) {
    if (goOn && !goOn(i)) return Status::Interrupted;
    LogMessage message = messageAt(i);
    const LogMessageView view(message);
    if (view.Damaged() || view.Key() < key) return Status::BadValue;
    key = view.Key();
    message.sequence = i;
    good = file.Write(BytesOf(message));
  }
  const LogMessage empty{};
  for (std::uint64_t i = count; good && i < capacity; ++i) {
    if (goOn && !goOn(i)) return Status::Interrupted;
    good = file.Write(BytesOf(empty));
  }
  return file.Commit();
}

}  // namespace TamLogClient
