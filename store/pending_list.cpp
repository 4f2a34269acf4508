#include "store/pending_list.h"

#include <algorithm>
#include <utility>

#include "store/ring.h"

using TamLogUtil::LeafLock;

void PendingList::Add(const LogMessageBody& body, std::uint32_t maxMessages) {
  const LeafLock::Guard guard(lock);
  // Newer messages that are in the file already have to be written again after this one.
  const auto newer = static_cast<std::int32_t>(messages.Insert(body));
  if (newer > pending) {
    rewind += newer - pending;
    pending = newer;
  }
  ++pending;
  messages.Trim(maxMessages);
  pending = std::min(pending, static_cast<std::int32_t>(messages.Size()));
}

std::int32_t PendingList::PendingCount() const {
  const LeafLock::Guard guard(lock);
  return pending + lent;
}

void PendingList::Flush(LogFileHeader& header, FlushTarget& target) {
  {
    const LeafLock::Guard guard(lock);
    if (pending == 0) return;  // cleared while the flush waited for its turn
    if (pending >= header.maxMessages) return WriteWholeRing(header, target);
    Lend(header, target);
  }
  try {
    WriteLoan(header, target);
  } catch (...) {
    const LeafLock::Guard guard(lock);
    CountAsPending(messages.TakeBackUnwritten(loan));
    throw;
  }
  const LeafLock::Guard guard(lock);
  messages.TakeBackWritten(loan, loanFirst, header.maxMessages);
  RememberRing(header);
  lent = 0;
}

// The newest message goes into slot 0, the reverse of the order in which the ring is read, and the messages
// keep their numbers. Both are deliberate: readers in the field accept such a file and notice by rewriteCount
// that everything moved. The next message goes into slot 0, over the newest, and the next start empties a
// file with messages in this order, unless all have the same time. Held by
// PendingList.AsManyPendingAsSlotsRewritesTheRingNewestFirst.
//
// The messages stay in memory: later flushes overwrite the newest ones, which may then have to be written
// again.
void PendingList::WriteWholeRing(LogFileHeader& header, FlushTarget& target) {
  messages.BringIntoMemory(messages.Size(), target);
  RestartRing(header);
  std::int64_t slot = 0;
  messages.FromNewest(
      [&](const LogMessage& message) { target.WriteSlot(slot++, message.sequence, message); });
  target.WriteHeader(header);
  RememberRing(header);
  pending = 0;
  rewind = 0;
}

// From here on the pending messages count as written.
void PendingList::Lend(const LogFileHeader& header, FlushTarget& target) {
  if (!RingIsAsLeft(header)) messages.BringIntoMemory(messages.Size(), target);
  messages.Lend(static_cast<std::size_t>(pending), loan);
  loanRewind = rewind;
  lent = pending;
  pending = 0;
  rewind = 0;
}

// Called without the lock. Numbers the messages in the file only, so a failed flush leaves them unchanged.
void PendingList::WriteLoan(LogFileHeader& header, FlushTarget& target) {
  // Reads every message that moves before anything is overwritten, so that a failed flush can be repeated
  // from memory.
  for (MessageMirror::Lent& message : loan) {
    if (message.slot == MessageMirror::kRead) continue;
    target.ReadBack(message.slot, *message.message);
    message.slot = MessageMirror::kRead;
  }
  RewindRing(header, loanRewind);
  loanFirst = header.nextSlot;
  for (std::size_t i = loan.size(); i-- > 0;) {
    const std::uint64_t sequence = header.nextSequence++;
    target.WriteSlot(AppendToRing(header), sequence, *loan[i].message);
  }
  target.WriteHeader(header);
}

// Counts the messages of a failed flush as pending again, together with those added since.
void PendingList::CountAsPending(const MessageMirror::Returned& returned) {
  lent = 0;
  if (returned.messages == 0) return;  // cleared meanwhile
  const auto depth = static_cast<std::int32_t>(returned.depth);
  // `rewind` counts the messages before which new ones were inserted; the lent ones among them have their own
  // count.
  const std::int32_t older =
      pending > depth ? std::max(0, rewind - static_cast<std::int32_t>(returned.messages)) : 0;
  pending = std::max(pending, depth);
  rewind = loanRewind + older;
}

// Whether a flush overwrites no message that is known by its slot only: true while no other process moves the
// ring and the list is not longer than the ring.
bool PendingList::RingIsAsLeft(const LogFileHeader& header) const {
  return header.nextSlot == nextSlot && header.maxMessages == slots &&
         static_cast<std::int64_t>(messages.Size()) <= header.maxMessages;
}

void PendingList::RememberRing(const LogFileHeader& header) {
  nextSlot = header.nextSlot;
  slots = header.maxMessages;
}

void PendingList::Clear() {
  const LeafLock::Guard guard(lock);
  messages.Clear();
  pending = 0;
  rewind = 0;
}

void PendingList::Assign(MessageMirror&& loaded, const LogFileHeader& header) {
  const LeafLock::Guard guard(lock);
  messages = std::move(loaded);
  RememberRing(header);
  pending = 0;
  rewind = 0;
}
