#pragma once

// Follows the log of the running server over its restarts: messages, and what happened to the log, come as
// one stream, so that a loss cannot be overlooked.
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
// A stream belongs to one thread, and has another of its own: a server that stops waits for the readers of
// its file, and one that holds it over a restart keeps the old section alive, with which another capacity
// cannot be set up. So the file is let go when the server stops, also while who follows is busy, for example
// with an output that is not taken.

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

// What a look at the log found. Where several fit, the last of them in this order is told.
enum class LogChange : std::uint8_t {
  None,
  Append,    // messages were added behind all others
  Rewrite,   // messages were inserted among others, or the whole ring was written again
  Cleared,   // the log was emptied
  Stopped,   // the server closed the log or is gone
  Reopened,  // the log is back; nothing is taken for granted that was known before
};

struct LogItem {
  enum class Kind : std::uint8_t {
    Message,
    Lost,      // messages were gone before they could be read; see `loss`
    Cleared,   // the log was emptied
    Stopped,   // the server closed the log or is gone; the stream waits for it
    Reopened,  // the log is back
    Blocked,   // read access was not to be had in time; the stream goes on trying
  };
  Kind kind = Kind::Message;
  const LogMessage* message = nullptr;  // Kind::Message: valid until the next call
  bool late = false;                    // Kind::Message: dated before one that was given already
  Loss loss;                            // Kind::Lost
};

struct LogStreamOptions {
  std::uint32_t timeoutMs = LogReader::kDefaultTimeoutMs;  // for one read access
  std::uint32_t intervalMs = 100;                          // between two looks at the log
  // Messages are held back until no earlier one is to be expected (one poll of the driver and two flushes of
  // the server), and then given in time order.
  bool ordered = false;
  std::string pipeName = kRequestPipeName;
  std::string mapName = kFileMapName;  // for the first opening; later ones ask the server
};

class LogStream {
 public:
  explicit LogStream(LogStreamOptions chosen = {});
  ~LogStream() { Close(); }
  LogStream(const LogStream&) = delete;
  LogStream& operator=(const LogStream&) = delete;

  // Begins behind the messages that are there: those are in Snapshot, what comes later is given by Next.
  // Errors as of LogReader::Open and LogReader::Snapshot. Damaged leaves the stream open.
  Status Open();

  // Begins where `memory` was taken: what the log has beyond it comes first.
  Status Open(const FollowerMemory& memory);

  // Waits until something changes, `timeoutMs` at most, and says what. Its messages and events wait for Next.
  // Goes on over stops of the server by itself. May say None early when messages held back have become due.
  LogChange Wait(std::uint32_t timeoutMs);

  // Gives the next message or event. TimedOut when none came within `timeoutMs`; any other status but Ok is
  // an error that will not go away by itself, and everything is closed.
  Status Next(LogItem& item, std::uint32_t timeoutMs);

  // Ordered streams only: from now on nothing is held back. For the end of a program.
  void GiveAll();

  // Messages that an ordered stream holds back now.
  std::size_t HeldBack() const { return held.Size(); }

  // The whole log as of the last look. Valid until the next call of Wait or Next.
  const LogSnapshot& Snapshot() const { return snapshot; }

  // What has been given or is waiting for Next; held back messages of an ordered stream count as given.
  FollowerMemory Memory(std::size_t mostMessages) const { return follower.Remembered(mostMessages); }

  // Lets go of the log and the server at once.
  void Close();

 private:
  struct Waiting {
    LogItem item;
    std::uint32_t slot = 0;  // of `snapshot`, unless the message is kept here:
    std::unique_ptr<LogMessage> own;
  };

  Status Begin(const FollowerMemory* memory);
  LogChange Look();
  LogChange LookInTurn();
  void Guard();
  void LetGo();
  LogChange TakeSnapshot();
  LogChange Fail(Status status);
  LogChange LoseServer();
  bool Reopen();
  void WatchSilence();
  void KeepWaiting();
  void Queue(const FollowStep& step);
  void QueueEvent(LogItem::Kind kind, const Loss& loss = {});
  bool QueueDue(bool all);
  void AskHoldTime();

  LogStreamOptions options;
  LogClient client;
  std::mutex turn;   // over `reader` and `guarding`
  LogReader reader;  // may be closed by the guard whenever `turn` is free
  bool guarding = false;
  std::condition_variable guardEnds;
  std::thread guard;
  LogSnapshot snapshot;
  LogFollower follower;
  ReorderBuffer held;
  std::deque<Waiting> waiting;
  Waiting given;                 // what the last Next gave
  std::uint64_t lastChange = 0;  // changeCount of `snapshot`
  std::uint64_t lastVisit = 0;   // ticks
  std::uint64_t lastNews = 0;    // ticks
  std::uint64_t nextLook = 0;    // ticks
  int failedPings = 0;
  Status failure = Status::Ok;  // the error that ended the stream
  bool away = false;            // the server is not there
  bool reopened = false;        // and has come back since `snapshot`
};

}  // namespace TamLogClient
