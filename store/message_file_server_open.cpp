// The open side of MessageFileServer: open, verify, reformat, compact, load, close.
// message_file_server_disk.cpp has its system calls.
//
// MaxMessage is read once per open, together with the path: the configuration's lock must not be taken while
// a write or read access is held, since a clear holds that lock while it waits for access.

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

#include "pipe/security_attributes.h"
#include "store/compaction.h"
#include "store/integrity.h"
#include "store/message_file_server.h"
#include "store/ring.h"
#include "store/with_context.h"
#include "util/exceptions.h"

using TamLogUtil::Mutex;
using TamLogUtil::Timeout;
using TamLogUtil::Exceptions::ExceptionWindows;

namespace {

constexpr char kCannotMap[] = "Failed to open a file mapping, CreateFileMapping() failed";
constexpr char kCannotVerify[] = "Failed to verify log file integrity, some handles or pointers are invalid";
constexpr char kCannotReformat[] = "Failed to reformat log file, some handles or pointers are invalid";
constexpr char kCannotSetRunning[] =
    "Failed to set server running flag to true in log file during OpenFile()";
constexpr char kCannotInitialize[] = "Failed to get header and lock name copies in InitializeFile()";
constexpr char kCannotRewrite[] = "Failed to rewrite a message during file compaction in InitializeFile()";
constexpr char kCannotWriteBack[] =
    "Failed to write modified header and lock names to the file in InitializeFile()";
constexpr char kCannotLoad[] = "Failed to read log file header in LoadToList()";
constexpr char kCannotClearRunning[] =
    "Failed to set server running flag to false in log file during CloseFile()";

// The mapped slots as the integrity check sees them.
class MappedSlots final : public SlotSource {
 public:
  explicit MappedSlots(const MappedView& mappedView) : view(mappedView) {}

  std::size_t LookAt(std::int64_t newest, std::size_t count, SlotCheck& check) override {
    if (!view.HasSlot(newest)) return 0;
    WithContext("Failed to read a message while verifying file integrity", [&] {
      view.LookAtSlots(newest + 1 - static_cast<std::int64_t>(count), count,
                       [&](const LogMessage* slots) { check.Look(slots, count); });
    });
    return count;
  }

 private:
  const MappedView& view;
};

void CopyLockName(char (&field)[kLockNameSize], const std::string& name) {
  std::strncpy(field, name.c_str(), sizeof field);
  field[sizeof field - 1] = '\0';
}

}  // namespace

MessageFileServer::MessageFileServer(ServerConfiguration* serverConfiguration, Mutex* configurationLock)
    : configuration(serverConfiguration), configLock(configurationLock), monitor(nullptr, 5000, 4000) {}

void MessageFileServer::OpenFile(const std::string& mapName, const std::string& headerLockName,
                                 const std::string& readWaitEventName,
                                 const std::string& writeWaitEventName) {
  const Settings settings = ReadSettings();
  CloseFile(Timeout::Infinite);

  // A flush or clear that begins meanwhile waits until the open is complete.
  const WriterTurn::Hold turn(writerTurn, Timeout::Infinite, nullptr);
  // The slots in the list are those of the closed file.
  pending.Clear();
  EveryoneSecurity security(kEventAccess);
  OpenFile(mapName, headerLockName, readWaitEventName, writeWaitEventName, security.GetSecurityAttributes());

  std::uint32_t lowFileSize = 0;
  bool existed = false;
  SectionPatience patience;
  patience.Try([&](bool /*last*/) { existed = OpenLogFile(settings.logFile, lowFileSize); });
  bool reformat = true;
  if (existed && lowFileSize != 0) {
    SetFileView(settings.logFile, patience);
    MessageMirror verified;
    reformat = !Verify(&verified) || !MayInitialize(settings.maxMessage) ||
               !InitializeFile(settings.maxMessage, &verified);
  }

  // Only 32 bits of the file's size are compared, so a file above 4 GB never compares equal: it is set to the
  // size it has and checked a second time, which costs time and changes nothing.
  if (lowFileSize != LogFileSize(settings.maxMessage) && !sectionIsOfOtherFile) {
    CloseView();
    patience.Try([&](bool /*last*/) { ResizeFile(settings.maxMessage); });
    SetFileView(settings.logFile, patience);
    if (sectionIsOfOtherFile) {
      reformat = !VerifyIntegrity() || !MayInitialize(settings.maxMessage) ||
                 !InitializeFile(settings.maxMessage, nullptr);
    }
    // A compaction leaves the newest message in slot 0, so this check empties a file whose capacity changed,
    // unless at most one message is left or all have the same time. Held by
    // OpenFile.AChangedCapacityEmptiesAFileOfDifferentTimes.
    if (!reformat) reformat = !VerifyIntegrity();
  }
  if (reformat) {
    if (sectionIsOfOtherFile) throw ExceptionWindows(kCannotMap, nullptr, SectionPatience::kAlreadyExists);
    Reformat(settings.maxMessage);
  }
  SetServerRunning();
}

// After a change of path an old section may be one of the former file, into which the messages would go. The
// readers of such a section get the time to leave; one that they keep longer is taken over if it is large
// enough, and the next open tries again. It is served as it is or not at all: a compaction or a reformat
// would destroy the messages of the former file, and a resize those of the configured one. Held by
// OpenOtherFile.
void MessageFileServer::SetFileView(const std::string& path, SectionPatience& patience) {
  CloseView();
  EveryoneSecurity security(kFileMapAccess);
  const bool otherFile = !sectionPath.empty() && sectionPath != path;
  patience.Try([&](bool last) {
    const auto older = otherFile && !last ? MappedView::Older::Refuse : MappedView::Older::TakeOver;
    const bool created = MapWithoutReaders(security.GetSecurityAttributes(), older);
    if (created || sectionPath.empty()) sectionPath = path;
    sectionIsOfOtherFile = otherFile && !created;
  });
}

// Returns false for the section of another file that an initialization would change.
bool MessageFileServer::MayInitialize(std::uint32_t maxMessage) {
  if (!sectionIsOfOtherFile) return true;
  const ReadAccess access(this);
  return UseView(access.ticket, kCannotInitialize, [maxMessage](MappedView& view) {
    const LogFileHeader header = WithContext(kCannotInitialize, [&] { return view.ReadHeader(); });
    return header.maxMessages == static_cast<std::int32_t>(maxMessage);
  });
}

bool MessageFileServer::VerifyIntegrity() {
  return Verify(nullptr);
}

bool MessageFileServer::Verify(MessageMirror* loaded) {
  PresentTicket(kCannotVerify);
  const ReadAccess access(this);
  return UseView(access.ticket, kCannotVerify, [loaded](MappedView& view) {
    const LogFileHeader header = WithContext("Failed to get a copy of the header in VerifyIntegrity()",
                                             [&] { return view.ReadHeader(); });
    MappedSlots slots(view);
    return FirstBrokenRule(header, slots, loaded) == IntegrityRule::NoneBroken;
  });
}

// changeCount ends as 2: 1 is written here, and the end of this write access counts the change.
// Held by OpenFile.AReformatWritesChangeCountOneAndItsReleaseRaisesIt.
void MessageFileServer::Reformat(std::uint32_t maxMessage) {
  PresentTicket(kCannotReformat);
  {
    const WriteAccess access(this);
    changed = true;
    UseView(access.ticket, kCannotReformat, [](MappedView& view) {
      WithContext("Failed to reformat the log file's header", [&] {
        LogFileHeader header = view.ReadHeader();
        ReformatRing(header);
        view.WriteHeader(header);
      });
    });
  }
  // When another process has written over the header again, the server starts with an empty list, and its
  // flushes report the rest until the next start.
  if (!InitializeFile(maxMessage, nullptr)) pending.Clear();
}

bool MessageFileServer::InitializeFile(std::uint32_t maxMessage, MessageMirror* verified) {
  LogFileHeader header = {};
  LockNames names = {};
  bool inside = false;
  {
    const ReadAccess access(this);
    UseView(access.ticket, kCannotInitialize, [&](MappedView& view) {
      WithContext(kCannotInitialize, [&] {
        header = view.ReadHeader();
        names = view.ReadLockNames();
      });
      inside = RingIsInside(header, view.SlotCount());
    });
  }
  if (!inside) return false;

  const bool compacts = header.maxMessages != static_cast<std::int32_t>(maxMessage);
  if (compacts) {
    // Freed before the list of the compacted file is loaded, so that only one of the two is in memory.
    if (verified != nullptr) verified->Clear();
    if (!Compact(header, maxMessage)) return false;
  }

  CopyLockName(names.name[0], Names().headerLock);
  CopyLockName(names.name[1], Names().readWait);
  CopyLockName(names.name[2], Names().writeWait);
  {
    // The copy from above is written back unchanged: this undoes the changeCount that the end of a compaction
    // raised, and readCount is 1, as it was under this function's own read access, until the end of this
    // write access. Held by OpenFile.TheHeaderCopyTakenBeforeACompactionIsWrittenBack.
    const WriteAccess access(this);
    UseView(access.ticket, kCannotWriteBack, [&](MappedView& view) {
      WithContext(kCannotWriteBack, [&] {
        view.WriteHeader(header);
        view.WriteLockNames(names);
      });
    });
  }
  if (verified == nullptr || compacts) return LoadMirror();
  pending.Assign(std::move(*verified), header);
  return true;
}

// Stores the newest message in slot 0, the reverse of the order in which the ring is otherwise read. A file
// of the right size whose header names another capacity keeps that order until the next open (without a
// resize no second check follows), and its list in memory is oldest first. Readers in the field depend on it;
// do not reverse it. Held by OpenFile.CompactionWithoutResizeLeavesTheReversedOrder.
bool MessageFileServer::Compact(LogFileHeader& header, std::uint32_t maxMessage) {
  // A message that cannot be read ends the open before anything is written.
  LogFileHeader ring = {};
  const bool loaded = Load(
      [&](const LogFileHeader& read, std::int64_t slotCount) {
        ring = read;
        return RingIsInside(ring, slotCount);
      },
      [](std::int64_t, const LogMessage&) {});
  if (!loaded) return false;
  const auto kept = std::min<std::int64_t>(ring.messageCount, maxMessage);
  {
    const WriteAccess access(this);
    changed = true;
    UseView(access.ticket, kCannotRewrite, [&](MappedView& view) {
      WithContext(kCannotRewrite, [&] { MoveNewestToFront(ring, kept, view); });
    });
  }
  SetRingCapacity(header, maxMessage);
  return true;
}

void MessageFileServer::LoadToList(MessageList& list) {
  Load(
      [&](const LogFileHeader&, std::int64_t) {
        list.Clear();
        return true;
      },
      [&](std::int64_t, const LogMessage& message) { list.AppendOldest(message); });
}

bool MessageFileServer::LoadMirror() {
  MessageMirror loaded;
  LogFileHeader loadedHeader = {};
  const bool sound = Load(
      [&](const LogFileHeader& header, std::int64_t slotCount) {
        loadedHeader = header;
        return RingIsInside(header, slotCount);
      },
      [&](std::int64_t slot, const LogMessage& message) {
        loaded.AppendOldest(TimeKey(message.body), slot);
      });
  if (sound) pending.Assign(std::move(loaded), loadedHeader);
  return sound;
}

template <class Begin, class Append>
bool MessageFileServer::Load(Begin&& begin, Append&& append) {
  Ticket ticket;
  {
    const ReadAccess access(this);
    ticket = access.ticket;
  }
  return UseView(ticket, kCannotLoad, [&](MappedView& view) {
    const LogFileHeader header = WithContext(kCannotLoad, [&] { return view.ReadHeader(); });
    if (!begin(header, view.SlotCount())) return false;
    for (std::int32_t i = 0; i < header.messageCount; ++i) {
      const std::int64_t slot = SlotFromNewest(header, i);
      append(slot,
             WithContext("Failed to read a message in LoadToList()", [&] { return view.ReadSlot(slot); }));
    }
    return true;
  });
}

void MessageFileServer::SetServerRunning() {
  UseView(PresentTicket(kCannotSetRunning), kCannotSetRunning,
          [](MappedView& view) { WithContext(kCannotSetRunning, [&] { view.SetServerRunning(true); }); });
}

// Ends the waits of other threads only after it has taken write access or the time ran out: they may still
// get access while this one waits for the same readers. Without a limit (a file opened over an open one) a
// reader that never leaves therefore blocks this like every other writer.
//
// A stop whose time is over calls this while a restart's thread may be in OpenFile: see
// MessageFile::KeepFile.
void MessageFileServer::CloseFile(Timeout& timeout) {
  std::exception_ptr failure;
  const auto attempt = [&failure](auto&& step) {
    try {
      step();
    } catch (...) {
      if (failure == nullptr) failure = std::current_exception();
    }
  };
  if (IsOpen()) attempt([&] { MarkClosed(timeout, ReadSettings().maxMessage); });
  attempt([&] { MessageFile::CloseFile(); });
  if (failure != nullptr) std::rethrow_exception(failure);
}

void MessageFileServer::MarkClosed(Timeout& timeout, std::uint32_t maxMessage) {
  const WriteAccess access(this, timeout);
  UseView(access.ticket, kCannotClearRunning, [&](MappedView& view) {
    WithContext(kCannotClearRunning, [&] { view.SetServerRunning(false); });
    if (!view.FlushToDisk(LogFileSize(maxMessage))) {
      throw ExceptionWindows(
          "Failed to force log file changes to be saved to disk, FlushViewOfFile() failed in CloseFile()");
    }
  });
}
