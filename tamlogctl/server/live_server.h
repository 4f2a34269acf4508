#pragma once

// Requests to a running server that several verbs share.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/live/log_client.h"
#include "client/message/filter_rule.h"
#include "tamlogctl/server/start_failure.h"

namespace TamLogCtl {

// Requests all filters, unless one of them would crash the server. Returns an exit code; any but kDone after
// a line on stderr.
int RequestFilters(TamLogClient::LogClient& client, std::vector<TamLogClient::FilterEntry>& filters);

// Returns the header of the shared log; nothing when no log is shared.
std::optional<LogFileHeader> SharedHeader();

// Returns its capacity, in messages.
std::optional<std::int32_t> CapacityInEffect();

// Waits until the server has moved the messages that it has received into the shared log: a restart before
// that loses them. Returns false when interrupted.
bool WaitForFlush();

// Asks a question on the terminal. Returns whether the answer is yes.
bool Confirmed(const std::string& question);

// Watches a server over the restart that a request causes. Usage:
//
//   RestartWatch watch(client);  // after the request
//   const Status status = watch.Wait();
//
// The shared log is not held open meanwhile: after a change of path the server closes it and opens it again
// at once, without waiting for its readers, and a reader that holds it open over that moment makes the server
// continue with the old one.
class RestartWatch {
 public:
  static constexpr std::uint32_t kPatienceMs = 45000;  // a stop alone may take 15 s

  // `connected` has sent the request over a connection that it still has; the restart ends that connection.
  // It has to outlive the watch.
  explicit RestartWatch(TamLogClient::LogClient& connected)
      : client(connected), connections(connected.Connections()) {}

  // Waits until the connection has ended, and the server answers again and shares its log. TimedOut after
  // `patienceMs`, or when interrupted. NotRunning as soon as the start has failed.
  TamLogClient::Status Wait(std::uint32_t patienceMs = kPatienceMs);

  // Explains on stderr why Wait did not return Ok, after `what` and a colon. Returns the exit code.
  int Refuse(TamLogClient::Status status, const std::string& what) const;

 private:
  TamLogClient::LogClient& client;
  std::uint64_t connections;
  StartFailure startFailure;
  std::string failure;
};

}  // namespace TamLogCtl
