#include "store/pending_list.h"

#include <algorithm>
#include <utility>

#include "store/ring.h"

using TamLogUtil::LeafLock;

void PendingList::Add(const LogMessageBody& body, std::uint32_t maxMessages) {
  const LeafLock::Guard guard(lock);
  // Entries before the new one that are in the file already have to be written again behind it.
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
  return pending;
}

void PendingList::Flush(LogFileHeader& header, FlushTarget& target) {
  const LeafLock::Guard guard(lock);
  if (pending == 0) return;  // cleared while the flush waited for its turn
  if (pending >= header.maxMessages) {
    WriteWholeRing(header, target);
  } else {
    WritePending(header, target);
  }
  RememberRing(header);
  pending = 0;
  rewind = 0;
}

// The newest message goes into slot 0, which is the reverse of the order in which the ring is read, and the
// messages keep the numbers they have. Both are meant: readers in the field take the file as it is after such
// a flush, and notice by rewriteCount that everything moved. The next message goes into slot 0, over the
// newest, and the next start empties a file whose messages stand so, unless all have the same time. Held by
// PendingList.AsManyPendingAsSlotsRewritesTheRingNewestFirst.
//
// The messages stay in memory: the flushes to come write over the newest ones, which may have to be written
// again after that.
void PendingList::WriteWholeRing(LogFileHeader& header, FlushTarget& target) {
  messages.BringIntoMemory(messages.Size(), target);
  RestartRing(header);
  std::int64_t slot = 0;
  messages.FromNewest(messages.Size(), [&](const LogMessage& message) {
    target.WriteSlot(slot++, message.sequence, message);
  });
  target.WriteHeader(header);
}

// The messages are numbered and leave memory only after the header is written: a flush that fails leaves no
// trace in them.
void PendingList::WritePending(LogFileHeader& header, FlushTarget& target) {
  const auto count = static_cast<std::size_t>(pending);
  messages.BringIntoMemory(RingIsAsLeft(header) ? count : messages.Size(), target);
  RewindRing(header, rewind);
  const std::int64_t first = header.nextSlot;
  messages.ToNewest(count, [&](const LogMessage& message) {
    const std::uint64_t sequence = header.nextSequence++;
    target.WriteSlot(AppendToRing(header), sequence, message);
  });
  target.WriteHeader(header);
  messages.LeaveInFile(count, first, header.maxMessages);
}

// Whether a flush writes over no message that is remembered by its slot: so it is as long as nobody else
// moves the ring and the list is not longer than the ring.
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
