#pragma once

// The lines that send reads: what becomes a message, and what is reported about them.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/message/time_text.h"
#include "records/log_file_format.h"
#include "tamlogctl/server/send.h"

namespace TamLogCtl {

// Appends the messages of a line: one, or with --split several. `time` is that of --time; without it lines of
// text get the present time. Returns false, with the reason in `problem`, when the line cannot be sent.
bool AppendMessagesOf(const std::string& line, const SendOptions& options,
                      const std::optional<TamLogClient::TimeWords>& time,
                      std::vector<LogMessageBody>& messages, std::string& problem);

// Makes equal messages different, so that each one can be recognized in the log: in `origin`, which the
// server ignores, it writes a number of this run and a running number.
class MessageMarks {
 public:
  explicit MessageMarks(std::uint32_t runNumber) : run(runNumber) {}
  void Mark(LogMessageBody& message);

 private:
  std::uint32_t run;
  std::uint32_t marked = 0;
};

// The numbers of lines as ranges: "12, 57 to 60 and 90". After `kMostRanges` ranges it only counts.
class LineNumbers {
 public:
  static constexpr std::size_t kMostRanges = 20;

  // Numbers have to rise.
  void Add(std::size_t number);
  std::size_t Count() const { return count; }
  std::string Text() const;

 private:
  struct Range {
    std::size_t first = 0;
    std::size_t last = 0;
  };
  std::vector<Range> ranges;
  std::size_t count = 0;
  std::size_t omitted = 0;
};

}  // namespace TamLogCtl
