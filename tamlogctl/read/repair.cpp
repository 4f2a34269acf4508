#include "tamlogctl/read/repair.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "client/file/log_file_repair.h"
#include "client/file/log_file_writer.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/read/merge.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogFileImage;
using TamLogClient::RepairLoss;
using TamLogClient::RepairPlan;
using TamLogClient::Status;

std::string PlaceOf(std::uint64_t offset) {
  std::string place = "byte " + std::to_string(offset);
  if (const auto slot = LogFileImage::SlotAtOffset(offset))
    place = "slot " + std::to_string(*slot) + " at " + place;
  return place;
}

void TellChanges(const RepairPlan& plan, std::string& text) {
  if (plan.textsCut + plan.typesChanged == 0) return;
  text += "  changed: " + std::to_string(plan.textsCut) + " unterminated texts were cut, " +
          std::to_string(plan.typesChanged) + " types that do not exist were changed\n";
  for (const TamLogClient::Change& change : plan.changes) {
    text += "    " + PlaceOf(change.offset) + ":";
    if (change.cutTexts) text += " the text was cut";
    if (change.changeType)
      text += " type " + std::to_string(change.oldType) + " became " + std::to_string(change.newType);
    text += "\n";
  }
  // A message has one of the two flaws only, or it is not believed.
  const std::uint64_t all = plan.textsCut + plan.typesChanged;
  if (plan.changes.size() < all)
    text += "    and " + std::to_string(all - plan.changes.size()) + " more; list them with --all\n";
}

bool Tell(const RepairPlan& plan, std::uint64_t messages, std::uint32_t capacity,
          const RepairVerbOptions& options) {
  std::string text = options.output + ": " + std::to_string(messages) + " messages";
  if (plan.oldestFirst.size() > plan.fromRing)
    text += ", " + std::to_string(plan.oldestFirst.size() - plan.fromRing) + " of them carved";
  text += "\n";
  if (!plan.headerTrusted)
    text += "  the header made no sense: every slot was looked at, and some may be older than the log was\n";
  if (plan.repeated > 0) text += "  left out: " + std::to_string(plan.repeated) + " that were there twice\n";
  if (messages < plan.oldestFirst.size()) {
    text += "  left out: the oldest " + std::to_string(plan.oldestFirst.size() - messages) +
            ", which do not fit into a capacity of " + std::to_string(capacity) + "\n";
  }
  if (plan.outside > 0)
    text +=
        "  left alone: " + std::to_string(plan.outside) +
        " that the header does not count, because the log was emptied or the header is wrong; --carve saves "
        "them\n";
  TellChanges(plan, text);
  if (plan.lost > 0) text += "  lost: " + std::to_string(plan.lost) + " messages at most\n";
  std::uint64_t listed = 0;
  for (const RepairLoss& loss : plan.losses) {
    listed += loss.slots;
    text += "    " + PlaceOf(loss.offset) + ": " + ReasonText(loss.reason);
    if (loss.slots > 1) text += ", " + std::to_string(loss.slots) + " messages";
    text += "\n";
  }
  if (listed < plan.lost)
    text += "    and " + std::to_string(plan.lost - listed) + " more; list them with --all\n";
  text += "  a server keeps them when its capacity is set to " + std::to_string(capacity) + "\n";
  return WriteOut(text);
}

}  // namespace

int RepairFile(const RepairVerbOptions& options) {
  if (TamLogClient::IsSameFile(options.file, options.output)) {
    Say("--output '" + options.output + "': is the damaged file itself; give another name");
    return kUsage;
  }
  auto busy = std::make_optional<Busy>("looking through " + options.file);
  std::string bytes;
  if (const Status status = TamLogClient::ReadFileBytes(options.file, bytes); status != Status::Ok) {
    busy.reset();
    Say(FileProblem(options.file, status));
    return ExitCodeOf(status);
  }
  const LogFileImage image(bytes);
  constexpr std::size_t kListed = 20;
  const auto plan = PlanRepair(image, {options.carve, options.unique,
                                       options.all ? std::numeric_limits<std::size_t>::max() : kListed});
  busy.reset();
  const std::uint64_t found = plan.oldestFirst.size();
  // Nothing is left out for want of room unless a capacity was asked for.
  const std::uint32_t capacity =
      options.capacity > 0 ? options.capacity : std::max(plan.capacity, static_cast<std::uint32_t>(found));
  const std::uint64_t messages = std::min<std::uint64_t>(found, capacity);
  DeferInterrupts();  // so that no half of a file is left
  Progress progress("writing slots", capacity);
  const auto give = [&](std::uint64_t index) {
    return SavedMessageOf(image, plan.oldestFirst[found - messages + index]);
  };
  const auto goOn = [&progress](std::uint64_t slot) {
    progress.Show(slot);
    return !Interrupted();
  };
  const Status status =
      TamLogClient::WriteLogFile(options.output, messages, give, capacity, options.force, goOn);
  if (status != Status::Ok) return ExplainTarget(options.output, status);
  return options.quiet || Tell(plan, messages, capacity, options) ? kDone : kOutputFailed;
}

}  // namespace TamLogCtl
