#pragma once

// The bytes of the shared log file and of one message: records, offsets and the time key.
// docs/log_file_format.md explains the same bytes to authors of readers; change both together.
//
// All integers are little-endian. The format has no magic number and no version: a file is recognised by the
// integrity rules (store/integrity.h).

#include <cstddef>
#include <cstdint>

inline constexpr std::size_t kLockNameSize = 64;  // including the terminating zero
inline constexpr std::size_t kTextSize = 257;     // of `source` and of `text`, including the terminating zero
inline constexpr std::uint32_t kMessageTypes = 4;

// Programs in the field depend on these offsets, so the compiler may not choose the layout: two-byte packing
// leaves no hole before or after the odd-sized texts.
#pragma pack(push, 2)

// One message as the driver and the clients send it. The server does not interpret `origin` and `tail`.
struct LogMessageBody {
  std::uint8_t origin[8];
  std::int16_t timestamp[8];  // year, month, day, hour, minute, second, millisecond, spare
  std::uint32_t type;         // 0 to kMessageTypes - 1
  char source[kTextSize];
  char text[kTextSize];
  std::uint8_t tail[4];
};

// One message as stored in a slot of the file.
struct LogMessage {
  std::uint64_t sequence;
  LogMessageBody body;
  std::uint8_t padding[6];
};

#pragma pack(pop)

struct LogFileHeader {
  std::int32_t readCount;      // readers that hold read access
  std::uint8_t serverRunning;  // 1 while a server has the file open
  std::uint8_t padding1[3];
  std::int32_t messageCount;  // valid slots
  std::int32_t maxMessages;   // capacity in slots
  std::int32_t nextSlot;      // slot that the next message is written to
  std::uint8_t padding2[4];
  std::uint64_t changeCount;   // raised when write access is released after a change
  std::uint64_t rewriteCount;  // raised when slots that held messages are written again
  std::uint64_t nextSequence;  // number of the next message appended
};

// The names of the header lock, the read-wait and the write-wait event, each terminated by a zero.
struct LockNames {
  char name[3][kLockNameSize];
};

static_assert(sizeof(LogMessageBody) == 546);
static_assert(offsetof(LogMessageBody, origin) == 0);
static_assert(offsetof(LogMessageBody, timestamp) == 8);
static_assert(offsetof(LogMessageBody, type) == 24);
static_assert(offsetof(LogMessageBody, source) == 28);
static_assert(offsetof(LogMessageBody, text) == 285);
static_assert(offsetof(LogMessageBody, tail) == 542);

static_assert(sizeof(LogMessage) == 560);
static_assert(offsetof(LogMessage, body) == 8);
static_assert(offsetof(LogMessage, padding) == 554);

static_assert(sizeof(LogFileHeader) == 48);
static_assert(offsetof(LogFileHeader, readCount) == 0);
static_assert(offsetof(LogFileHeader, serverRunning) == 4);
static_assert(offsetof(LogFileHeader, messageCount) == 8);
static_assert(offsetof(LogFileHeader, maxMessages) == 12);
static_assert(offsetof(LogFileHeader, nextSlot) == 16);
static_assert(offsetof(LogFileHeader, changeCount) == 24);
static_assert(offsetof(LogFileHeader, rewriteCount) == 32);
static_assert(offsetof(LogFileHeader, nextSequence) == 40);

static_assert(sizeof(LockNames) == 192);

inline constexpr std::size_t kLockNamesOffset = sizeof(LogFileHeader);
inline constexpr std::size_t kSlotsOffset = kLockNamesOffset + sizeof(LockNames);
static_assert(kSlotsOffset == 240);

// The size in bytes of a file of `maxMessages` slots. 64 bits: from 7,669,585 slots on it exceeds 32.
constexpr std::uint64_t LogFileSize(std::uint64_t maxMessages) {
  return kSlotsOffset + sizeof(LogMessage) * maxMessages;
}

// The key by which messages are ordered. It counts 31 days for every month, so a difference of two keys is no
// time span. The eighth word of the time stamp does not count.
constexpr std::uint64_t TimeKey(const LogMessageBody& body) {
  const auto word = [&body](int index) { return static_cast<std::int64_t>(body.timestamp[index]); };
  const std::int64_t days = (word(0) * 12 + word(1)) * 31 + word(2);
  const std::int64_t seconds = ((days * 24 + word(3)) * 60 + word(4)) * 60 + word(5);
  return static_cast<std::uint64_t>(seconds * 1000 + word(6));
}

// The names under which the server shares the file with its readers.
inline constexpr char kFileMapName[] = "Global\\TamLogServiceFileMap";
inline constexpr char kHeaderLockName[] = "Global\\TamLogServiceFileHeaderMutex";
inline constexpr char kReadWaitEventName[] = "Global\\TamLogServiceReadWaitEvent";
inline constexpr char kWriteWaitEventName[] = "Global\\TamLogServiceWriteWaitEvent";
