#pragma once

// The messages of the file and those not yet written: a mirror of both, and two counts for the next flush.
//
//   pending  number of messages at the newest end that have to be written
//   rewind   number of messages of the file that have to be written again because an older one was inserted
//            before them
//
// Pipe and driver threads add messages, a timer flushes and a pipe thread clears, so mirror and counts have
// their own lock. It is held while they are touched, neither while waiting for readers nor while the file is
// written: a flush counts its messages as written, borrows them, writes without the lock, and restores the
// counts if it fails. A message added meanwhile belongs to the next flush. Two kinds of flush keep the lock:
// one of as many messages as the ring has slots, which writes the whole ring, and one that first has to read
// everything back because the ring was changed since the last flush. Any thread may call all operations, but
// a Flush or Assign must end before the next begins.

#include <cstdint>
#include <vector>

#include "records/log_file_format.h"
#include "store/message_mirror.h"
#include "util/leaf_lock.h"
#include "util/thread_annotations.h"

class PendingList {
 public:
  // Inserts a message by its time and drops the oldest ones beyond `maxMessages`.
  void Add(const LogMessageBody& body, std::uint32_t maxMessages) EXCLUDES(lock);

  // Returns the number of messages not yet written, including those of a flush in progress. May be out of
  // date at once.
  std::int32_t PendingCount() const EXCLUDES(lock);

  // Writes the pending messages: the slots, then `header`, a copy of the file's header, which this updates.
  // Messages of the file that have to move are read back before anything is written. With a damaged header
  // slots may be outside the file; the target must refuse them. If the target throws, the counts are
  // restored, and the next flush writes the same messages with new numbers.
  void Flush(LogFileHeader& header, FlushTarget& target) EXCLUDES(lock);

  // Removes all messages and resets both counts.
  void Clear() EXCLUDES(lock);

  // Replaces everything by the messages of a file that was just opened; `header` is a copy of its header.
  // Pending messages are lost: they belonged to a closed file.
  void Assign(MessageMirror&& loaded, const LogFileHeader& header) EXCLUDES(lock);

 private:
  void WriteWholeRing(LogFileHeader& header, FlushTarget& target) REQUIRES(lock);
  void Lend(const LogFileHeader& header, FlushTarget& target) REQUIRES(lock);
  void WriteLoan(LogFileHeader& header, FlushTarget& target);
  void CountAsPending(const MessageMirror::Returned& returned) REQUIRES(lock);
  bool RingIsAsLeft(const LogFileHeader& header) const REQUIRES(lock);
  void RememberRing(const LogFileHeader& header) REQUIRES(lock);

  mutable TamLogUtil::LeafLock lock;
  MessageMirror messages GUARDED_BY(lock);
  std::int32_t pending GUARDED_BY(lock) = 0;
  std::int32_t rewind GUARDED_BY(lock) = 0;
  std::int32_t lent GUARDED_BY(lock) = 0;  // messages of the flush in progress
  // The ring after the last flush or load.
  std::int32_t nextSlot GUARDED_BY(lock) = 0;
  std::int32_t slots GUARDED_BY(lock) = 0;

  // The flush in progress.
  std::vector<MessageMirror::Lent> loan;
  std::int32_t loanRewind = 0;
  std::int32_t loanFirst = 0;  // the slot of its oldest message
};
