#pragma once

// The bytes of a log file, or of what is left of one, read without trusting any of them. A view does not own
// the bytes; it must not outlive them. Any bytes will do: nothing here reads outside of them.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/log/log_snapshot.h"
#include "client/message/status.h"
#include "records/log_file_format.h"

namespace TamLogClient {

// Of these fields, from the begin of a slot.
inline constexpr std::uint64_t kTimeOffset = offsetof(LogMessage, body) + offsetof(LogMessageBody, timestamp);
inline constexpr std::uint64_t kTypeOffset = offsetof(LogMessage, body) + offsetof(LogMessageBody, type);

class LogFileImage {
 public:
  explicit LogFileImage(std::string_view fileBytes);

  // Whole header and lock names are there. Without them Header() is filled up with zeros.
  bool HasHead() const { return bytes.size() >= kSlotsOffset; }
  const LogFileHeader& Header() const { return header; }
  LockNames Names() const;

  // The header's numbers make sense together; the file may still be too short for them.
  bool HeaderIsSound() const;

  std::uint64_t Size() const { return bytes.size(); }
  std::string_view Bytes() const { return bytes; }

  // Whole slots that are there, whatever the header says of its capacity.
  std::uint64_t SlotsThere() const;
  static std::uint64_t OffsetOf(std::uint64_t slot) { return kSlotsOffset + sizeof(LogMessage) * slot; }
  // Returns the slot that begins at `offset`; nothing when none does.
  static std::optional<std::uint64_t> SlotAtOffset(std::uint64_t offset);
  LogMessage Slot(std::uint64_t slot) const { return At(OffsetOf(slot)); }

  // The message that begins at `offset`, filled up with zeros where the bytes end.
  LogMessage At(std::uint64_t offset) const;

  // Slots of the ring that are there, oldest first; none when the header is not sound. Bounded by the bytes.
  std::vector<std::uint32_t> RingSlots() const;

 private:
  std::string_view bytes;
  LogFileHeader header{};
};

// The bytes that a file with this content has; the lock names are zeros.
std::string ImageOf(const LogSnapshot& snapshot);

// Reads the whole file at `path` (UTF-8) with ordinary reads, so that of a file that shrinks meanwhile what
// is left is returned. NotFound, NotAFile (a directory), AccessDenied and SystemError leave `bytes` empty.
Status ReadFileBytes(const std::string& path, std::string& bytes);

// Whether two paths (UTF-8) name one file, links included. A file that does not exist is like its own name
// only.
bool IsSameFile(const std::string& left, const std::string& right);

}  // namespace TamLogClient
