#include "tamlogctl/repair.h"

#include <algorithm>
#include <filesystem>
#include <limits>

#include "client/log_file_repair.h"
#include "client/log_file_writer.h"
#include "tamlogctl/console.h"
#include "tamlogctl/exit_code.h"
#include "tamlogctl/progress.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogFileImage;
using TamLogClient::Loss;
using TamLogClient::RepairPlan;
using TamLogClient::Status;

bool IsSameFile(const std::string& left, const std::string& right) {
  const auto path = [](const std::string& utf8) {
    return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
  };
  std::error_code error;
  return left == right || std::filesystem::equivalent(path(left), path(right), error);
}

std::string PlaceOf(const Loss& loss) {
  std::string place = "byte " + std::to_string(loss.offset);
  if (loss.offset >= kSlotsOffset && (loss.offset - kSlotsOffset) % sizeof(LogMessage) == 0)
    place = "slot " + std::to_string((loss.offset - kSlotsOffset) / sizeof(LogMessage)) + " at " + place;
  return place;
}

bool Tell(const RepairPlan& plan, std::uint64_t messages, std::uint32_t capacity,
          const RepairVerbOptions& options) {
  std::string text = options.output + ": " + std::to_string(messages) + " messages";
  if (plan.oldestFirst.size() > plan.fromRing)
    text += ", " + std::to_string(plan.oldestFirst.size() - plan.fromRing) + " of them carved";
  if (plan.mended > 0) text += ", " + std::to_string(plan.mended) + " given an end of their text";
  text += "\n";
  if (!plan.headerTrusted)
    text += "  the header made no sense: every slot was looked at, and some may be older than the log was\n";
  if (plan.repeated > 0) text += "  left out: " + std::to_string(plan.repeated) + " that were there twice\n";
  if (messages < plan.oldestFirst.size()) {
    text += "  left out: the oldest " + std::to_string(plan.oldestFirst.size() - messages) +
            ", which do not fit into a capacity of " + std::to_string(capacity) + "\n";
  }
  if (plan.lost > 0) text += "  lost: " + std::to_string(plan.lost) + " messages at most\n";
  std::uint64_t listed = 0;
  for (const Loss& loss : plan.losses) {
    listed += loss.slots;
    text += "    " + PlaceOf(loss) + ": " + ReasonText(loss.reason);
    if (loss.slots > 1) text += ", " + std::to_string(loss.slots) + " messages";
    text += "\n";
  }
  if (listed < plan.lost)
    text += "    and " + std::to_string(plan.lost - listed) + " more; list them with --all\n";
  text += "  a server keeps them when its capacity is set to " + std::to_string(capacity) + "\n";
  return WriteOut(text);
}

int Explain(const RepairVerbOptions& options, Status status) {
  if (status == Status::BadValue) {
    Say(options.output + ": is there already; give another name, or --force to replace it");
    return kUsage;
  }
  Say(options.output + ": cannot be written: " + StatusText(status));
  return status == Status::AccessDenied ? kAccessDenied : kOutputFailed;
}

}  // namespace

int RepairFile(const RepairVerbOptions& options) {
  if (IsSameFile(options.file, options.output)) {
    Say("--output '" + options.output + "': is the damaged file itself; give another name");
    return kUsage;
  }
  std::string bytes;
  if (const Status status = TamLogClient::ReadFileBytes(options.file, bytes); status != Status::Ok) {
    Say(options.file + ": " + StatusText(status));
    return ExitCodeOf(status);
  }
  const LogFileImage image(bytes);
  constexpr std::size_t kListed = 20;
  const auto plan = PlanRepair(image, {options.carve, options.unique,
                                       options.all ? std::numeric_limits<std::size_t>::max() : kListed});
  const std::uint64_t found = plan.oldestFirst.size();
  // Nothing is left out for want of room unless a capacity was asked for.
  const std::uint32_t capacity =
      options.capacity > 0 ? options.capacity : std::max(plan.capacity, static_cast<std::uint32_t>(found));
  const std::uint64_t messages = std::min<std::uint64_t>(found, capacity);
  Progress progress("writing messages", messages);
  const auto give = [&](std::uint64_t index) {
    progress.Show(index);
    return SavedMessageOf(image, plan.oldestFirst[found - messages + index]);
  };
  const Status status = TamLogClient::WriteLogFile(options.output, messages, give, capacity, options.force);
  if (status != Status::Ok) return Explain(options, status);
  return options.quiet || Tell(plan, messages, capacity, options) ? kDone : kOutputFailed;
}

}  // namespace TamLogCtl
