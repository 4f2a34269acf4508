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
#include "client/log/ring.h"

namespace TamLogClient {

namespace {

class Walker {
 public:
  Walker(const LogFileImage& searched, bool plainRing) : image(searched), ringIsPlain(plainRing) {}

  std::vector<LogPart> Run();
  bool FindsAny();

 private:
  Seen Look(std::uint64_t offset) const { return LookAt(image, offset); }
  bool AtEndOfLog() const;
  bool LastSlotIsRight() const;
  bool SlotsWereAdded();
  void NoteEmptySlot();
  std::optional<std::uint64_t> MessageWithinSlot(const Seen& here) const;
  bool ServerWrote(const Seen& here, const Seen& next) const;
  bool IsInPlainRing() const;
  bool SizeShowsMove(std::uint64_t other) const;
  bool GridGoesOn(const Seen& here, const Seen& next, std::uint64_t other) const;
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
  const bool ringIsPlain;  // see RingIsPlain: the slots of the ring are not searched
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

// Returns whether the log's last slot holds what the header claims. If not, the bytes after the end may be
// its last messages, which bytes that were added have moved there.
bool Walker::LastSlotIsRight() const {
  const LogFileHeader& header = parts.back().header;
  return last.isMessage || !HoldsMessage(header, static_cast<std::uint64_t>(header.maxMessages) - 1);
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

// Returns where a message begins between `at` and the slot after it.
std::optional<std::uint64_t> Walker::MessageWithinSlot(const Seen& here) const {
  // Within zeros no message begins but near their end, for it begins with number, origin and year.
  const std::size_t from = here.isBlank ? kNeededOfSlot - kTimeOffset - 1 : 1;
  const std::string_view bytes = image.View(at, 2 * kSlotSize);
  const std::size_t found = FindMessage(bytes, from, kSlotSize);
  return found == std::string_view::npos ? std::nullopt : std::optional(at + found);
}

// Returns whether number and padding show that a server wrote the slots `here` and `next` in a file of the
// right size. Senders choose all other bytes: also those of a time that is impossible, and of a message that
// begins elsewhere. Bytes that moved there by damage have no numbers that differ and that were assigned. The
// number 0 proves little, because zeros follow every text: then the slot after it decides.
bool Walker::ServerWrote(const Seen& here, const Seen& next) const {
  const LogPart& part = parts.back();
  if (parts.size() > 1 || !part.headerTrusted || !part.breaks.empty() || !image.SizeFits()) return false;
  const auto isAssigned = [&part](const Seen& slot) {
    return slot.passes && slot.isPadded && slot.sequence < part.header.nextSequence;
  };
  if (!isAssigned(here)) return false;
  const bool isLast = !next.complete || next.isBlank;
  const Seen& other = isLast ? last : next;
  if (!isAssigned(other) || other.sequence == here.sequence) return false;
  if (other.sequence != 0) return true;
  const Seen second = Look(at + 2 * kSlotSize);
  return isAssigned(second) && second.sequence != 0;
}

// Returns whether `at` is a slot of a plain ring.
bool Walker::IsInPlainRing() const {
  return ringIsPlain && parts.size() == 1 && parts.back().breaks.empty() &&
         HoldsMessage(parts.back().header, (at - kSlotsOffset) / kSlotSize);
}

// Returns whether the size of the log shows that its slots moved from `at` to `other`: the file is longer or
// shorter than its capacity needs by just that many bytes, those of the breaks before, and whole slots. No
// sender can change the size.
bool Walker::SizeShowsMove(std::uint64_t other) const {
  const LogPart& part = parts.back();
  if (part.afterEnd || !part.headerTrusted) return false;
  const std::uint64_t end = part.offset + LogFileSize(static_cast<std::uint64_t>(part.header.maxMessages));
  auto added = static_cast<std::int64_t>(image.Size()) - static_cast<std::int64_t>(end);
  for (const SlotBreak& gap : part.breaks) added -= gap.bytes;
  return (added - static_cast<std::int64_t>(other - at)) % static_cast<std::int64_t>(kSlotSize) == 0;
}

// Returns whether the slots go on from `at` rather than from `other`, where a message begins as well: as many
// slots follow, as far as a look ahead shows. A sender can put a message into the text of another one, but
// not the number that the server gave to the slot. So in a file without other damage, slots without a date
// count whose numbers follow each other. In a damaged file they do not: bytes of a time or a tail may be
// where the numbers were, and senders may count in them.
bool Walker::GridGoesOn(const Seen& here, const Seen& next, std::uint64_t other) const {
  if (ServerWrote(here, next)) return true;
  if (!next.isMessage && !Continues(here, next)) return false;
  constexpr std::uint64_t kAhead = 8;
  const bool isDamaged = !image.SizeFits() || !parts.back().breaks.empty();
  std::uint64_t grid = (isDamaged ? here.isMessage && next.isMessage : Continues(here, next)) ? 1 : 0;
  Seen before = here;
  for (std::uint64_t i = 1; i < kAhead; ++i) {
    const Seen slot = Look(at + i * kSlotSize);
    if (!slot.isMessage && !Continues(before, slot)) break;
    if (slot.isMessage || !isDamaged) ++grid;
    before = slot;
  }
  std::uint64_t shifted = 0;
  while (shifted < kAhead && Look(other + shifted * kSlotSize).isMessage) ++shifted;
  return SizeShowsMove(other) ? grid > shifted : grid >= shifted;
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
// unless the lock names are. A first slot without a possible time is no proof of that: a sender can choose
// its bytes so that they look like a message when they are read a little earlier.
void Walker::FindFirstSlot() {
  const Seen here = Look(at);
  if (here.isMessage || IsInPlainRing()) return;
  const std::size_t found = FindMessage(image.View(0, kSlotsOffset + kSlotSize), 0, kSlotsOffset);
  if (found == std::string_view::npos) return;
  const bool oneOnly = !Look(found + kSlotSize).isMessage;
  if ((oneOnly && image.SizeFits()) || GridGoesOn(here, Look(at + kSlotSize), found)) return;
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
// moved shows itself at the end of the source's field, which zeros fill.
bool Walker::IsWholeBefore(const Seen& here, std::uint64_t next) const {
  constexpr std::uint64_t kBetween = kTimeOffset + 1;  // another first byte of a year makes another year
  const std::uint64_t missing = at + kSlotSize - next;
  if (missing > kSlotSize - kNeededOfSlot + kBetween) return false;
  if (missing > kSlotSize - kNeededOfSlot && Continues(here, Look(next))) return false;
  constexpr std::uint64_t kText = offsetof(LogMessage, body) + offsetof(LogMessageBody, text);
  return IsZero(image.View(at + kText - missing, missing));
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
    } else if (LastSlotIsRight()) {
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
  if (!here.isMessage || !next.isMessage) {
    const auto other = MessageWithinSlot(here);
    if (other && !GridGoesOn(here, next, *other)) return Break(here, *other);
  }
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
