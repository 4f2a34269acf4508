#pragma once

// Follows the log of the running server over its restarts: one stream of messages and of events, so that a
// loss cannot be overlooked.
//
//   LogStream stream;
//   if (stream.Open() != Status::Ok) ...
//   LogItem item;
//   while (!stopped) {
//     if (stream.Next(item, 200) == Status::TimedOut) continue;
//     if (item.kind == LogItem::Kind::Message) Show(*item.message);
//     if (item.kind == LogItem::Kind::Lost) Warn(item.loss);
//   }
//
// A stream belongs to one thread at a time. It has a thread of its own that closes the log when the server
// stops, also while the caller is busy, for example with an output that blocks. A server that stops waits for
// the readers of its file; a reader that holds the file over a restart keeps the old section alive, and
// another capacity cannot take effect.

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "client/live/log_client.h"
#include "client/live/log_reader.h"
#include "client/log/follower_memory.h"
#include "client/log/log_follower.h"
#include "client/log/log_snapshot.h"
#include "client/log/reorder_buffer.h"
#include "client/message/status.h"

namespace TamLogClient {

// The change that a read of the log found. Where several fit, the last of them in this order is reported.
enum class LogChange : std::uint8_t {
  None,
  Append,    // messages were added after all others
  Rewrite,   // messages were inserted between others, or the whole ring was written again
  Cleared,   // the log was emptied
  Stopped,   // the server closed the log or is gone
  Reopened,  // the log is back; everything known about it before may be invalid
};

struct LogItem {
  enum class Kind : std::uint8_t {
    Message,
    Lost,      // messages were overwritten before they could be read; see `loss`
    Cleared,   // the log was emptied
    Stopped,   // the server closed the log or is gone; the stream waits for it
    Reopened,  // the log is back
    Blocked,   // the server was writing, or waiting for another reader, all the time; the stream tries again
  };
  Kind kind = Kind::Message;
  const LogMessage* message = nullptr;  // Kind::Message: valid until the next call
  bool late = false;                    // Kind::Message: dated before the message returned just before it
  Loss loss;                            // Kind::Lost
  std::uint32_t twin = 1;               // Kind::Message, with LogStreamOptions::numberTwins: for its cursor
};

struct LogStreamOptions {
  std::uint32_t timeoutMs = LogReader::kDefaultTimeoutMs;  // for one copy of the log
  std::uint32_t intervalMs = 100;                          // between two copies of the log
  // Holds each message back until no earlier one is expected (one poll of the driver and two flushes of the
  // server), and returns messages in time order.
  bool ordered = false;
  // Determines each message's number among equal ones, which takes one look at all messages of the log.
  bool numberTwins = false;
  std::string pipeName = kRequestPipeName;
  std::string mapName = kFileMapName;  // of the first opening; after a restart the server states it
};

class LogStream {
 public:
  explicit LogStream(LogStreamOptions chosen = {});
  ~LogStream() { Close(); }
  LogStream(const LogStream&) = delete;
  LogStream& operator=(const LogStream&) = delete;

  // Opens the log and begins after its messages: those are in Snapshot, and Next returns what comes later.
  // The statuses are those of LogReader::Open and LogReader::Snapshot. The stream is open after Ok and after
  // Damaged.
  Status Open();

  // Opens the log and begins where `memory` was taken: Next first returns what the log has in addition to it.
  // `heldBack` are the messages that the stream of `memory` held back then; they are returned as well.
  Status Open(const FollowerMemory& memory, const std::vector<ReorderBuffer::Ready>& heldBack = {});

  // Waits until the log changes, `timeoutMs` at most, and returns how. Messages and events are left for Next.
  // A server that stops is waited for. May return None early, when messages that were held back have become
  // due.
  LogChange Wait(std::uint32_t timeoutMs);

  // Returns the next message or event. TimedOut: none came within `timeoutMs`. Any other status but Ok is
  // permanent, and everything is closed.
  Status Next(LogItem& item, std::uint32_t timeoutMs);

  // Returns whether Next has to look at the log for its next item. A log that changes all the time always has
  // one: a program that does other work between two looks does it when this is true.
  bool Drained() const { return waiting.empty(); }

  // Releases all messages that are held back; from now on none is. For the end of a program, and for ordered
  // streams only.
  void ReleaseAll();

  // Returns the number of messages that an ordered stream holds back now.
  std::size_t HeldBack() const { return held.Size(); }

  // Returns these messages.
  std::vector<ReorderBuffer::Ready> HeldMessages() const { return held.All(); }

  // Returns the whole log as it was last read. Valid until the next call of Wait or Next.
  const LogSnapshot& Snapshot() const { return snapshot; }

  // Returns the state from which another stream continues: everything that Next has returned or will return
  // without another read of the log. Messages that an ordered stream holds back are included. At most
  // `mostMessages` are remembered.
  FollowerMemory Memory(std::size_t mostMessages) const { return follower.Remembered(mostMessages); }

  // Closes the log and the connection to the server, and ends the stream's thread. Does nothing when closed.
  void Close();

 private:
  struct Waiting {
    LogItem item;
    std::uint32_t slot = 0;           // of `snapshot`, unless the message is copied to `own`
    std::unique_ptr<LogMessage> own;  // or null
  };

  Status Begin(const FollowerMemory* memory, const std::vector<ReorderBuffer::Ready>& heldBack);
  LogChange Look();
  void Guard();
  void Release();
  LogChange TakeSnapshot();
  LogChange Fail(Status status);
  LogChange LoseServer();
  bool Reopen();
  void WatchSilence();
  void KeepWaiting();
  void Queue(const FollowStep& step);
  void QueueEvent(LogItem::Kind kind, const Loss& loss = {});
  bool QueueDue(bool all);
  void SetHoldTime();

  LogStreamOptions options;
  LogClient client;
  LogReader reader;
  std::mutex guardLock;
  bool guarding = false;  // guarded by `guardLock`
  std::condition_variable guardEnds;
  std::thread guard;
  LogSnapshot snapshot;
  LogFollower follower;
  ReorderBuffer held;
  std::deque<Waiting> waiting;
  Waiting returned;              // by the last Next
  std::uint64_t lastChange = 0;  // changeCount of `snapshot`
  std::uint64_t lastVisit = 0;   // ticks
  std::uint64_t lastNews = 0;    // ticks
  std::uint64_t nextLook = 0;    // ticks
  int failedPings = 0;
  Status failure = Status::Ok;  // the error that ended the stream
  bool away = false;            // the server has stopped
  bool reopened = false;        // the server has come back since `snapshot`
};

}  // namespace TamLogClient
