#pragma once

// What the server knows of the file's messages: the order of all of them, and the bodies of those that are
// not in the file. A message that a flush has put into a slot is remembered by its slot; it is read back from
// there when it has to move. Plain data without a lock; PendingList guards the server's own.

#include <cstddef>
#include <cstdint>
#include <utility>

#include "store/body_pool.h"
#include "store/log_file_format.h"
#include "store/ordered_keys.h"

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

  // visit(const LogMessage&) for the newest `count` messages, which are in memory; from the newest one on, or
  // the newest one last.
  template <class Visit>
  void FromNewest(std::size_t count, Visit&& visit) {
    keys.FromNewest(count, [&](std::uint32_t number) { visit(std::as_const(bodies[number & ~kInMemory])); });
  }
  template <class Visit>
  void ToNewest(std::size_t count, Visit&& visit) {
    keys.ToNewest(count, [&](std::uint32_t number) { visit(std::as_const(bodies[number & ~kInMemory])); });
  }

  // The newest `count` messages, which are in memory, lie in the file now: the oldest of them in slot `first`
  // of `capacity`, the others in those behind it, round the ring.
  void LeaveInFile(std::size_t count, std::int64_t first, std::int64_t capacity);

 private:
  static constexpr std::uint32_t kInMemory = 0x80000000U;

  OrderedKeys keys;  // numbers: a slot, or kInMemory and the number of the body
  BodyPool bodies;
};
