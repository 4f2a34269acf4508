#pragma once

// The verb stats: how many messages, by source, type and time, how many a minute, and how far back the ring
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
#include "tamlogctl/select/message_selection.h"
#include "tamlogctl/select/selection_options.h"

namespace TamLogCtl {

struct StatsOptions : CommonOptions {
  SelectionOptions selection;
  OutputOptions output;             // of which the names of the types and the encoding have a meaning here
  std::optional<std::size_t> last;  // only so many of the wanted ones; nothing: all
  std::vector<std::string> files;   // none: the running server's log
  std::size_t top = 20;             // sources shown; 0: all
  bool json = false;
  bool bars = false;  // also when standard output is no terminal
  bool quiet = false;
};

// Counts the wanted messages, and looks how far back all of them reach.
class StatsCollector {
 public:
  StatsCollector(MessageSelection wanted, std::optional<std::size_t> most)
      : selection(std::move(wanted)), last(most) {}

  void AddRing(const LogFileHeader& header);  // once a log
  void Add(const LogMessage& message);

  // After the last message.
  void Finish();

  const MessageStats& Wanted() const { return stats; }
  bool Searches() const { return !selection.Empty(); }

  std::uint64_t Messages() const { return messages; }  // all, wanted or not
  std::uint64_t Damaged() const { return damaged; }
  std::uint64_t Capacity() const { return capacity; }
  bool Full() const { return full; }
  const std::optional<TamLogClient::TimeWords>& Oldest() const { return oldest; }
  const std::optional<TamLogClient::TimeWords>& Newest() const { return newest; }

 private:
  MessageSelection selection;
  std::optional<std::size_t> last;
  std::multimap<std::uint64_t, LogMessage> newestWanted;  // by time, when only some are to be counted
  MessageStats stats;
  std::uint64_t messages = 0;
  std::uint64_t damaged = 0;
  std::uint64_t capacity = 0;
  bool full = false;
  std::optional<TamLogClient::TimeWords> oldest;
  std::optional<TamLogClient::TimeWords> newest;
};

// The program's exit code.
int ShowStats(const StatsOptions& options);

// Adds the running server's messages; the exit code that this alone gives, after a word on stderr.
int CollectLive(const StatsOptions& options, StatsCollector& collector);

}  // namespace TamLogCtl
