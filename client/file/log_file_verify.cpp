#include "client/file/log_file_verify.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

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
  void CheckNames();
  void CheckMessage(std::uint32_t slot, const LogMessage& message);
  void CheckOrder(const std::vector<std::uint32_t>& slots, const std::vector<std::uint64_t>& keys);
  bool MadeByAServer(const std::vector<std::uint32_t>& slots, std::size_t stretch) const;
  void CheckDuplicates(const std::vector<std::uint32_t>& slots);
  void CheckSequences(const std::vector<std::uint32_t>& slots);

  const LogFileImage& image;
  VerifyOptions options;
  VerifyReport report;
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
  if (options.live) return;
  if (header.readCount != 0)
    NoteNumber(FileRule::ReadersInside, offsetof(LogFileHeader, readCount), "readCount", header.readCount,
               "0 in a file at rest");
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
       std::to_string(missing) + " slots of messages behind the file's end",
       "all of the ring's " + std::to_string(header.messageCount) + " in the file");
}

void Verifier::CheckSize() {
  const std::uint64_t wanted = LogFileSize(static_cast<std::uint32_t>(image.Header().maxMessages));
  if (image.Size() == wanted) return;
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
         "lock name " + std::to_string(i) + " without a zero", "a zero within its 64 bytes");
  }
}

void Verifier::CheckMessage(std::uint32_t slot, const LogMessage& message) {
  const LogMessageView view(message);
  const std::uint64_t start = LogFileImage::OffsetOf(slot);
  if (!IsRealTime(WordsOf(message.body)))
    Note(FileRule::ImpossibleDate, slot, start + kTimeOffset, TimeOf(message), "a date and time of day");
  if (view.Text().size() == kTextSize)
    Note(FileRule::TextEnds, slot, start + kTextOffset, "a text without a zero",
         "a zero within its 257 bytes");
  if (view.Source().size() == kTextSize)
    Note(FileRule::SourceEnds, slot, start + kSourceOffset, "a source without a zero",
         "a zero within its 257 bytes");
  if (view.Type() >= kMessageTypes)
    Note(FileRule::KnownType, slot, start + kTypeOffset, "type " + std::to_string(view.Type()), "0 to 3");
}

// A full rewrite lays a block into all slots, a compaction from slot 0 on: what is left of such a block
// touches the last slot or the first, or is too long to be one message with a wrong date.
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
         "the bytes of slot " + std::to_string(slots[entries[i - 1].place]) + " once more", "each once");
  }
}

// The number 0 is given to every message of a full rewrite, so it may repeat.
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
         "number " + std::to_string(numbers[i].first) + " like slot " + std::to_string(numbers[i - 1].second),
         "each once, but for 0");
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
  CheckNames();
  if (!image.HeaderIsSound()) return std::move(report);  // which slots hold messages is not known
  CheckSlotsInFile();
  CheckSize();
  const auto slots = image.RingSlots();
  std::vector<std::uint64_t> keys;
  keys.reserve(slots.size());
  for (const std::uint32_t slot : slots) {
    const LogMessage message = image.Slot(slot);
    keys.push_back(TimeKey(message.body));
    CheckMessage(slot, message);
  }
  CheckOrder(slots, keys);
  CheckDuplicates(slots);
  CheckSequences(slots);
  return std::move(report);
}

}  // namespace

const char* RuleName(FileRule rule) {
  static constexpr std::array<const char*, kFileRules> names{
      "header-complete", "not-negative", "inside-ring",     "slots-in-file",    "newest-first",
      "text-ends",       "source-ends",  "known-type",      "reversed-block",   "impossible-date",
      "duplicate",       "sequence",     "bytes-after-end", "empty-slots-gone", "readers-inside",
      "not-closed",      "lock-names",   "empty-file"};
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

VerifyReport VerifyLogFile(const LogFileImage& image, const VerifyOptions& options) {
  return Verifier(image, options).Run();
}

}  // namespace TamLogClient
