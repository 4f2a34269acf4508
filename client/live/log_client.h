#pragma once

// Sends requests to the server over its pair of pipes, as docs/pipe_protocol.md describes them: submits
// messages, and reads and changes settings, filters and the path of the log. Connects at the first call, and
// again after the server ended an idle connection.
//
// Thread-safe: calls of several threads take turns. Every call ends within the time-out.
//
// All calls may return NotRunning, AccessDenied, TimedOut, Refused, Disconnected and SystemError; the others
// are stated below. After Disconnected and TimedOut it is not known whether the server carried out the
// request.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/message/filter_rule.h"
#include "client/message/status.h"
#include "records/pipe_protocol.h"

namespace TamLogClient {

struct LogClientOptions {
  std::string pipeName =
      kRequestPipeName;            // of the request pipe; kReplyPipeSuffix is added for the reply pipe
  std::uint32_t timeoutMs = 5000;  // for a whole call, connecting included
  std::uint32_t absentMs = 1000;   // no pipe for this long: NotRunning
};

class LogClient {
 public:
  explicit LogClient(const LogClientOptions& chosen = {});
  ~LogClient();
  LogClient(const LogClient&) = delete;
  LogClient& operator=(const LogClient&) = delete;

  // Asks whether the server answers. Ok: it does.
  Status Ping();

  // Submits a message. Ok: the server accepted it; its filters may drop it. TooLong: source or text has no
  // zero byte; BadValue: the type does not exist; neither is sent. After Disconnected or TimedOut the message
  // may have been stored, and sending it again may store it twice.
  Status Submit(const LogMessageBody& message);
  // Also sets `left` to whether the message left the client. While it is false the message was not stored,
  // whatever the status is, and may be sent again.
  Status Submit(const LogMessageBody& message, bool& left);

  // Returns the name of the shared log's mapping, for LogReader::Open.
  Status GetFileMapName(std::string& name);

  // Paths are in the code page of the server's machine. GetLogFile returns the path of the server's next
  // start.
  Status GetLogFile(std::string& path);
  Status GetDefaultLogFile(std::string& path);
  // Sets the path of the log, with effect from the next stop of the server. TooLong above kLongestLogPath;
  // BadValue when empty or with a zero byte.
  Status SetLogFile(const std::string& path);

  Status GetSettings(SettingsBody& settings);
  // Replaces the settings; the server restarts a second later. BadValue when the capacity or a rate is 0: the
  // server would accept it, and a rate of 0 keeps a processor busy.
  Status SetSettings(const SettingsBody& settings);

  // Returns one filter; NoSuchFilter after the last one. Include filters come first.
  Status GetFilter(std::uint32_t index, FilterEntry& filter);
  Status GetFilters(std::vector<FilterEntry>& filters);
  // Adds a filter. TooLong above 127 bytes: the server would end when the filter is read. BadValue with a
  // zero byte.
  Status AddFilter(const FilterEntry& filter);
  Status ClearFilters();
  // Empties the log; the server restarts a second later.
  Status ClearLog();

  // Ends the connection, if there is one; the next call connects again.
  void Disconnect();

  // Returns the number of connections made so far. When a call has raised it, the server may have been
  // restarted before that call, and what it had accepted but not yet written (the last 200 ms) is lost.
  std::uint64_t Connections() const;

 private:
  class Connection;

  Status Call(const PipeRequest& request, ReplyCode expected, PipeReply& reply);
  Status Call(const PipeRequest& request, ReplyCode expected, PipeReply& reply, bool& sent);
  Status Carry(const PipeRequest& request, PipeReply& reply, bool& sent);
  Status CallPlain(RequestCode code);
  Status CallPath(RequestCode code, ReplyCode expected, std::string& path);

  std::unique_ptr<Connection> connection;
};

}  // namespace TamLogClient
