#pragma once

// The one writer of the shared log file: opens it, keeps or empties it, brings it to the configured capacity,
// takes messages in, moves them into the ring of slots and forces the file to the disk.
//
// Threads and locks. Messages come in on pipe and driver threads (AddMessage), three timers and the pipe call
// the other operations, and a start or stop may come from any thread; all may run side by side, except
// OpenFile and CloseFile, which the caller keeps apart from each other. From the outside to the inside:
//
//   configLock   the caller's; the configuration is read under it, always before any of the following is
//   taken.
//                ClearMessages is entered with it.
//   writerTurn   write accesses of this process take turns; held while waiting for readers
//   viewLock     MessageFile's; held while mapped bytes are touched, never while waiting
//   the lock of the pending list; held while the list is touched
//
// So intake goes on while a flush waits for readers, and while it writes, unless it writes the whole ring.

#include <atomic>
#include <cstdint>
#include <string>

#include "records/log_file_format.h"
#include "store/message_file.h"
#include "store/message_file_monitor.h"
#include "store/message_list.h"
#include "store/pending_list.h"
#include "store/server_configuration.h"
#include "store/writer_turn.h"
#include "util/sync.h"
#include "util/timeout.h"
#include "util/unwind_check.h"

class MessageFileServer final : public TamLogUtil::MessageFile {
 public:
  class WriteAccess;

  // Neither is owned; both have to outlive this. Touches nothing outside the process.
  MessageFileServer(ServerConfiguration* serverConfiguration, TamLogUtil::Mutex* configurationLock);
  // Closes what is open without telling the readers; CloseFile comes first in an orderly stop.
  ~MessageFileServer() = default;

  // Opens the configured file, a file still open being closed first, without a limit to the wait for its
  // readers. A file that passes the integrity check keeps its messages, any other comes back empty; a file of
  // another capacity is compacted. What was pending is lost. Waits without limit for readers that hold the
  // named objects. Throws ExceptionWindows and ExceptionBase, each with the sentence of the step that failed;
  // close the file then.
  void OpenFile(const std::string& mapName, const std::string& headerLockName,
                const std::string& readWaitEventName, const std::string& writeWaitEventName);

  // Takes the running flag back, flushes the view to disk and closes everything, which also ends all waits of
  // this process for access to the file. Once `timeout` is over it forces its way past readers and past
  // writers of this process that wait for them. Messages still pending are not written. Nothing is left open,
  // whatever fails: the first failure is thrown at the end. Does nothing when nothing is open.
  void CloseFile(TamLogUtil::Timeout& timeout);

  // Waits until no other process has the configured file open; that is the new path when it was just changed.
  // Tries again and again without a pause. True when the file is free or missing, false when the time ran
  // out. ExceptionWindows "Failed to wait for log file to be free, CreateFile failed()".
  bool WaitUntilFree(TamLogUtil::Timeout& timeout);

  // Takes a message in, unless a filter drops it. Never waits for readers. Any thread.
  void AddMessage(const LogMessageBody& body);

  // Moves what is pending into the file; waits without limit for readers. After a failure the messages are
  // still pending. ExceptionBase "Failed to read the header during FlushWrites()", "Failed to write a message
  // during FlushWrites()", "Failed to rewrite the modified header in FlushWrites()", and what WriteAccess
  // throws.
  void FlushWrites();

  // Forces the mapped view to the disk under read access. "Failed to get file read access in WriteToDisk()",
  // "Failed to force log file changes saved to disk, FlushViewOfFile() failed in WriteToDisk()".
  void WriteToDisk();

  // Empties the file and the list of pending messages; a message handed in meanwhile is either cleared or
  // stored. The caller holds configLock. ExceptionBase "Failed to read the header during ClearMessages()",
  // "Failed to rewrite the modified header in ClearMessages()", and what WriteAccess throws.
  void ClearMessages();

  // Replaces what is in `list` by the file's messages, newest first. Reads after it has given its read access
  // back, so a writer may be at work meanwhile: that is how it has always been, and no reader is ever waited
  // for while the whole file is copied. "Failed to read log file header in LoadToList()", "Failed to read a
  // message in LoadToList()".
  void LoadToList(MessageList& list);

  // Steps of OpenFile, which it takes with the turn of this process's writers in hand.
  //
  // Whether the mapped file passes the integrity rules, read under read access. "Failed to verify log file
  // integrity, some handles or pointers are invalid", "Failed to get a copy of the header in
  // VerifyIntegrity()", "Failed to read a message while verifying file integrity".
  bool VerifyIntegrity();
  // Empties the mapped file, with fresh counters, and brings it to `maxMessage` slots. "Failed to reformat
  // log file, some handles or pointers are invalid", "Failed to reformat the log file's header", and what
  // InitializeFile throws.
  void Reformat(std::uint32_t maxMessage);

 private:
  struct Settings {
    std::string logFile;
    std::uint32_t maxMessage = 0;
  };

  // The operations of the base with other arguments, for the overloads above.
  using MessageFile::CloseFile;
  using MessageFile::OpenFile;

  Settings ReadSettings();
  bool OpenLogFile(const std::string& path, std::uint32_t& lowFileSize);
  void SetFileView();
  // Fills `loaded`, which may be null, with the messages of a sound file.
  bool Verify(MessageMirror* loaded);
  // `verified`, which may be null: the messages that the check has just seen; spares reading them again.
  void InitializeFile(std::uint32_t maxMessage, MessageMirror* verified);
  void Compact(LogFileHeader& header, std::uint32_t maxMessage);
  void ResizeFile(std::uint32_t maxMessage);
  // Makes the list of pending messages a mirror of the file, as LoadToList reads it.
  void LoadMirror();
  template <class Begin, class Append>
  void Load(Begin&& begin, Append&& append);
  void SetServerRunning();
  void MarkClosed(TamLogUtil::Timeout& timeout, std::uint32_t maxMessage);
  Ticket TakeWriteAccess(TamLogUtil::Timeout& timeout);
  void ReleaseWriteAccess(const Ticket& ticket);

  ServerConfiguration* configuration;
  TamLogUtil::Mutex* configLock;
  TamLogUtil::AutoHandle file;  // OpenFile and CloseFile only
  WriterTurn writerTurn;
  PendingList pending;
  std::atomic<bool> changed = false;  // the file's messages changed; consumed by the end of a write access
  MessageFileMonitor monitor;         // never started here; last, so that its thread ends first
};

// Write access for a scope, on one thread: readers of all processes are held out.
//
//   const MessageFileServer::WriteAccess access(&server);
//
// Its end raises changeCount if the messages changed, counts no readers any more and lets readers in. Taking
// the count of readers back is deliberate: one that died inside blocks a writer no longer than one time-out.
class MessageFileServer::WriteAccess {
 public:
  // Waits for other writers of this process and for readers, up to `timeout`; then it writes "File access
  // rights timed out, forcing access." to the diagnostic log if a writer is in its way, and goes on in any
  // case. ExceptionBase "MessageFileServer WriteAccess object created with null pointer", "Failed to grab
  // write access, some handles or pointers are invalid" (also when the file is closed meanwhile).
  explicit WriteAccess(MessageFileServer* fileServer,
                       TamLogUtil::Timeout& timeout = TamLogUtil::Timeout::Infinite);
  // Throws "Failed to release write access, some handles or pointers are invalid" and what the view throws,
  // unless the stack unwinds.
  ~WriteAccess() noexcept(false);
  WriteAccess(const WriteAccess&) = delete;
  WriteAccess& operator=(const WriteAccess&) = delete;

 private:
  friend class MessageFileServer;

  MessageFileServer* server;
  std::shared_ptr<TamLogUtil::AccessObjects> objects;  // whose end ends the wait for the turn
  WriterTurn::Hold turn;
  TamLogUtil::UnwindCheck unwindCheck;
  Ticket ticket;
};
