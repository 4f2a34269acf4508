#pragma once

// The server's image of the file's messages: the order of all of them, and the bodies of those that are not
// in the file yet. A message that a flush has written is known by its slot; it is read back from there when
// it has to move.
//
// The newest messages can be lent to a flush, which reads their bodies and writes them to the file while
// intake continues: new messages may be inserted between lent ones, and lent ones may be dropped. Their
// bodies stay valid until they are taken back.
//
// Plain data without a lock; PendingList guards the server's own mirror. Only the bodies of lent messages may
// be touched without that lock.

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "records/log_file_format.h"
#include "store/body_pool.h"
#include "store/unrolled_key_list.h"

// The file as a flush sees it. An exception of these ends the flush.
class FlushTarget {
 public:
  // Copies slot `index` to `message`.
  virtual void ReadBack(std::int64_t index, LogMessage& message) = 0;
  // Stores `message` with the number `sequence` instead of its own.
  virtual void WriteSlot(std::int64_t index, std::uint64_t sequence, const LogMessage& message) = 0;
  virtual void WriteHeader(const LogFileHeader& header) = 0;

 protected:
  ~FlushTarget() = default;
};

class MessageMirror {
 public:
  std::size_t Size() const { return keys.Size(); }
  void Clear();

  // Adds a message of the file, older than all others, that is stored in `slot`.
  void AppendOldest(std::uint64_t key, std::int64_t slot);

  // Inserts a new message, its sequence 0, by its time: among equal keys it counts as the newest. Returns the
  // number of messages newer than it.
  std::size_t Insert(const LogMessageBody& body);

  // Drops messages from the oldest end until at most `size` are left.
  void Trim(std::size_t size);

  // Reads those of the newest `count` messages back that are stored in the file. A flush of them can then be
  // repeated whatever it has overwritten. When the target throws, the messages read so far stay in memory.
  void BringIntoMemory(std::size_t count, FlushTarget& target);

  // Calls visit(const LogMessage&) for all messages from the newest on. All must be in memory.
  template <class Visit>
  void FromNewest(Visit&& visit) {
    keys.FromNewest(keys.Size(), [&](std::uint32_t number) { visit(std::as_const(bodies[number & kBody])); });
  }

  // A lent message.
  struct Lent {
    LogMessage* message;
    std::uint32_t body;
    std::uint32_t slot;  // the slot to read it back from, or kRead
  };
  static constexpr std::uint32_t kRead = ~std::uint32_t{0};

  // Lends the newest `count` messages to `loan`, newest first. One loan at a time. Changes nothing when
  // memory runs out.
  void Lend(std::size_t count, std::vector<Lent>& loan);

  // Ends a loan whose messages are in the file now: the oldest in slot `first` of `capacity`, the others in
  // the slots after it, round the ring.
  void TakeBackWritten(std::vector<Lent>& loan, std::int64_t first, std::int64_t capacity);

  // Ends a loan that was not written; messages that were read back from the file stay in memory.
  struct Returned {
    std::size_t messages;  // those that were not dropped meanwhile
    std::size_t depth;     // the length of the list from its newest message to the oldest of these
  };
  Returned TakeBackUnwritten(std::vector<Lent>& loan);

 private:
  static constexpr std::uint32_t kInMemory = 0x80000000U;
  static constexpr std::uint32_t kLent = 0x40000000U;  // only of messages in memory
  static constexpr std::uint32_t kBody = kLent - 1;

  static bool IsLent(std::uint32_t number) { return (number & kInMemory) != 0 && (number & kLent) != 0; }

  UnrolledKeyList keys;  // numbers: a slot, or kInMemory and the number of the body
  BodyPool bodies;
  bool lending = false;
};
