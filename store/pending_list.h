#pragma once

// What the server knows of the file's messages: a mirror of the ring and the messages not yet written, and
// two counts that say what the next flush has to do.
//
//   pending  how many messages at the newest end still have to be written
//   rewind   how many messages of the file have to be written again, because an older one came in between
//
// Messages come in on pipe and driver threads, a flush comes from its timer and a clear from a pipe thread,
// so mirror and counts have a lock of their own. It is held while they are touched, never while waiting for
// readers nor while the file is written: a flush counts its messages as written, has them lent, writes
// without the lock, and takes the count back if it fails. A message handed in meanwhile is for the next
// flush. Only a flush of as many messages as the ring has slots, which writes all of it, keeps the lock, and
// so does one that first has to read everything back because the ring is not as it left it. All operations
// may be called from any thread, except that one Flush or Assign has to end before the next begins.

#include <cstdint>
#include <vector>

#include "records/log_file_format.h"
#include "store/message_mirror.h"
#include "util/leaf_lock.h"
#include "util/thread_annotations.h"

class PendingList {
 public:
  // Puts a message into its place by time; drops the oldest ones beyond `maxMessages`.
  void Add(const LogMessageBody& body, std::uint32_t maxMessages) EXCLUDES(lock);

  // What a flush that is at work has not yet finished counts as pending. A look from outside: may be out of
  // date at once.
  std::int32_t PendingCount() const EXCLUDES(lock);

  // Writes what is pending: the slots, then `header`, a copy of the file's header that is brought up to date.
  // Messages of the file that have to move are read back before anything is written. Slots may lie outside
  // the file when the header is damaged; the target has to refuse them. If the target throws, the counts are
  // as before, and the next flush writes the same messages, numbered again.
  void Flush(LogFileHeader& header, FlushTarget& target) EXCLUDES(lock);

  // Forgets every message and both counts.
  void Clear() EXCLUDES(lock);

  // Mirrors a file that was just opened, of which `header` is a copy. What was pending is lost: it belonged
  // to a file that is closed.
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
  std::int32_t lent GUARDED_BY(lock) = 0;  // messages that a flush is writing
  // How the last flush or load left the ring.
  std::int32_t nextSlot GUARDED_BY(lock) = 0;
  std::int32_t slots GUARDED_BY(lock) = 0;

  // Of the flush that is at work.
  std::vector<MessageMirror::Lent> loan;
  std::int32_t loanRewind = 0;
  std::int32_t loanFirst = 0;  // the slot of its oldest message
};
