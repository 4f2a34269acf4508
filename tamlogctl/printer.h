#pragma once

// Chooses, formats and prints messages as the options ask for.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/message_formatter.h"
#include "client/message_selection.h"
#include "store/log_file_format.h"
#include "tamlogctl/show.h"

namespace TamLogCtl {

class Printer {
 public:
  // Nothing, after a word on stderr, when an option's value makes no sense.
  static std::optional<Printer> Make(const ShowOptions& options);

  // Prints those that are wanted, at most the last `options.last` of them.
  void PrintLast(const std::vector<const LogMessage*>& oldestFirst);

  // Prints one message if it is wanted. It may be held back until Flush.
  void Print(const LogMessage& message, bool late);

  // False once standard output has failed.
  bool Flush();

  bool OutputFailed() const { return failed; }
  bool Searches() const { return !selection.Empty(); }
  std::size_t Printed() const { return printed; }

 private:
  Printer(ShowOptions chosen, TamLogClient::MessageFormatter format, TamLogClient::MessageSelection wanted)
      : options(std::move(chosen)), formatter(format), selection(std::move(wanted)) {
    formatter.AppendHead(pending);
  }

  ShowOptions options;
  TamLogClient::MessageFormatter formatter;
  TamLogClient::MessageSelection selection;
  std::string pending;
  std::size_t printed = 0;
  bool failed = false;
};

}  // namespace TamLogCtl
