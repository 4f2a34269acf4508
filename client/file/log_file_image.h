#pragma once

// Reads the bytes of a log file, or of the rest of one, without trusting any of them: any bytes are allowed,
// and nothing reads outside of them. An image does not own the bytes and must not outlive them. It belongs to
// one thread at a time.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/file/file_bytes.h"
#include "client/file/file_status.h"
#include "client/log/log_snapshot.h"
#include "records/log_file_format.h"

namespace TamLogClient {

// Offsets of these fields in a slot.
inline constexpr std::uint64_t kTimeOffset = offsetof(LogMessage, body) + offsetof(LogMessageBody, timestamp);
inline constexpr std::uint64_t kTypeOffset = offsetof(LogMessage, body) + offsetof(LogMessageBody, type);

class LogFileImage {
 public:
  explicit LogFileImage(FileBytes& file);
  explicit LogFileImage(std::string_view fileBytes);

  // Returns whether header and lock names are complete. Otherwise the missing bytes of Header() are zeros.
  bool HasHead() const { return Size() >= kSlotsOffset; }
  const LogFileHeader& Header() const { return header; }
  LockNames Names() const;

  // Returns whether the header's numbers are valid together; the file may still be too short for them.
  bool HeaderIsSound() const;

  // Returns whether the header is sound and the file has exactly the size for its capacity.
  bool SizeFits() const;

  std::uint64_t Size() const { return bytes->Size(); }

  // Returns `count` bytes from `offset` on, fewer at the end of the file; at most FileBytes::kMostViewed.
  // They are valid until the next call of any function of this image.
  std::string_view View(std::uint64_t offset, std::size_t count) const;

  // Returns the number of complete slots in the file, whatever capacity the header claims.
  std::uint64_t SlotsThere() const;
  static std::uint64_t OffsetOf(std::uint64_t slot) { return kSlotsOffset + sizeof(LogMessage) * slot; }
  // Returns the slot that begins at `offset`; nothing when none does.
  static std::optional<std::uint64_t> SlotAtOffset(std::uint64_t offset);
  LogMessage Slot(std::uint64_t slot) const { return At(OffsetOf(slot)); }

  // Returns the message that begins at `offset`; bytes after the end of the file are zeros.
  LogMessage At(std::uint64_t offset) const;

  // Returns the slots of the ring that are in the file, oldest first; none when the header is not sound.
  std::vector<std::uint32_t> RingSlots() const;

 private:
  std::shared_ptr<FileBytes> ofMemory;  // null when the caller owns the file
  FileBytes* bytes;
  LogFileHeader header{};
};

// Returns the bytes of a file with this content; the lock names are zeros.
std::string ImageOf(const LogSnapshot& snapshot);

// Reads the whole file at `path` (UTF-8) with ordinary reads, so that, if the file shrinks meanwhile, the
// rest of it is returned. NotFound, NotAFile (a directory), AccessDenied, SystemError, and TooLong for more
// than `most` bytes leave `bytes` empty.
FileStatus ReadFileBytes(const std::string& path, std::string& bytes, std::uint64_t most = UINT64_MAX);

// Returns whether two paths (UTF-8) name one file, also through links. Of files that do not exist, the
// names are compared as absolute ones.
bool IsSameFile(const std::string& left, const std::string& right);

}  // namespace TamLogClient
