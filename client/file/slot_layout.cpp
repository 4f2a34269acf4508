#include "client/file/slot_layout.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>

#include "client/file/message_shape.h"
#include "client/file/seen_slot.h"
#include "client/file/server_traces.h"
#include "client/file/slot_chain.h"
#include "client/log/ring.h"

namespace TamLogClient {

namespace {

// Returns the end of the ring's last slot in the file; 0 when the ring is empty.
std::uint64_t EndOfRing(const LogFileHeader& header) {
  if (header.messageCount == 0) return 0;
  const bool goesAround = header.messageCount > header.nextSlot;
  return LogFileSize(static_cast<std::uint64_t>(goesAround ? header.maxMessages : header.nextSlot));
}

class Walker {
 public:
  Walker(const LogFileImage& searched, bool plainRing)
      : image(searched), ringIsPlain(plainRing), plainEnd(plainRing ? EndOfRing(searched.Header()) : 0) {}

  std::vector<LogPart> Run();
  bool FindsAny();

 private:
  Seen Look(std::uint64_t offset) const { return LookAt(image, offset); }
  bool AtEndOfLog() const;
  bool MessagesLeftLog() const;
  bool SlotsWereAdded();
  void NoteEmptySlot();
  bool IsInPlainRing() const;
  bool MessageBeginsWithin(const Seen& here) const;
  std::optional<std::uint64_t> NextBreak(const Seen& here, const Seen& next);
  void BeginLog(std::uint64_t offset);
  void BeginRest();
  void FindFirstSlot();
  void BeginStretch(std::uint64_t offset);
  void Add(const Seen& slot);
  void Trim();
  std::uint64_t LostBetween(const SlotBreak& gap, bool begins) const;
  bool IsWholeBefore(const Seen& here, std::uint64_t next) const;
  void Break(const Seen& here, std::uint64_t next);
  std::uint64_t EndOfUnused() const;
  bool SkipUnused();
  void Step();
  void FinishLog();

  LogPart& Part() { return parts.back(); }
  SlotStretch& Stretch() { return parts.back().stretches.back(); }

  const LogFileImage& image;
  const bool ringIsPlain;        // see RingIsPlain
  const std::uint64_t plainEnd;  // of a plain ring: the slots before it are in their places
  SlotChain chain;               // from `at` or before
  std::vector<LogPart> parts;
  std::uint64_t at = 0;       // the place that is examined
  std::uint64_t goodEnd = 0;  // end of the stretch's last slot that surely is one
  Seen lastGood;              // that slot
  Seen last;                  // the slot before `at`
  Seen present;               // what is at `at`, when `isKnown`
  bool isKnown = false;
  SlotBreak addedSlots;  // the first slots of the ring that hold no message
  bool evident = false;  // a message was found that is no coincidence
};

bool Walker::AtEndOfLog() const {
  const LogPart& part = parts.back();
  return !part.afterEnd && part.headerTrusted && part.breaks.empty() &&
         at == part.offset + LogFileSize(static_cast<std::uint64_t>(part.header.maxMessages));
}

// Returns whether added bytes moved messages past the log's end: a slot of the ring holds no message, and
// messages follow the ring.
bool Walker::MessagesLeftLog() const {
  const LogFileHeader& header = parts.back().header;
  const bool endsWithout =
      !last.isMessage && HoldsMessage(header, static_cast<std::uint64_t>(header.maxMessages) - 1);
  if (!endsWithout && addedSlots.end == 0) return false;
  constexpr std::size_t kSearched = FileBytes::kMostViewed - kSlotSize;
  for (std::uint64_t from = at - kSlotSize; from < image.Size(); from += kSearched) {
    if (FindMessage(image.View(from, kSearched + kSlotSize), 0, kSearched) != std::string_view::npos)
      return true;
  }
  return false;
}

// Returns whether whole slots were added, so that the slots after them still begin at their places: the file
// is longer by whole slots, and the ring has slots without messages or goes on after its end.
bool Walker::SlotsWereAdded() {
  const std::uint64_t added = image.Size() - at;
  if (added % kSlotSize != 0) return false;
  if (addedSlots.end == 0) {
    const LogPart& part = parts.back();
    const std::uint64_t first = part.offset + kSlotsOffset;
    const bool isFull = part.header.messageCount == part.header.maxMessages;
    std::uint64_t moved = isFull ? at : first + static_cast<std::uint64_t>(part.header.nextSlot) * kSlotSize;
    const std::uint64_t end = moved + added;
    while (moved < end && !Look(moved).isMessage) moved += kSlotSize;
    if (moved == end) return false;
    addedSlots.offset = addedSlots.end = first;  // where they were added is not known
  }
  const std::uint64_t length = addedSlots.end - addedSlots.offset;
  addedSlots.bytes = static_cast<std::int64_t>(added);
  addedSlots.lost = length > added ? (length - added) / kSlotSize : 0;
  return true;
}

// Returns whether `at` is a slot of a plain ring, or before one.
bool Walker::IsInPlainRing() const {
  return at < plainEnd && parts.size() == 1;
}

// Returns whether a message begins between `at` and the slot after it.
bool Walker::MessageBeginsWithin(const Seen& here) const {
  // In a run of zeros a message can begin only near the end, because it begins with number, origin and year.
  const std::size_t from = here.isBlank ? kNeededOfSlot - kTimeOffset - 1 : 1;
  return FindMessage(image.View(at, 2 * kSlotSize), from, kSlotSize) != std::string_view::npos;
}

// Returns the first slot after a break that ends the slots at `at`; nothing while they continue. As long as
// each slot holds a message, no other chain is better.
std::optional<std::uint64_t> Walker::NextBreak(const Seen& here, const Seen& next) {
  if (at >= chain.end) {
    if ((here.isMessage && next.isMessage) || !MessageBeginsWithin(here)) return std::nullopt;
    chain = BestChain(image, at, at);
  }
  const auto found = std::upper_bound(chain.breaks.begin(), chain.breaks.end(), at);
  if (found == chain.breaks.end() || *found >= at + kSlotSize) return std::nullopt;
  return *found;
}

void Walker::BeginStretch(std::uint64_t offset) {
  at = goodEnd = offset;
  isKnown = false;
  last = lastGood = {};
  Part().stretches.push_back({offset, 0, 0});
}

void Walker::BeginLog(std::uint64_t offset) {
  if (!parts.empty()) FinishLog();
  addedSlots = {};
  chain = {};
  LogPart part;
  part.offset = offset;
  part.header = HeaderAt(image, offset);
  const std::uint64_t there = image.Size() - offset;
  part.headerTrusted = there >= kSlotsOffset && RingIsSound(part.header) &&
                       (HeadIsGenuine(image, offset) ||
                        there == LogFileSize(static_cast<std::uint64_t>(part.header.maxMessages)));
  parts.push_back(std::move(part));
  BeginStretch(offset + kSlotsOffset);
}

void Walker::BeginRest() {
  FinishLog();
  LogPart part;
  part.offset = at;
  part.afterEnd = true;
  parts.push_back(std::move(part));
  BeginStretch(at);
}

// Bytes of the file's beginning may have been lost. Then the header's numbers are not where they should be,
// unless the lock names are.
void Walker::FindFirstSlot() {
  const Seen here = Look(at);
  if (here.isMessage || ringIsPlain) return;
  if (FindMessage(image.View(0, kSlotsOffset + kSlotSize), 0, kSlotsOffset) == std::string_view::npos) return;
  const SlotChain fromStart = BestChain(image, 0, at);
  if (fromStart.breaks.empty() || fromStart.breaks.front() >= kSlotsOffset) return;
  const std::uint64_t found = fromStart.breaks.front();
  if (image.View(kLockNamesOffset, kNamesBegin.size()) != kNamesBegin) Part().headerTrusted = false;
  const auto bytes = static_cast<std::int64_t>(found) - static_cast<std::int64_t>(kSlotsOffset);
  Part().breaks.push_back({found, found, bytes, 0});
  Part().stretches.clear();
  BeginStretch(found);
}

void Walker::Add(const Seen& slot) {
  SlotStretch& stretch = Stretch();
  ++stretch.slots;
  const bool follows = Continues(last, slot);
  const bool onGrid = LogFileImage::SlotAtOffset(at).has_value();
  const bool isSure = slot.isMessage || follows || IsInPlainRing();
  if (slot.isMessage && (last.isMessage || onGrid || slot.isNamed)) evident = true;
  at += kSlotSize;
  last = slot;
  if (isSure) {
    goodEnd = at;
    lastGood = slot;
  } else {
    NoteEmptySlot();
  }
}

void Walker::NoteEmptySlot() {
  const LogPart& part = parts.back();
  const std::uint64_t begin = at - kSlotSize;
  const bool isFirst = addedSlots.end == 0;
  if (!part.headerTrusted || !part.breaks.empty() || (!isFirst && addedSlots.end != begin)) return;
  if (!HoldsMessage(part.header, (begin - part.offset) / kSlotSize)) return;
  if (isFirst) addedSlots.offset = begin;
  addedSlots.end = at;
}

// Leaves the slots out that may be bytes which a break added.
void Walker::Trim() {
  Stretch().slots = (goodEnd - Stretch().offset + kSlotSize - 1) / kSlotSize;
  if (Stretch().slots == 0) Part().stretches.pop_back();
}

// Returns how many slots were lost in a gap. The numbers of the slots on both sides show it unless the server
// numbered one of them again; otherwise the smaller change is assumed.
std::uint64_t Walker::LostBetween(const SlotBreak& gap, bool begins) const {
  constexpr std::uint64_t kMostPlausible = 8;  // more than two slots that were cut, less than a new numbering
  const std::uint64_t length = gap.end - gap.offset;
  const std::uint64_t next = Look(gap.end).sequence;
  if (lastGood.complete && next > lastGood.sequence) {
    const std::uint64_t lost = next - lastGood.sequence - 1;
    if (lost <= length / kSlotSize + kMostPlausible) return lost;
  }
  const bool missing = length % kSlotSize > kSlotSize / 2 || (length < kSlotSize && begins);
  return length / kSlotSize + (missing ? 1 : 0);
}

// Returns whether the message at `at` lost no bytes, though the next one begins too early: then the bytes
// that are missing lay between the two, in the padding, or in the next one's number and origin. A text that
// moved shows itself at the end of the source's field, which zeros fill unless the source is that long.
bool Walker::IsWholeBefore(const Seen& here, std::uint64_t next) const {
  constexpr std::uint64_t kBetween = kTimeOffset + 1;  // another first byte of a year makes another year
  const std::uint64_t missing = at + kSlotSize - next;
  if (missing > kSlotSize - kNeededOfSlot + kBetween) return false;
  // The next one's number is there then. After 0 it proves nothing: a full rewrite numbers every message 0.
  const bool hasNumber = here.sequence != 0 && Continues(here, Look(next));
  if (missing > kSlotSize - kNeededOfSlot && hasNumber) return false;
  constexpr std::uint64_t kSource = offsetof(LogMessage, body) + offsetof(LogMessageBody, source);
  const std::string_view source = image.View(at + kSource, kTextSize);
  return source.find('\0') >= kTextSize - missing || IsZero(source.substr(kTextSize - missing));
}

void Walker::Break(const Seen& here, std::uint64_t next) {
  const bool isWhole = here.isMessage && IsWholeBefore(here, next);
  const bool begins = goodEnd == at && (here.isMessage || Continues(last, here));
  if (isWhole) {
    ++Stretch().slots;
    goodEnd = next;
  }
  Trim();
  SlotBreak gap{goodEnd, next, 0, 0};
  if (isWhole) {
    gap.bytes = static_cast<std::int64_t>(next - at) - static_cast<std::int64_t>(kSlotSize);
  } else {
    gap.lost = LostBetween(gap, begins);
    gap.bytes = static_cast<std::int64_t>(next - goodEnd) - static_cast<std::int64_t>(gap.lost * kSlotSize);
  }
  if (next >= goodEnd + kSlotsOffset && LogBeginsAt(image, next - kSlotsOffset))
    return BeginLog(next - kSlotsOffset);
  if (!Part().afterEnd) Part().breaks.push_back(gap);
  BeginStretch(next);
}

// Returns where the unused slots at `at` end at the latest: before the next slot of the ring, or at the end
// of the log; `at` when the slot belongs to the ring.
std::uint64_t Walker::EndOfUnused() const {
  const LogPart& part = parts.back();
  if (part.afterEnd || !part.headerTrusted || !part.breaks.empty()) return image.Size();
  const LogFileHeader& header = part.header;
  const std::uint64_t number = (at - part.offset - kSlotsOffset) / kSlotSize;
  if (number >= static_cast<std::uint64_t>(header.maxMessages)) return image.Size();
  if (HoldsMessage(header, number)) return at;
  const std::uint64_t oldest = SlotAt(header, 0);
  const auto end = number < oldest ? oldest : static_cast<std::uint64_t>(header.maxMessages);
  return part.offset + LogFileImage::OffsetOf(end);
}

// Skips many unused slots at once. A sparse file can have gigabytes of them.
bool Walker::SkipUnused() {
  constexpr std::size_t kViewed = FileBytes::kMostViewed;
  const std::uint64_t end = std::min(EndOfUnused(), image.Size());
  std::uint64_t next = at;
  while (next + kViewed <= end && IsZero(image.View(next, kViewed))) next += kViewed / kSlotSize * kSlotSize;
  if (next == at) return false;
  BeginStretch(next);
  return true;
}

void Walker::Step() {
  if (AtEndOfLog()) {
    if (LogBeginsAt(image, at)) return BeginLog(at);
    if (SlotsWereAdded()) {
      Part().breaks.push_back(addedSlots);
    } else if (!MessagesLeftLog()) {
      return BeginRest();
    }
  }
  if (!isKnown) present = Look(at);
  const Seen here = present;
  if (here.isBlank && SkipUnused()) return;
  if (!here.complete) {
    at = image.Size();
    return;
  }
  if (IsInPlainRing()) {
    isKnown = false;
    return Add(here);
  }
  const Seen next = Look(at + kSlotSize);
  if (const auto other = NextBreak(here, next)) return Break(here, *other);
  Add(here);
  present = next;
  isKnown = true;
}

// With one break the size of the file shows how many bytes are missing or were added.
void Walker::FinishLog() {
  LogPart& part = Part();
  if (part.afterEnd) {
    if (!part.stretches.empty()) Trim();
    return;
  }
  if (part.headerTrusted && part.breaks.size() == 1 && at >= image.Size()) {
    const std::uint64_t wanted = LogFileSize(static_cast<std::uint64_t>(part.header.maxMessages));
    const auto total = static_cast<std::int64_t>(image.Size() - part.offset - wanted);
    SlotBreak& only = part.breaks.front();
    const auto length = static_cast<std::int64_t>(only.end - only.offset);
    constexpr auto kSlot = static_cast<std::int64_t>(kSlotSize);
    if ((total - only.bytes) % kSlot == 0 && total <= length && only.end >= part.offset + kSlotsOffset) {
      only.lost = static_cast<std::uint64_t>((length - total + kSlot - 1) / kSlot);
      only.bytes = total;
    }
  }
  std::int64_t moved = 0;
  auto gap = part.breaks.begin();
  for (SlotStretch& stretch : part.stretches) {
    for (; gap != part.breaks.end() && gap->end <= stretch.offset; ++gap) moved += gap->bytes;
    const std::uint64_t place = stretch.offset - part.offset - kSlotsOffset;
    stretch.number = (place - static_cast<std::uint64_t>(moved)) / kSlotSize;
  }
}

std::vector<LogPart> Walker::Run() {
  BeginLog(0);
  FindFirstSlot();
  while (at < image.Size()) Step();
  FinishLog();
  parts.front().ringIsPlain = ringIsPlain;
  return std::move(parts);
}

bool Walker::FindsAny() {
  BeginLog(0);
  FindFirstSlot();
  while (at < image.Size() && !evident) Step();
  return evident;
}

}  // namespace

bool LogPart::RingInPlace() const {
  if (!headerTrusted || breaks.empty()) return headerTrusted;
  const std::uint64_t slots = offset + kSlotsOffset;
  const std::uint64_t end = slots + static_cast<std::uint64_t>(header.nextSlot) * kSlotSize;
  return ringIsPlain || (header.messageCount <= header.nextSlot && end < breaks.front().offset);
}

std::vector<LogPart> FindLayout(const LogFileImage& image) {
  return Walker(image, RingIsPlain(image)).Run();
}

bool HoldsAnyMessage(const LogFileImage& image) {
  return Walker(image, RingIsPlain(image)).FindsAny();
}

}  // namespace TamLogClient
