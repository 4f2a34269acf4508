#pragma once

// Talks to the server over its pair of pipes, as docs/pipe_protocol.md describes them: hands in messages,
// asks and sets. Connects by itself when it is needed, and again after the server ended an idle connection.
//
// Thread-safe: calls of several threads take turns. Every call is bounded by the time-out.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/message/filter_rule.h"
#include "client/message/status.h"
#include "records/pipe_protocol.h"

namespace TamLogClient {

// The longest path of a log file, in bytes. A server takes a longer one, stores it, and cannot start again.
inline constexpr std::size_t kMostPath = 255;

struct LogClientOptions {
  std::string pipeName = kRequestPipeName;  // the reply pipe's name is this and kReplyPipeSuffix
  std::uint32_t timeoutMs = 5000;           // for a whole call, connecting included
  std::uint32_t absentMs = 1000;            // no pipe for so long: the server is not running
};

class LogClient {
 public:
  explicit LogClient(const LogClientOptions& chosen = {});
  ~LogClient();
  LogClient(const LogClient&) = delete;
  LogClient& operator=(const LogClient&) = delete;

  Status Ping();

  // Ok says that the server took the message, not that its filters kept it. TooLong when source or text has
  // no zero byte, BadValue for a type that does not exist: neither is sent. After Disconnected or TimedOut
  // the message may have been stored; sending it again may store it twice.
  Status Submit(const LogMessageBody& message);

  Status GetFileMapName(std::string& name);
  Status GetLogFile(std::string& path);
  Status GetDefaultLogFile(std::string& path);
  // TooLong above kMostPath.
  Status SetLogFile(const std::string& path);

  Status GetSettings(SettingsBody& settings);
  // BadValue when a rate is 0: the server would take it and keep a processor busy.
  Status SetSettings(const SettingsBody& settings);

  // NoSuchFilter behind the last one. Include filters come first.
  Status GetFilter(std::uint32_t index, FilterEntry& filter);
  Status GetFilters(std::vector<FilterEntry>& filters);
  // TooLong above 127 bytes: the server would end when asked for it.
  Status AddFilter(const FilterEntry& filter);
  Status ClearFilters();
  Status ClearLog();

  // Ends the connection, if there is one; the next call connects again.
  void Disconnect();

  // How many connections were made so far. When a call has raised it, the server may have been restarted
  // before that, and what it had taken but not yet written (the last 200 ms) is lost.
  std::uint64_t Connections() const;

 private:
  class Connection;

  Status Call(const PipeRequest& request, ReplyCode expected, PipeReply& reply);
  Status Carry(const PipeRequest& request, PipeReply& reply);
  Status CallPlain(RequestCode code);
  Status CallPath(RequestCode code, ReplyCode expected, std::string& path);

  std::unique_ptr<Connection> connection;
};

}  // namespace TamLogClient
