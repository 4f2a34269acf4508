#include "tamlogctl/server/convert.h"

#include <algorithm>

#include "client/file/log_file_image.h"
#include "client/file/log_file_writer.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/counted.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/server/import_reader.h"

namespace TamLogCtl {

namespace {

using TamLogClient::Status;

constexpr std::uint32_t kUsualCapacity = 50000;
constexpr std::uint32_t kMostCapacity = 1000000;

int Write(const std::string& target, MessageSpool& messages, std::uint32_t capacity, bool force) {
  Progress progress("writing messages", messages.Size());
  const auto messageAt = [&](std::uint64_t index) {
    LogMessage message{};
    message.body = messages.At(index);
    return message;
  };
  const auto goOn = [&progress, &messages](std::uint64_t slot) {
    progress.Show(slot);
    return !Interrupted() && messages.Problem().empty();
  };
  const auto status = TamLogClient::WriteLogFile(target, messages.Size(), messageAt, capacity, force, goOn);
  if (!messages.Problem().empty())
    return Refuse(kOutputFailed, "the temporary file cannot be read: " + messages.Problem());
  if (status == Status::Ok) return kDone;
  return RefuseTarget(target, status, "add --force to replace it");
}

}  // namespace

int ConvertFiles(const ConvertOptions& options) {
  ReadingFilesOptions chosen = options;
  if (!CompleteChoice(chosen)) return kUsage;
  chosen.choice.quiet = options.quiet;
  const std::vector<std::string> sources(options.files.begin(), options.files.end() - 1);
  const std::string& target = options.files.back();
  for (const std::string& source : sources) {
    if (TamLogClient::IsSameFile(source, target))
      return Refuse(kUsage, target + ": is a file to read as well; name the new log file last");
  }
  MessageSpool messages;
  const int exitCode = ReadImports(sources, chosen.choice, messages);
  if (!HasOutput(exitCode) && exitCode != kNegative) return exitCode;
  const auto count = static_cast<std::uint32_t>(std::min<std::size_t>(messages.Size(), kMostCapacity + 1));
  const std::uint32_t capacity = options.capacity > 0 ? options.capacity : std::max(kUsualCapacity, count);
  if (count > capacity || capacity > kMostCapacity)
    return Refuse(kUsage, Counted(messages.Size(), "message") + " do not fit into a log of " +
                              std::to_string(std::min(capacity, kMostCapacity)) +
                              "; raise --capacity (at most 1000000) or convert fewer files");
  DeferInterrupts();  // so that no part of a file is left
  if (const int code = Write(target, messages, capacity, options.force); code != kDone) return code;
  if (!options.quiet) Say(target + ": " + Counted(messages.Size(), "message"));
  return exitCode;
}

}  // namespace TamLogCtl
