#include "tamlogctl/read/repair.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "client/file/file_bytes.h"
#include "client/file/log_file_repair.h"
#include "client/file/log_recognition.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/counted.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/base/plain_file.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/read/output_file.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogFileImage;
using TamLogClient::RepairLoss;
using TamLogClient::RepairPlan;
using TamLogClient::Status;

constexpr std::size_t kListed = 20;  // losses, changes and breaks, each

std::string PlaceOf(std::uint64_t offset) {
  std::string place = "byte " + std::to_string(offset);
  if (const auto slot = LogFileImage::SlotAtOffset(offset))
    place = "slot " + std::to_string(*slot) + " at " + place;
  return place;
}

std::string ListEnd(std::uint64_t more) {
  return more > 0 ? "    and " + std::to_string(more) + " more; list them with --all\n" : "";
}

void AppendOmitted(const RepairPlan& plan, std::uint64_t written, std::uint32_t capacity, std::string& text) {
  const std::uint64_t found = plan.oldestFirst.size();
  if (plan.repeated > 0) text += "  left out: " + Counted(plan.repeated, "duplicate") + "\n";
  if (written < found) {
    text += "  left out: the oldest " + std::to_string(found - written) + ", for which a capacity of " +
            std::to_string(capacity) + " has no room; --capacity chooses another\n";
  }
  if (plan.outside > 0) {
    text +=
        "  left out: " + Counted(plan.outside, "message") +
        " that the header does not count, because the log was cleared, bytes follow its end or the header is "
        "wrong; --carve saves them\n";
  }
}

void AppendChanges(const RepairPlan& plan, std::string& text) {
  if (plan.textsCut + plan.typesChanged == 0) return;
  text += "  changed: " + Counted(plan.textsCut, "unterminated text") + " cut, " +
          Counted(plan.typesChanged, "unknown type") + " replaced\n";
  for (const TamLogClient::Change& change : plan.changes) {
    text += "    " + PlaceOf(change.offset) + ":";
    if (change.cutTexts) text += " the text was cut";
    if (change.changeType)
      text += " type " + std::to_string(change.oldType) + " became " + std::to_string(change.newType);
    text += "\n";
  }
  // Each message counts once: one with both defects is not taken for a message.
  text += ListEnd(plan.textsCut + plan.typesChanged - plan.changes.size());
}

void AppendLosses(const RepairPlan& plan, std::string& text) {
  if (plan.lost > 0) text += "  lost: at most " + Counted(plan.lost, "message") + "\n";
  std::uint64_t listed = 0;
  for (const RepairLoss& loss : plan.losses) {
    listed += loss.slots;
    text += "    " + PlaceOf(loss.offset) + ": " + ReasonText(loss.reason);
    if (loss.slots > 1) text += ", " + Counted(loss.slots, "message");
    text += "\n";
  }
  if (listed < plan.lost) text += ListEnd(plan.lost - listed);
}

void AppendLogs(const RepairPlan& plan, std::string& text) {
  if (plan.logs.size() < 2) return;
  text += "  " + std::to_string(plan.logs.size()) + " logs were found one behind the other\n";
  for (const TamLogClient::LogPart& log : plan.logs) {
    text += "    byte " + std::to_string(log.offset) + ": ";
    text += log.headerTrusted ? Counted(static_cast<std::uint64_t>(log.header.messageCount), "message") +
                                    ", capacity " + std::to_string(log.header.maxMessages)
                              : "its header is not valid";
    text += "\n";
  }
}

void AppendBreaks(const RepairPlan& plan, bool all, std::string& text) {
  if (plan.breaks.empty()) return;
  text += "  the file lost or gained bytes at " + Counted(plan.breaks.size(), "place") +
          "; its slots were found again" +
          (plan.headerTrusted ? ", and some messages may be older than the log\n" : "\n");
  const std::size_t listed = all ? plan.breaks.size() : std::min(plan.breaks.size(), kListed);
  for (std::size_t i = 0; i < listed; ++i) {
    const TamLogClient::SlotBreak& gap = plan.breaks[i];
    const auto bytes = static_cast<std::uint64_t>(gap.bytes < 0 ? -gap.bytes : gap.bytes);
    text += "    " + PlaceOf(gap.offset) + ": " + Counted(bytes, "byte") +
            (gap.bytes < 0 ? " missing" : " added") + "; slots go on at byte " + std::to_string(gap.end) +
            "\n";
  }
  text += ListEnd(plan.breaks.size() - listed);
}

void AppendDoubt(const RepairPlan& plan, std::string& text) {
  if (plan.doubtful == 0) return;
  text +=
      "  in doubt: " + Counted(plan.doubtful, "message") + " without a date; the bytes may not be messages\n";
}

// Returns whether most of what was found is doubtful, or nothing of what was there could be saved.
bool IsPoor(const RepairPlan& plan) {
  const std::uint64_t found = plan.oldestFirst.size();
  return 2 * plan.doubtful > found || (found == 0 && (plan.lost > 0 || !plan.headerTrusted));
}

std::string ReportOf(const std::string& target, const RepairPlan& plan, std::uint64_t written,
                     std::uint32_t capacity, bool all) {
  const std::uint64_t carved = plan.oldestFirst.size() - plan.fromRing;
  std::string text = Shown(target) + ": " + Counted(written, "message");
  if (carved > 0) text += ", " + std::to_string(carved) + " of them carved";
  text += "\n";
  AppendLogs(plan, text);
  AppendBreaks(plan, all, text);
  if (!plan.headerTrusted)
    text +=
        "  the header is not valid: every slot was searched, and some messages may be older than the log\n";
  AppendOmitted(plan, written, capacity, text);
  AppendChanges(plan, text);
  AppendLosses(plan, text);
  AppendDoubt(plan, text);
  return text + "  a server keeps them if its capacity is set to " + std::to_string(capacity) + "\n";
}

}  // namespace

int RepairFile(const RepairVerbOptions& options) {
  if (TamLogClient::IsSameFile(options.file, options.output))
    return Refuse(kUsage, "NEW '" + options.output + "': is the damaged file itself; give another name");
  const PlainFile& file = PlainFileOf(options.file);
  if (!file.Readable()) return file.exitCode;
  auto busy = std::make_optional<Busy>("searching " + options.file);
  const auto fail = [&](const TamLogClient::FileStatus& status, const std::string& remark) {
    busy.reset();
    return Refuse(ExitCodeOf(status), FileProblem(options.file, status, remark));
  };
  TamLogClient::FileBytes bytes;
  if (const auto status = bytes.Open(file.path); status != Status::Ok) return fail(status, "");
  const LogFileImage image(bytes);
  if (const std::string why = WhyNoLog(image); !why.empty()) return fail(Status::NotALog, why);
  const auto plan = PlanRepair(image, {options.carve, options.unique,
                                       options.all ? std::numeric_limits<std::size_t>::max() : kListed});
  busy.reset();
  const std::uint64_t found = plan.oldestFirst.size();
  const std::uint32_t capacity = options.capacity > 0 ? options.capacity : plan.capacity;
  const std::uint64_t messages = std::min<std::uint64_t>(found, capacity);
  const auto messageAt = [&](std::uint64_t index) {
    return SavedMessageOf(image, plan.oldestFirst[found - messages + index]);
  };
  const int code = WriteLogTarget(options.output, messages, messageAt, capacity, options.force);
  if (code != kDone) return code;
  const int exitCode = IsPoor(plan) ? kDamaged : file.exitCode;
  if (options.quiet) return exitCode;
  return WriteLines(ReportOf(options.output, plan, messages, capacity, options.all)) ? exitCode
                                                                                     : kOutputFailed;
}

}  // namespace TamLogCtl
