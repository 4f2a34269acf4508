#include "client/file/log_file_reader.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include "client/file/file_bytes.h"
#include "client/file/log_file_image.h"
#include "client/file/log_file_scan.h"
#include "client/file/log_file_verify.h"
#include "client/file/log_recognition.h"
#include "client/file/message_shape.h"
#include "client/file/slot_layout.h"
#include "client/log/ring.h"

namespace TamLogClient {

namespace {

std::string CountText(std::uint64_t count, const char* one, const char* many) {
  return std::to_string(count) + (count == 1 ? one : many);
}

// Returns what is wrong with the file as a whole; nothing about single messages that break a rule.
std::string ProblemOf(const LogFileImage& image, const VerifyReport& report) {
  const LogFileHeader& header = image.Header();
  if (report.Count(FileRule::HeaderComplete) > 0) return "the file ends within its header";
  if (report.Count(FileRule::NotNegative) + report.Count(FileRule::InsideRing) > 0) {
    return "the header is not valid (capacity " + std::to_string(header.maxMessages) + ", messages " +
           std::to_string(header.messageCount) + ", next slot " + std::to_string(header.nextSlot) + ")";
  }
  for (const FileFinding& finding : report.findings) {
    const std::string place = " at byte " + std::to_string(finding.offset);
    if (finding.rule == FileRule::ShiftedSlots) return "bytes are missing or were added" + place;
    if (finding.rule == FileRule::AnotherLog) return "another log begins" + place;
  }
  if (report.Count(FileRule::SlotsInFile) + report.Count(FileRule::EmptySlotsGone) > 0) {
    return "the file is too short: it has " + std::to_string(image.SlotsThere()) + " of " +
           std::to_string(header.maxMessages) + " slots";
  }
  if (report.Count(FileRule::BytesAfterEnd) > 0) {
    return "the file's size of " + std::to_string(image.Size()) + " bytes does not fit its capacity of " +
           std::to_string(header.maxMessages) + " messages";
  }
  if (report.Count(FileRule::NewestFirst) > 0) {
    return CountText(report.Count(FileRule::NewestFirst), " message is", " messages are") +
           " older than the message before";
  }
  return {};
}

LogFileVerdict VerdictOf(const LogFileImage& image) {
  LogFileVerdict verdict;
  verdict.remark = WhyNoLog(image);
  if (!verdict.remark.empty()) {
    verdict.status = Status::NotALog;
    return verdict;
  }
  verdict.remark = ProblemOf(image, VerifyLogFile(image, {.most = 1, .remarks = false}));
  if (!verdict.remark.empty()) verdict.status = Status::Damaged;
  return verdict;
}

// Reads the slots in order, so that, if the file shrinks meanwhile, those before the cut are kept.
void ReadSlots(FileBytes& file, const LogFileImage& image, LogSnapshot& snapshot) {
  snapshot.header = image.Header();
  const auto capacity = static_cast<std::uint64_t>(snapshot.header.maxMessages);
  snapshot.slots.resize(std::min(image.SlotsThere(), capacity));
  const std::size_t read = file.Copy(kSlotsOffset, snapshot.slots.data(), snapshot.slots.size() * kSlotSize);
  snapshot.slots.resize(read / kSlotSize);
}

// Reads the ring alone, into the first slots. A file whose capacity nobody can set may have gigabytes of
// unused ones.
void ReadRing(const LogFileImage& image, LogSnapshot& snapshot) {
  for (const std::uint32_t slot : image.RingSlots()) snapshot.slots.push_back(image.Slot(slot));
  snapshot.header = image.Header();
  snapshot.header.messageCount = static_cast<std::int32_t>(snapshot.slots.size());
  snapshot.header.nextSlot = snapshot.header.messageCount % snapshot.header.maxMessages;
}

void ReadKnownRing(FileBytes& file, const LogFileImage& image, LogSnapshot& snapshot) {
  constexpr std::int32_t kMostConfigurable = 1000000;
  const LogFileHeader& header = image.Header();
  if (header.maxMessages > kMostConfigurable && header.messageCount < header.maxMessages)
    return ReadRing(image, snapshot);
  ReadSlots(file, image, snapshot);
}

// Returns whether all messages have dates and are in order, as in nearly every log of the right size: then no
// check finds damage.
bool IsPlainlySound(const LogSnapshot& snapshot) {
  const auto slots = snapshot.RingOrder();
  LogFileSurvey survey;
  for (const std::uint32_t slot : slots) survey.Add(snapshot.slots[slot]);
  return survey.inOrder && survey.doubtful == 0 &&
         slots.size() == static_cast<std::size_t>(snapshot.header.messageCount);
}

// Appends the messages of a log: those of the ring, or all when the header does not say where they are.
void AppendMessages(const LogFileImage& image, const LogPart& log, std::vector<LogMessage>& messages) {
  const bool inPlace = log.RingInPlace();
  for (const SlotStretch& stretch : log.stretches) {
    for (std::uint64_t i = 0; i < stretch.slots; ++i) {
      if (inPlace && !HoldsMessage(log.header, stretch.number + i)) continue;
      const LogMessage message = image.At(stretch.offset + i * kSlotSize);
      if (inPlace || !IsBlank(message.body)) messages.push_back(message);
    }
  }
}

LogSnapshot FoundMessages(const LogFileImage& image, const std::vector<LogPart>& parts) {
  LogSnapshot snapshot;
  for (const LogPart& part : parts) {
    if (!part.afterEnd) AppendMessages(image, part, snapshot.slots);
  }
  constexpr std::size_t kMost = std::numeric_limits<std::int32_t>::max();
  snapshot.slots.resize(std::min(snapshot.slots.size(), kMost));
  snapshot.header = image.Header();
  snapshot.header.messageCount = static_cast<std::int32_t>(snapshot.slots.size());
  snapshot.header.maxMessages = snapshot.header.messageCount;
  snapshot.header.nextSlot = 0;
  return snapshot;
}

// Returns whether the file is one log whose header says where its messages are.
bool RingIsKnown(const std::vector<LogPart>& parts) {
  return parts.front().RingInPlace() &&
         std::all_of(parts.begin() + 1, parts.end(), [](const LogPart& part) { return part.afterEnd; });
}

LogFileContents ReadFrom(const std::string& path, FileBytes& file) {
  LogFileContents contents;
  contents.status = file.Open(path);
  if (contents.status != Status::Ok) return contents;
  const LogFileImage image(file);
  LogSnapshot& snapshot = contents.snapshot;
  if (image.SizeFits()) {
    ReadKnownRing(file, image, snapshot);
    if (IsPlainlySound(snapshot)) return contents;
  }
  static_cast<LogFileVerdict&>(contents) = VerdictOf(image);
  if (contents.status == Status::NotALog || (image.SizeFits() && contents.status == Status::Ok))
    return contents;
  const auto parts = FindLayout(image);
  if (!RingIsKnown(parts)) {
    snapshot = FoundMessages(image, parts);
  } else if (!image.SizeFits()) {
    ReadKnownRing(file, image, snapshot);
  }
  return contents;
}

}  // namespace

LogFileContents ReadLogFile(const std::string& path) {
  FileBytes file;
  LogFileContents contents = ReadFrom(path, file);
  if (Readable(contents.status) && file.Failure() != Status::Ok) {
    contents.status = Status::Damaged;
    contents.remark = "the system could not read all of it: " + file.Failure().Reason();
  }
  return contents;
}

LogFileVerdict JudgeLogFile(const std::string& path) {
  FileBytes file;
  const FileStatus status = file.Open(path);
  return status == Status::Ok ? VerdictOf(LogFileImage(file)) : LogFileVerdict{status, ""};
}

}  // namespace TamLogClient
