#pragma once

// The verb stats: counts messages by source, type and time, and shows their rate and how far back the ring
// reaches.

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "records/log_file_format.h"
#include "tamlogctl/base/common_options.h"
#include "tamlogctl/base/output_options.h"
#include "tamlogctl/read/message_stats.h"
#include "tamlogctl/select/message_choice.h"
#include "tamlogctl/select/message_selection.h"
#include "tamlogctl/select/selection_options.h"

namespace TamLogCtl {

struct StatsOptions : CommonOptions {
  SelectionOptions selection;
  OutputOptions output;            // only the names of the types and the encoding are used
  MessageLimit limit;              // count so many of the wanted messages only
  std::vector<std::string> files;  // empty: the log of the running server
  std::size_t top = 20;            // sources to list; 0: all
  bool json = false;
  bool bars = false;  // print bars even if standard output is no terminal
  bool quiet = false;
  bool noPager = false;
};

// Counts the wanted messages, and finds the oldest and the newest of all messages.
class StatsCollector {
 public:
  StatsCollector(MessageSelection wanted, MessageLimit most) : selection(std::move(wanted)), limit(most) {}

  void AddRing(const LogFileHeader& header);  // once for each log
  void Add(const LogMessage& message);

  // Called after the last message.
  void Finish();

  const MessageStats& Wanted() const { return stats; }
  bool Searches() const { return !selection.Empty(); }

  std::uint64_t Messages() const { return messages; }  // all, wanted or not
  std::uint64_t Capacity() const { return capacity; }
  bool Full() const { return full; }
  const std::optional<TamLogClient::TimeWords>& Oldest() const { return oldest; }
  const std::optional<TamLogClient::TimeWords>& Newest() const { return newest; }

 private:
  MessageSelection selection;
  MessageLimit limit;
  std::multimap<std::uint64_t, LogMessage> limited;  // by time; used with a limit
  MessageStats stats;
  std::uint64_t messages = 0;
  std::uint64_t capacity = 0;
  bool full = false;
  std::optional<TamLogClient::TimeWords> oldest;
  std::optional<TamLogClient::TimeWords> newest;
};

// Returns the program's exit code; every failure has been reported on stderr.
int ShowStats(const StatsOptions& options);

}  // namespace TamLogCtl
