#include <algorithm>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>

#include "client/c/c_interface.h"
#include "client/file/log_file_image.h"
#include "client/file/log_file_repair.h"
#include "client/file/log_file_verify.h"
#include "client/file/log_file_writer.h"
#include "client/file/log_recognition.h"

using TamLogClient::Change;
using TamLogClient::FileBytes;
using TamLogClient::FileRule;
using TamLogClient::Guarded;
using TamLogClient::LogFileImage;
using TamLogClient::LossReason;
using TamLogClient::RepairLoss;
using TamLogClient::RepairPlan;
using TamLogClient::Status;
using TamLogClient::VerifyReport;

namespace {

static_assert(TAMLOG_RULES == TamLogClient::kFileRules && TamLogClient::kFileRules <= TAMLOG_MOST_RULES);
static_assert(TAMLOG_RULE_NEWEST_FIRST == static_cast<int>(FileRule::NewestFirst));
static_assert(TAMLOG_RULE_KNOWN_TYPE == static_cast<int>(FileRule::KnownType));
static_assert(TAMLOG_RULE_REVERSED_BLOCK == static_cast<int>(FileRule::ReversedBlock));
static_assert(TAMLOG_RULE_EMPTY_FILE == static_cast<int>(FileRule::EmptyFile));
static_assert(TAMLOG_RULE_ANOTHER_LOG == static_cast<int>(FileRule::AnotherLog));
static_assert(TAMLOG_NOTE_BLANK == static_cast<int>(LossReason::Blank));
static_assert(TAMLOG_NOTE_KNOWN_TYPE == static_cast<int>(LossReason::KnownType));
static_assert(TAMLOG_NOTE_NOT_MESSAGE == static_cast<int>(LossReason::NotMessage));

std::size_t ListLength(std::uint64_t most) {
  constexpr std::size_t kUsual = 20;
  return most == 0 ? kUsual : most;
}

// --- Verifying.

void ReportFindings(const VerifyReport& report, const tamlog_verify_options& options) {
  if (options.found == nullptr) return;
  for (const TamLogClient::FileFinding& finding : report.findings) {
    tamlog_finding given{};
    given.size = sizeof(given);
    given.rule = static_cast<std::int32_t>(finding.rule);
    given.damage = IsRemark(finding.rule) ? 0 : 1;
    given.slot = finding.slot.value_or(TAMLOG_NO_SLOT);
    given.offset = finding.offset;
    given.name = RuleName(finding.rule);
    given.seen = finding.seen.c_str();
    given.allowed = finding.allowed.c_str();
    if (options.found(options.context, &given) != 0) return;
  }
}

bool TakeOptions(const tamlog_verify_options* given, tamlog_verify_options& options) {
  return TamLogClient::CopyIn(given, options) && options.live <= 1;
}

tamlog_status Verify(const LogFileImage& image, const tamlog_verify_options& options,
                     tamlog_verify_result* wanted) {
  const auto report = VerifyLogFile(image, {.most = ListLength(options.most), .live = options.live != 0});
  tamlog_verify_result result{};
  result.accepted = report.Accepted() ? 1 : 0;
  result.file_bytes = report.size;
  result.slots = report.slotsThere;
  result.damage = report.Damage();
  result.remarks = report.Remarks();
  std::copy(report.count.begin(), report.count.end(), std::begin(result.count));
  TamLogClient::CopyOut(result, wanted);
  ReportFindings(report, options);
  return result.damage > 0 ? TAMLOG_DAMAGED : TAMLOG_OK;
}

// --- Repairing.

std::uint32_t SlotAt(std::uint64_t offset) {
  const auto slot = LogFileImage::SlotAtOffset(offset);
  return slot && *slot < TAMLOG_NO_SLOT ? static_cast<std::uint32_t>(*slot) : TAMLOG_NO_SLOT;
}

tamlog_repair_note NoteAt(std::uint64_t offset, std::int32_t kind, bool saved) {
  tamlog_repair_note note{};
  note.size = sizeof(note);
  note.kind = kind;
  note.saved = saved ? 1 : 0;
  note.slot = SlotAt(offset);
  note.offset = offset;
  return note;
}

tamlog_repair_note NoteOf(const RepairLoss& loss) {
  tamlog_repair_note note = NoteAt(loss.offset, static_cast<std::int32_t>(loss.reason), false);
  note.bytes = loss.bytes;
  note.messages = loss.slots;
  note.text = ReasonText(loss.reason);
  return note;
}

// `text` holds the note's text.
tamlog_repair_note NoteOf(const Change& change, std::string& text) {
  text = change.cutTexts
             ? "an unterminated text was cut"
             : "type " + std::to_string(change.oldType) + " became " + std::to_string(change.newType);
  tamlog_repair_note note =
      NoteAt(change.offset, change.cutTexts ? TAMLOG_NOTE_TEXT_CUT : TAMLOG_NOTE_TYPE_CHANGED, true);
  note.bytes = sizeof(LogMessage);
  note.messages = 1;
  note.text = text.c_str();
  return note;
}

void ReportNotes(const RepairPlan& plan, const tamlog_repair_options& options) {
  if (options.note == nullptr) return;
  for (const RepairLoss& loss : plan.losses) {
    const tamlog_repair_note note = NoteOf(loss);
    if (options.note(options.context, &note) != 0) return;
  }
  for (const Change& change : plan.changes) {
    std::string text;
    const tamlog_repair_note note = NoteOf(change, text);
    if (options.note(options.context, &note) != 0) return;
  }
}

bool TakeOptions(const tamlog_repair_options* given, tamlog_repair_options& options) {
  constexpr std::uint32_t kFlags = TAMLOG_REPAIR_CARVE | TAMLOG_REPAIR_UNIQUE | TAMLOG_REPAIR_REPLACE;
  return TamLogClient::CopyIn(given, options) && (options.flags & ~kFlags) == 0 && options.reserved == 0 &&
         options.capacity <= std::numeric_limits<std::int32_t>::max();
}

tamlog_status CodeOfWriting(Status status) {
  if (status == Status::Ok) return TAMLOG_OK;
  const bool nameIsTaken = status == Status::Exists || status == Status::NotAFile;
  return nameIsTaken ? TAMLOG_EXISTS : TAMLOG_OUTPUT_FAILED;
}

tamlog_status Repair(const std::string& path, const std::string& output, const tamlog_repair_options& options,
                     tamlog_repair_result* wanted) {
  if (TamLogClient::IsSameFile(path, output)) return TAMLOG_BAD_ARGUMENT;
  FileBytes bytes;
  if (const Status status = bytes.Open(path); status != Status::Ok) return TamLogClient::CodeOf(status);
  const LogFileImage image(bytes);
  if (!WhyNoLog(image).empty()) return TAMLOG_NOT_A_LOG;
  const RepairPlan plan = PlanRepair(image, {.carve = (options.flags & TAMLOG_REPAIR_CARVE) != 0,
                                             .unique = (options.flags & TAMLOG_REPAIR_UNIQUE) != 0,
                                             .most = ListLength(options.most)});
  const std::uint64_t found = plan.oldestFirst.size();
  const std::uint32_t capacity = options.capacity > 0 ? options.capacity : plan.capacity;
  const std::uint64_t saved = std::min<std::uint64_t>(found, capacity);
  const auto give = [&](std::uint64_t index) {
    return SavedMessageOf(image, plan.oldestFirst[found - saved + index]);
  };
  const tamlog_status status = CodeOfWriting(TamLogClient::WriteLogFile(
      output, saved, give, capacity, (options.flags & TAMLOG_REPAIR_REPLACE) != 0));
  if (status != TAMLOG_OK) return status;
  tamlog_repair_result result{};
  result.capacity = capacity;
  result.saved = saved;
  result.carved = found + plan.repeated > plan.fromRing ? found + plan.repeated - plan.fromRing : 0;
  result.texts_cut = plan.textsCut;
  result.types_changed = plan.typesChanged;
  result.repeated = plan.repeated;
  result.left_out = found - saved;
  result.outside = plan.outside;
  result.lost = plan.lost;
  result.header_trusted = plan.headerTrusted ? 1 : 0;
  TamLogClient::CopyOut(result, wanted);
  ReportNotes(plan, options);
  return TAMLOG_OK;
}

}  // namespace

// --- The interface.

const char* TAMLOG_CALL tamlog_rule_name(int32_t rule) {
  return rule >= 0 && rule < TAMLOG_RULES ? RuleName(static_cast<FileRule>(rule)) : "unknown-rule";
}

tamlog_status TAMLOG_CALL tamlog_verify_file(const char* path, const tamlog_verify_options* options,
                                             tamlog_verify_result* result) {
  tamlog_verify_options taken;
  if (path == nullptr || !TakeOptions(options, taken) || !TamLogClient::CanReceive(result))
    return TAMLOG_BAD_ARGUMENT;
  return Guarded([&] {
    FileBytes bytes;
    if (const Status status = bytes.Open(path); status != Status::Ok) return TamLogClient::CodeOf(status);
    const LogFileImage image(bytes);
    return WhyNoLog(image).empty() ? Verify(image, taken, result) : TAMLOG_NOT_A_LOG;
  });
}

tamlog_status TAMLOG_CALL tamlog_verify_image(const void* bytes, uint64_t length,
                                              const tamlog_verify_options* options,
                                              tamlog_verify_result* result) {
  tamlog_verify_options taken;
  if ((bytes == nullptr && length > 0) || !TakeOptions(options, taken) || !TamLogClient::CanReceive(result))
    return TAMLOG_BAD_ARGUMENT;
  return Guarded([&] {
    const auto* const first = static_cast<const char*>(bytes);
    const LogFileImage image(length == 0 ? std::string_view() : std::string_view(first, length));
    return Verify(image, taken, result);
  });
}

tamlog_status TAMLOG_CALL tamlog_repair_file(const char* path, const char* output,
                                             const tamlog_repair_options* options,
                                             tamlog_repair_result* result) {
  tamlog_repair_options taken;
  if (path == nullptr || output == nullptr || !TakeOptions(options, taken) ||
      !TamLogClient::CanReceive(result))
    return TAMLOG_BAD_ARGUMENT;
  return Guarded([&] { return Repair(path, output, taken, result); });
}
