#pragma once

// Chooses, formats and prints messages as the options ask for, with the context around them, or counts them.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/format/message_formatter.h"
#include "records/log_file_format.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/read/follow.h"
#include "tamlogctl/read/show.h"
#include "tamlogctl/select/message_selection.h"

namespace TamLogCtl {

class Printer : public FollowTarget {
 public:
  // Nothing, after a word on stderr, when an option's value makes no sense.
  static std::optional<Printer> Make(const ShowOptions& options);

  void SetLog(const LogFileHeader& header) override { formatter.SetLog(header); }

  // Prints those that are wanted, at most the last `options.last` of them.
  void PrintLast(const std::vector<const LogMessage*>& oldestFirst) override;

  // Prints one message if it is wanted. It may be held back until Flush.
  void Print(const LogMessage& message, bool late) override;

  // Only counts it, if it is wanted.
  void Count(const LogMessage& message) {
    if (Wants(message)) ++matched;
  }

  // After the last message: prints the number if that was asked for, and all that is held back.
  bool Finish() override;

  // False once standard output has failed.
  bool Flush() override;

  bool Wants(const LogMessage& message) const {
    return selection.Wants(TamLogClient::LogMessageView(message));
  }
  const std::optional<std::uint64_t>& Since() const { return selection.Since(); }
  bool OutputFailed() const override { return failed; }
  bool NothingMatched() const override { return Searches() && matched == 0; }
  bool Searches() const { return !selection.Empty(); }
  std::size_t Matched() const { return matched; }

 private:
  struct Earlier {
    LogMessage message{};
    bool late = false;
  };

  Printer(ShowOptions chosen, TamLogClient::MessageFormatter format, MessageSelection wanted)
      : options(std::move(chosen)), formatter(std::move(format)), selection(std::move(wanted)) {}

  void Emit(const LogMessage& message, bool late);
  void EmitGap();

  ShowOptions options;
  TamLogClient::MessageFormatter formatter;
  MessageSelection selection;
  std::vector<TextPattern> highlights;  // none when nothing is to be marked
  std::string pending;
  std::string plain;
  std::size_t matched = 0;
  bool begun = false;  // the head is out
  bool failed = false;

  // Of Print: what came before, what is still to come after a match, and whether something was left out.
  std::deque<Earlier> earlier;
  std::size_t stillAfter = 0;
  bool leftOut = false;
  bool emitted = false;
};

}  // namespace TamLogCtl
