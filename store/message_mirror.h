#pragma once

// What the server knows of the file's messages: the order of all of them, and the bodies of those that are
// not in the file. A message that a flush has put into a slot is remembered by its slot; it is read back from
// there when it has to move.
//
// The newest messages can be lent to a flush, which reads their bodies and writes them to the file while the
// others work on: new messages may come in between those that are lent, and lent ones may be dropped; their
// bodies stay until they are taken back.
//
// Plain data without a lock; PendingList guards the server's own. Only the bodies of lent messages may be
// touched without its lock.

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "records/log_file_format.h"
#include "store/body_pool.h"
#include "store/unrolled_key_list.h"

// The file as a flush sees it. What these throw ends the flush.
class FlushTarget {
 public:
  // Copies slot `index` to `message`.
  virtual void ReadBack(std::int64_t index, LogMessage& message) = 0;
  // Stores `message` under the number `sequence`, whatever number it has itself.
  virtual void WriteSlot(std::int64_t index, std::uint64_t sequence, const LogMessage& message) = 0;
  virtual void WriteHeader(const LogFileHeader& header) = 0;

 protected:
  ~FlushTarget() = default;
};

class MessageMirror {
 public:
  std::size_t Size() const { return keys.Size(); }
  void Clear();

  // A message of the file, older than all before it; `slot` says where it lies.
  void AppendOldest(std::uint64_t key, std::int64_t slot);

  // Puts a new message, its sequence 0, into its place by time: in front of the first one, looked at from the
  // newest, whose key is not greater. Returns how many messages stand before it.
  std::size_t Insert(const LogMessageBody& body);

  // Drops messages from the oldest end until at most `size` are left.
  void Trim(std::size_t size);

  // Of the newest `count` messages, reads those back that lie in the file. All that follows can be repeated
  // then, whatever has been written over. When the target throws, what has been read stays.
  void BringIntoMemory(std::size_t count, FlushTarget& target);

  // visit(const LogMessage&) for all messages, which are in memory, from the newest one on.
  template <class Visit>
  void FromNewest(Visit&& visit) {
    keys.FromNewest(keys.Size(), [&](std::uint32_t number) { visit(std::as_const(bodies[number & kBody])); });
  }

  // A message that is lent.
  struct Lent {
    LogMessage* message;
    std::uint32_t body;
    std::uint32_t slot;  // where it has to be read back from, or kRead
  };
  static constexpr std::uint32_t kRead = ~std::uint32_t{0};

  // Lends the newest `count` messages to `loan`, newest first. There may be one loan at a time. Nothing has
  // changed when memory runs out.
  void Lend(std::size_t count, std::vector<Lent>& loan);

  // They lie in the file now: the oldest of them in slot `first` of `capacity`, the others in those behind
  // it, round the ring.
  void TakeBackWritten(std::vector<Lent>& loan, std::int64_t first, std::int64_t capacity);

  // They are as they were; those that were read back from the file stay in memory.
  struct Returned {
    std::size_t messages;  // that were not dropped meanwhile
    std::size_t depth;     // of the list, from the newest message to the oldest of these
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
