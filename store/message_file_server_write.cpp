// The write side of MessageFileServer: write access, intake, flush, clear, load, write to disk.

#include <exception>
#include <utility>

#include "store/message_file_server.h"
#include "store/message_filter.h"
#include "store/ring.h"
#include "store/with_context.h"
#include "util/diagnostic_log.h"
#include "util/exceptions.h"

using TamLogUtil::AccessObjects;
using TamLogUtil::Mutex;
using TamLogUtil::Timeout;
using TamLogUtil::WaitOutcome;
using TamLogUtil::Exceptions::ExceptionBase;
using TamLogUtil::Exceptions::ExceptionWindows;

namespace {

constexpr char kCannotTake[] = "Failed to grab write access, some handles or pointers are invalid";
constexpr char kCannotRelease[] = "Failed to release write access, some handles or pointers are invalid";
constexpr char kCannotFlush[] = "Failed to read the header during FlushWrites()";
constexpr char kCannotMove[] = "Failed to write a message during FlushWrites()";
constexpr char kCannotClear[] = "Failed to read the header during ClearMessages()";
constexpr char kCannotLoad[] = "Failed to read log file header in LoadToList()";
constexpr char kCannotWriteToDisk[] =
    "Failed to force log file changes saved to disk, FlushViewOfFile() failed in WriteToDisk()";

class MappedTarget final : public FlushTarget {
 public:
  explicit MappedTarget(MappedView& mappedView) : view(mappedView) {}

  void ReadBack(std::int64_t index, LogMessage& message) override {
    WithContext(kCannotMove, [&] { message = view.ReadSlot(index); });
  }
  void WriteSlot(std::int64_t index, std::uint64_t sequence, const LogMessage& message) override {
    WithContext(kCannotMove, [&] { view.WriteSlot(index, sequence, message); });
  }
  void WriteHeader(const LogFileHeader& header) override {
    WithContext("Failed to rewrite the modified header in FlushWrites()", [&] { view.WriteHeader(header); });
  }

 private:
  MappedView& view;
};

void GoOnUnlessClosed(WaitOutcome outcome) {
  if (outcome == WaitOutcome::Closed) throw ExceptionBase(kCannotTake);
}

MessageFileServer* NotNull(MessageFileServer* server) {
  if (server == nullptr) {
    throw ExceptionBase("MessageFileServer WriteAccess object created with null pointer");
  }
  return server;
}

}  // namespace

// Write access ------------------------------------------------------------------------------------------

// The turn comes before everything that readers could notice.
MessageFileServer::WriteAccess::WriteAccess(MessageFileServer* fileServer, Timeout& timeout)
    : server(NotNull(fileServer)),
      objects(server->PresentTicket(kCannotTake).objects),
      turn(server->writerTurn, timeout, objects->Closing()),
      exceptionsBefore(std::uncaught_exceptions()) {
  GoOnUnlessClosed(turn.Outcome());
  ticket = server->TakeWriteAccess(timeout);
}

MessageFileServer::WriteAccess::~WriteAccess() noexcept(false) {
  try {
    server->ReleaseWriteAccess(ticket);
  } catch (...) {
    // Whatever it is, a fault of the view too: a second one on its way would end the process.
    if (std::uncaught_exceptions() > exceptionsBefore) return;
    throw;
  }
}

MessageFileServer::Ticket MessageFileServer::TakeWriteAccess(Timeout& timeout) {
  Ticket ticket = PresentTicket(kCannotTake);
  AccessObjects& objects = *ticket.objects;

  // Readers that are counting themselves in or out are let finish. Given back also when the time ran out: a
  // reader that died between the two steps of its own is freed that way.
  GoOnUnlessClosed(objects.TakeHeaderLock(timeout.Remaining()));
  const WaitOutcome otherWriters = objects.LeaveHeaderLockForReadWait(timeout.Remaining());
  GoOnUnlessClosed(otherWriters);
  if (otherWriters == WaitOutcome::TimedOut) {
    TamLogUtil::WriteLog("File access rights timed out, forcing access.");
  }
  HoldReadersOut(ticket, kCannotTake);
  try {
    GoOnUnlessClosed(objects.WaitForWriteWait(timeout.Remaining()));
  } catch (const ExceptionBase&) {
    if (IsOpen()) LetReadersIn(ticket, kCannotTake);
    throw;
  }
  return ticket;
}

void MessageFileServer::ReleaseWriteAccess(const Ticket& ticket) {
  const bool raise = changed.exchange(false);
  try {
    UseView(ticket, kCannotRelease, [&](MappedView& view) { view.PublishChanges(raise ? 1 : 0); });
  } catch (...) {
    // The change is published by the next write access; readers are not left outside for good.
    if (raise) changed = true;
    LetReadersIn(ticket, kCannotRelease);
    throw;
  }
  LetReadersIn(ticket, kCannotRelease);
}

// The write path ----------------------------------------------------------------------------------------

// One look at the configuration serves the filters and the capacity: two looks could only see a change in
// between, and nobody outside can tell which of the two it came before.
void MessageFileServer::AddMessage(const LogMessageBody& body) {
  std::uint32_t maxMessage = 0;
  {
    const Mutex::Access access(configLock, Timeout::Infinite);
    if (!IsMessageKept(*configuration, body)) return;
    maxMessage = configuration->maxMessage;
  }
  pending.Add(body, maxMessage);
  // Mostly it is set already; a plain look spares the processor's barrier.
  if (!changed.load(std::memory_order_acquire)) changed = true;
}

void MessageFileServer::FlushWrites() {
  if (pending.PendingCount() == 0) return;
  const WriteAccess access(this);
  UseView(access.ticket, kCannotTake, [&](MappedView& view) {
    LogFileHeader header = WithContext(kCannotFlush, [&] { return view.ReadHeader(); });
    changed = true;
    MappedTarget target(view);
    pending.Flush(header, target);
  });
}

// The list is emptied twice: at the start, and again with the file, for messages that came in while readers
// were waited for. Neither time does a count outlive the messages it counts.
void MessageFileServer::ClearMessages() {
  pending.Clear();
  const WriteAccess access(this);
  UseView(access.ticket, kCannotTake, [&](MappedView& view) {
    LogFileHeader header = WithContext(kCannotClear, [&] { return view.ReadHeader(); });
    changed = true;
    ClearRing(header);
    WithContext("Failed to rewrite the modified header in ClearMessages()",
                [&] { view.WriteHeader(header); });
    pending.Clear();
  });
}

void MessageFileServer::LoadToList(MessageList& list) {
  Load([&](const LogFileHeader&) { list.Clear(); },
       [&](std::int64_t, const LogMessage& message) { list.AppendOldest(message); });
}

void MessageFileServer::LoadMirror() {
  MessageMirror loaded;
  LogFileHeader loadedHeader = {};
  Load([&](const LogFileHeader& header) { loadedHeader = header; },
       [&](std::int64_t slot, const LogMessage& message) {
         loaded.AppendOldest(TimeKey(message.body), slot);
       });
  pending.Assign(std::move(loaded), loadedHeader);
}

template <class Begin, class Append>
void MessageFileServer::Load(Begin&& begin, Append&& append) {
  Ticket ticket;
  {
    const ReadAccess access(this);
    ticket = access.ticket;
  }
  UseView(ticket, kCannotLoad, [&](MappedView& view) {
    const LogFileHeader header = WithContext(kCannotLoad, [&] { return view.ReadHeader(); });
    begin(header);
    for (std::int32_t i = 0; i < header.messageCount; ++i) {
      const std::int64_t slot = SlotFromNewest(header, i);
      append(slot,
             WithContext("Failed to read a message in LoadToList()", [&] { return view.ReadSlot(slot); }));
    }
  });
}

// The size is computed before read access is taken: the configuration's lock is never taken inside it.
void MessageFileServer::WriteToDisk() {
  const std::uint64_t size = LogFileSize(ReadSettings().maxMessage);
  const ReadAccess access =
      WithContext("Failed to get file read access in WriteToDisk()", [this] { return ReadAccess(this); });
  UseView(access.ticket, kCannotWriteToDisk, [&](MappedView& view) {
    if (!view.FlushToDisk(size)) throw ExceptionWindows(kCannotWriteToDisk);
  });
}
