#pragma once

// Selects, formats and prints messages, with context around them, or counts them.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/format/message_formatter.h"
#include "client/log/cursor.h"
#include "records/log_file_format.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/read/follow.h"
#include "tamlogctl/read/show.h"
#include "tamlogctl/select/message_selection.h"

namespace TamLogCtl {

class Printer : public FollowTarget {
 public:
  // Returns nothing after a report on stderr; `exitCode` is then that of MakeSelection, or kUsage for another
  // wrong value.
  static std::optional<Printer> Make(const ShowOptions& options, int& exitCode);

  bool ShowsCursors() const override { return formatter.ShowsCursors(); }

  // Adds a log whose messages PrintLast will print. It must not change before that.
  void AddLog(const TamLogClient::LogSnapshot& snapshot) {
    if (ShowsCursors()) twins.Add(snapshot);
  }

  // Prints the wanted messages, as many as `options.limit` allows.
  void PrintLast(const std::vector<const LogMessage*>& oldestFirst);
  void PrintLast(const std::vector<const LogMessage*>& oldestFirst,
                 const TamLogClient::LogSnapshot& snapshot) override {
    AddLog(snapshot);
    PrintLast(oldestFirst);
  }

  // Prints one message if it is wanted. Output is buffered until Flush.
  void Print(const LogMessage& message, bool late, std::uint32_t twin) override;

  // Counts the message if it is wanted, without printing it.
  void Count(const LogMessage& message) {
    if (Wants(message)) ++matched;
  }

  // Prints the count, if requested, and all that is buffered. Called after the last message.
  bool Finish() override;

  // Does the same for output through `pager`, and ends the pager. A user who leaves the pager early has seen
  // enough: output that fails then is no failure.
  bool Finish(Pager& pager);

  // Returns whether Print has printed all that `options.limit` allows, context included.
  bool IsComplete() const { return LimitIsReached() && stillAfter == 0; }

  // Returns false once standard output has failed.
  bool Flush() override;

  bool Wants(const LogMessage& message) const {
    return selection.Wants(TamLogClient::LogMessageView(message));
  }
  const std::optional<std::uint64_t>& Since() const { return selection.Since(); }
  bool OutputFailed() const override { return failed; }
  // Returns whether somebody looks at a terminal on which nothing was printed.
  bool ShowedNothing() const { return terminal && !emitted && !options.count && !options.quiet; }
  bool NothingMatched() const override { return !selection.Empty() && matched == 0; }

 private:
  struct Earlier {
    LogMessage message{};
    bool late = false;
    std::uint32_t twin = 1;
  };

  Printer(ShowOptions chosen, TamLogClient::MessageFormatter format, MessageSelection wanted)
      : options(std::move(chosen)), formatter(std::move(format)), selection(std::move(wanted)) {}

  bool LimitIsReached() const { return options.limit.first && matched >= *options.limit.first; }
  void Emit(const LogMessage& message, bool late, std::uint32_t twin);
  void EmitGap();

  ShowOptions options;
  TamLogClient::MessageFormatter formatter;
  MessageSelection selection;
  TamLogClient::TwinNumbers twins;      // of the logs that were added
  std::vector<TextPattern> highlights;  // empty unless matches are highlighted
  std::string pending;
  std::string plain;
  std::size_t matched = 0;
  bool begun = false;  // the head was printed
  bool failed = false;

  // State of Print: messages before a match, how many to print after one, and whether any was left out.
  std::deque<Earlier> earlier;
  std::size_t stillAfter = 0;
  bool leftOut = false;
  bool emitted = false;
  bool terminal = StdoutIsTerminal();  // a pager takes its place
};

}  // namespace TamLogCtl
