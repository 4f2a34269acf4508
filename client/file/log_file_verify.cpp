#include "client/file/log_file_verify.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#include "client/file/server_traces.h"
#include "client/file/slot_layout.h"
#include "client/log/ring.h"
#include "client/message/log_message_view.h"
#include "client/message/time_text.h"

namespace TamLogClient {

namespace {

constexpr std::uint64_t kSourceOffset = offsetof(LogMessage, body) + offsetof(LogMessageBody, source);
constexpr std::uint64_t kTextOffset = offsetof(LogMessage, body) + offsetof(LogMessageBody, text);

std::string TimeOf(const LogMessage& message) {
  std::string text;
  AppendTime(WordsOf(message.body), ' ', text);
  return text;
}

class Verifier {
 public:
  Verifier(const LogFileImage& checked, const VerifyOptions& chosen) : image(checked), options(chosen) {}

  VerifyReport Run();

 private:
  void Note(FileRule rule, std::optional<std::uint32_t> slot, std::uint64_t offset, std::string seen,
            std::string allowed);
  void NoteNumber(FileRule rule, std::uint64_t offset, const char* name, std::int64_t seen,
                  const std::string& allowed);
  void CheckHeader();
  void CheckSize();
  void CheckSlotsInFile();
  void CheckLayout();
  void LeaveOutShifted(std::vector<std::uint32_t>& slots);
  void CheckMessages(const std::vector<std::uint32_t>& slots);
  void CheckNames();
  void CheckMessage(std::uint32_t slot, const LogMessage& message);
  void CheckOrder(const std::vector<std::uint32_t>& slots, const std::vector<std::uint64_t>& keys);
  bool MadeByAServer(const std::vector<std::uint32_t>& slots, std::size_t stretch) const;
  void CheckDuplicates(const std::vector<std::uint32_t>& slots);
  void CheckSequences(const std::vector<std::uint32_t>& slots);

  const LogFileImage& image;
  VerifyOptions options;
  VerifyReport report;
  std::optional<std::uint64_t> firstBreak;  // offset; slots from there on are not where they should be
};

void Verifier::Note(FileRule rule, std::optional<std::uint32_t> slot, std::uint64_t offset, std::string seen,
                    std::string allowed) {
  if (report.count[static_cast<std::size_t>(rule)]++ >= options.most) return;
  report.findings.push_back({rule, slot, offset, std::move(seen), std::move(allowed)});
}

void Verifier::NoteNumber(FileRule rule, std::uint64_t offset, const char* name, std::int64_t seen,
                          const std::string& allowed) {
  Note(rule, std::nullopt, offset, std::string(name) + " " + std::to_string(seen), allowed);
}

void Verifier::CheckHeader() {
  const LogFileHeader& header = image.Header();
  const auto notNegative = [this](std::uint64_t offset, const char* name, std::int32_t value) {
    if (value < 0) NoteNumber(FileRule::NotNegative, offset, name, value, "0 or more");
  };
  notNegative(offsetof(LogFileHeader, messageCount), "messageCount", header.messageCount);
  notNegative(offsetof(LogFileHeader, maxMessages), "maxMessages", header.maxMessages);
  notNegative(offsetof(LogFileHeader, nextSlot), "nextSlot", header.nextSlot);
  if (header.messageCount > header.maxMessages) {
    NoteNumber(FileRule::InsideRing, offsetof(LogFileHeader, messageCount), "messageCount",
               header.messageCount, "at most maxMessages, " + std::to_string(header.maxMessages));
  }
  if (header.nextSlot >= header.maxMessages) {
    NoteNumber(FileRule::InsideRing, offsetof(LogFileHeader, nextSlot), "nextSlot", header.nextSlot,
               "less than maxMessages, " + std::to_string(header.maxMessages));
  }
  if (options.live || !options.remarks) return;
  if (header.readCount != 0)
    NoteNumber(FileRule::ReadersInside, offsetof(LogFileHeader, readCount), "readCount", header.readCount,
               "0 in a closed file");
  if (header.serverRunning != 0) {
    NoteNumber(FileRule::NotClosed, offsetof(LogFileHeader, serverRunning), "serverRunning",
               header.serverRunning, "0 in a file that its server has closed");
  }
}

void Verifier::CheckSlotsInFile() {
  const LogFileHeader& header = image.Header();
  const auto there = static_cast<std::int64_t>(image.SlotsThere());
  std::int64_t missing = 0;
  for (const SlotRun& run : NewestRuns(header, header.messageCount))
    missing += std::max<std::int64_t>(0, run.end - std::max(run.begin, there));
  if (missing == 0) return;
  Note(FileRule::SlotsInFile, static_cast<std::uint32_t>(there), image.Size(),
       std::to_string(missing) + (missing == 1 ? " message" : " messages") + " after the end of the file",
       "all of the ring's " + std::to_string(header.messageCount) + " inside the file");
}

void Verifier::CheckSize() {
  const std::uint64_t wanted = LogFileSize(static_cast<std::uint32_t>(image.Header().maxMessages));
  // A break or another log is the reason for the size.
  if (image.Size() == wanted || firstBreak || report.Count(FileRule::AnotherLog) > 0) return;
  const FileRule rule = image.Size() > wanted ? FileRule::BytesAfterEnd : FileRule::EmptySlotsGone;
  if (rule == FileRule::EmptySlotsGone && report.Count(FileRule::SlotsInFile) > 0) return;
  Note(rule, std::nullopt, std::min(wanted, image.Size()), std::to_string(image.Size()) + " bytes",
       std::to_string(wanted) + " bytes for a capacity of " + std::to_string(image.Header().maxMessages));
}

void Verifier::CheckNames() {
  const LockNames names = image.Names();
  for (std::size_t i = 0; i < std::size(names.name); ++i) {
    const std::string_view whole(names.name[i], kLockNameSize);
    if (whole.find('\0') != std::string_view::npos) continue;
    Note(FileRule::LockNames, std::nullopt, kLockNamesOffset + i * kLockNameSize,
         "lock name " + std::to_string(i) + " without a zero byte", "a zero byte within its 64 bytes");
  }
}

void Verifier::CheckMessage(std::uint32_t slot, const LogMessage& message) {
  const LogMessageView view(message);
  const std::uint64_t start = LogFileImage::OffsetOf(slot);
  if (options.remarks && !IsRealTime(WordsOf(message.body)))
    Note(FileRule::ImpossibleDate, slot, start + kTimeOffset, TimeOf(message),
         "a date of the calendar and a time of day");
  if (view.Text().size() == kTextSize)
    Note(FileRule::TextEnds, slot, start + kTextOffset, "a text without a zero byte",
         "a zero byte within its 257 bytes");
  if (view.Source().size() == kTextSize)
    Note(FileRule::SourceEnds, slot, start + kSourceOffset, "a source without a zero byte",
         "a zero byte within its 257 bytes");
  if (view.Type() >= kMessageTypes)
    Note(FileRule::KnownType, slot, start + kTypeOffset, "type " + std::to_string(view.Type()), "0 to 3");
}

// Returns whether a server left the stretch. A full rewrite fills all slots with it, a compaction those from
// slot 0 on: the rest of such a block touches the last slot or the first, or is too long for one message with
// a wrong date.
bool Verifier::MadeByAServer(const std::vector<std::uint32_t>& slots, std::size_t stretch) const {
  constexpr std::size_t kNoAccident = 3;
  return stretch >= kNoAccident || slots[0] == 0 ||
         slots[stretch - 1] + 1 == static_cast<std::uint32_t>(image.Header().maxMessages);
}

void Verifier::CheckOrder(const std::vector<std::uint32_t>& slots, const std::vector<std::uint64_t>& keys) {
  std::size_t from = FallingStretch(keys);
  if (from > 0 && MadeByAServer(slots, from)) {
    Note(FileRule::ReversedBlock, slots[0], LogFileImage::OffsetOf(slots[0]),
         std::to_string(from) + " messages newest first, up to slot " + std::to_string(slots[from - 1]),
         "oldest first; the next start of a server empties the file");
  } else {
    from = 0;
  }
  for (std::size_t i = std::max<std::size_t>(from, 1); i < slots.size(); ++i) {
    if (keys[i - 1] <= keys[i]) continue;
    Note(FileRule::NewestFirst, slots[i], LogFileImage::OffsetOf(slots[i]) + kTimeOffset,
         TimeOf(image.Slot(slots[i])) + " (time key " + std::to_string(keys[i]) + ")",
         "at least " + std::to_string(keys[i - 1]) + ", of the older message in slot " +
             std::to_string(slots[i - 1]));
  }
}

void Verifier::CheckDuplicates(const std::vector<std::uint32_t>& slots) {
  struct Entry {
    MessageIdentity identity;
    std::uint32_t place;
  };
  std::vector<Entry> entries;
  entries.reserve(slots.size());
  for (std::uint32_t i = 0; i < slots.size(); ++i)
    entries.push_back({IdentityOf(image.Slot(slots[i]).body), i});
  std::sort(entries.begin(), entries.end(), [](const Entry& left, const Entry& right) {
    const auto key = [](const Entry& entry) {
      return std::pair(std::pair(entry.identity.high, entry.identity.low), entry.place);
    };
    return key(left) < key(right);
  });
  for (std::size_t i = 1; i < entries.size(); ++i) {
    if (!(entries[i].identity == entries[i - 1].identity)) continue;
    const std::uint32_t slot = slots[entries[i].place];
    Note(FileRule::Duplicate, slot, LogFileImage::OffsetOf(slot),
         "the same bytes as slot " + std::to_string(slots[entries[i - 1].place]), "each message once");
  }
}

// Every message of a full rewrite has the number 0, so 0 may repeat.
void Verifier::CheckSequences(const std::vector<std::uint32_t>& slots) {
  std::vector<std::pair<std::uint64_t, std::uint32_t>> numbers;
  numbers.reserve(slots.size());
  for (const std::uint32_t slot : slots) {
    const std::uint64_t sequence = image.Slot(slot).sequence;
    if (sequence != 0) numbers.emplace_back(sequence, slot);
    if (sequence != 0 && sequence >= image.Header().nextSequence) {
      Note(FileRule::SequenceOrder, slot, LogFileImage::OffsetOf(slot), "number " + std::to_string(sequence),
           "less than nextSequence, " + std::to_string(image.Header().nextSequence));
    }
  }
  std::sort(numbers.begin(), numbers.end());
  for (std::size_t i = 1; i < numbers.size(); ++i) {
    if (numbers[i].first != numbers[i - 1].first) continue;
    Note(FileRule::SequenceOrder, numbers[i].second, LogFileImage::OffsetOf(numbers[i].second),
         "number " + std::to_string(numbers[i].first) + ", as in slot " +
             std::to_string(numbers[i - 1].second),
         "each number once, except 0");
  }
}

VerifyReport Verifier::Run() {
  report.size = image.Size();
  report.slotsThere = image.SlotsThere();
  report.header = image.Header();
  if (image.Size() == 0) {
    Note(FileRule::EmptyFile, std::nullopt, 0, "0 bytes", "240 or more");
    return std::move(report);
  }
  if (!image.HasHead()) {
    Note(FileRule::HeaderComplete, std::nullopt, image.Size(), std::to_string(image.Size()) + " bytes",
         "240 or more");
    return std::move(report);
  }
  CheckHeader();
  if (options.remarks) CheckNames();
  auto slots = image.RingSlots();
  if (!options.live && !RingIsPlain(image)) CheckLayout();
  if (!image.HeaderIsSound()) return std::move(report);  // which slots hold messages is not known
  CheckSlotsInFile();
  CheckSize();
  LeaveOutShifted(slots);
  CheckMessages(slots);
  return std::move(report);
}

void Verifier::CheckLayout() {
  for (const LogPart& part : FindLayout(image)) {
    if (part.offset > 0 && !part.afterEnd) {
      Note(FileRule::AnotherLog, std::nullopt, part.offset,
           "a log of " + std::to_string(part.header.messageCount) + " messages, capacity " +
               std::to_string(part.header.maxMessages),
           "one log in a file");
    }
    if (part.headerTrusted && part.RingInPlace()) continue;
    for (const SlotBreak& gap : part.breaks) {
      const auto bytes = static_cast<std::uint64_t>(gap.bytes < 0 ? -gap.bytes : gap.bytes);
      Note(FileRule::ShiftedSlots, std::nullopt, gap.offset,
           std::to_string(bytes) + (bytes == 1 ? " byte " : " bytes ") +
               (gap.bytes < 0 ? "missing" : "added") + ", slots go on at byte " + std::to_string(gap.end),
           "slots of 560 bytes that follow each other");
      if (part.offset == 0 && !firstBreak) firstBreak = gap.offset;
    }
  }
}

// After a break the bytes at a slot's place are parts of two messages, and a finding about each of them would
// bury the one that matters. The server reads them all the same.
void Verifier::LeaveOutShifted(std::vector<std::uint32_t>& slots) {
  if (!firstBreak) return;
  std::uint64_t key = 0;
  for (const std::uint32_t slot : slots) {
    const LogMessage message = image.Slot(slot);
    const LogMessageView view(message);
    if (view.Damaged() || view.Key() < key) report.rejectedAfterBreak = true;
    key = view.Key();
  }
  std::erase_if(slots,
                [this](std::uint32_t slot) { return LogFileImage::OffsetOf(slot + 1ULL) > *firstBreak; });
}

void Verifier::CheckMessages(const std::vector<std::uint32_t>& slots) {
  std::vector<std::uint64_t> keys;
  keys.reserve(slots.size());
  for (const std::uint32_t slot : slots) {
    const LogMessage message = image.Slot(slot);
    keys.push_back(TimeKey(message.body));
    CheckMessage(slot, message);
  }
  CheckOrder(slots, keys);
  if (!options.remarks) return;
  CheckDuplicates(slots);
  CheckSequences(slots);
}

}  // namespace

const char* RuleName(FileRule rule) {
  static constexpr std::array<const char*, kFileRules> names{
      "header-complete", "not-negative", "inside-ring",     "slots-in-file",    "newest-first",
      "text-ends",       "source-ends",  "known-type",      "reversed-block",   "impossible-date",
      "duplicate",       "sequence",     "bytes-after-end", "empty-slots-gone", "readers-inside",
      "not-closed",      "lock-names",   "empty-file",      "shifted-slots",    "another-log"};
  return names.at(static_cast<std::size_t>(rule));
}

std::uint64_t VerifyReport::Damage() const {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < kFileRules; ++i) sum += IsRemark(static_cast<FileRule>(i)) ? 0 : count[i];
  return sum;
}

std::uint64_t VerifyReport::Remarks() const {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < kFileRules; ++i) sum += IsRemark(static_cast<FileRule>(i)) ? count[i] : 0;
  return sum;
}

bool VerifyReport::Accepted() const {
  if (rejectedAfterBreak) return false;
  for (std::size_t i = 0; i < kFileRules; ++i) {
    if (count[i] > 0 && ServerRejects(static_cast<FileRule>(i))) return false;
  }
  return true;
}

VerifyReport VerifyLogFile(const LogFileImage& image, const VerifyOptions& options) {
  return Verifier(image, options).Run();
}

}  // namespace TamLogClient
