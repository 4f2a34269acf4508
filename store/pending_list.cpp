#include "store/pending_list.h"

#include <algorithm>
#include <iterator>
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
    target.WriteHeader(header);
  } else {
    WritePending(header, target);
  }
  pending = 0;
  rewind = 0;
}

// The newest message goes into slot 0, which is the reverse of the order in which the ring is read, and the
// messages keep the numbers they have. Both are meant: readers in the field take the file as it is after such
// a flush, and notice by rewriteCount that everything moved. The next message goes into slot 0, over the
// newest, and the next start empties a file whose messages stand so, unless all have the same time. Held by
// PendingList.AsManyPendingAsSlotsRewritesTheRingNewestFirst.
void PendingList::WriteWholeRing(LogFileHeader& header, FlushTarget& target) {
  RestartRing(header);
  std::int64_t slot = 0;
  for (const MessageList::Entry& entry : messages) target.WriteSlot(slot++, entry.message);
}

// Numbers reach the list only after the header is written: a flush that fails leaves no trace in it.
void PendingList::WritePending(LogFileHeader& header, FlushTarget& target) {
  RewindRing(header, rewind);
  const std::uint64_t firstSequence = header.nextSequence;
  auto entry = std::next(messages.begin(), pending);
  for (std::int32_t left = pending; left > 0; --left) {
    LogMessage message = (--entry)->message;
    message.sequence = header.nextSequence++;
    target.WriteSlot(AppendToRing(header), message);
  }
  target.WriteHeader(header);
  messages.NumberNewest(static_cast<std::size_t>(pending), firstSequence);
}

void PendingList::Clear() {
  const LeafLock::Guard guard(lock);
  messages.Clear();
  pending = 0;
  rewind = 0;
}

void PendingList::Assign(MessageList&& loaded) {
  const LeafLock::Guard guard(lock);
  messages = std::move(loaded);
  pending = 0;
  rewind = 0;
}
