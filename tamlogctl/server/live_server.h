#pragma once

// What several verbs do with a live server: ask for its filters without harming it, judge a message as it
// would, see it come back after a restart.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/live/log_client.h"
#include "client/live/log_reader.h"
#include "client/message/filter_rule.h"

namespace TamLogCtl {

// What the server keeps of its filters and its path over a stop, seen without asking it: it ends when it is
// asked for a text that does not fit its reply. 0 when there is none or it may not be read.
struct KeptLengths {
  std::size_t longestFilter = 0;
  std::size_t path = 0;
};
KeptLengths LookAtKeptTexts();

// A kept path of so many characters ends the server when it is asked for.
inline constexpr std::size_t kEndsServer = 1024;

// Asks for all filters, unless an over-long one is kept. An exit code; what went wrong has been said.
int AskForFilters(TamLogClient::LogClient& client, std::vector<TamLogClient::FilterEntry>& filters);

// The rule that decides about such a message, for example "dropped by exclude filter 'Camera'".
std::string VerdictText(const std::vector<TamLogClient::FilterEntry>& filters,
                        const TamLogClient::FilterVerdict& verdict, std::uint32_t type);

// The capacity of the shared log; nothing when none is shared.
std::optional<std::int32_t> CapacityInEffect();

// Waits for what the server has taken and not yet moved into the shared log: a restart forgets it.
bool WaitForFlush();

// Watches a server over the restart that a request brings about.
class RestartWatch {
 public:
  static constexpr std::uint32_t kPatienceMs = 45000;  // a stop alone may take 15 s

  // After the request, which `client` has sent over a connection that it still has: the restart ends it. The
  // shared log is not held open meanwhile. After a change of path the server closes it and opens it again
  // without waiting for anybody, faster than one can look, and whoever holds it over that makes the server go
  // on with the old one.
  explicit RestartWatch(TamLogClient::LogClient& connected)
      : client(connected), connections(connected.Connections()) {}

  // Until the connection has ended, and the server answers again and shares its log. TimedOut when that takes
  // longer than `patienceMs`.
  TamLogClient::Status Wait(std::uint32_t patienceMs = kPatienceMs);

 private:
  bool WaitForStop(std::uint64_t end);

  TamLogClient::LogClient& client;
  std::uint64_t connections;
};

}  // namespace TamLogCtl
