#pragma once

// The only writer of the shared log file: opens it, keeps or empties it, brings it to the configured
// capacity, accepts messages, moves them into the ring of slots and forces the file to the disk.
//
// Threads and locks. Pipe and driver threads call AddMessage, three timers and pipe threads the other
// operations, and any thread may start or stop the server. All may run concurrently, except two calls of
// OpenFile. A CloseFile during an OpenFile ends it with an exception, or closes what it has opened. The
// locks, outermost first:
//
//   configLock   the caller's; the configuration is read under it before any of the others is taken;
//                ClearMessages is entered with it
//   writerTurn   write accesses of this process take turns; held while waiting for readers
//   viewLock     MessageFile's; held while mapped bytes are touched, never while waiting
//   the lock of the pending list; held while the list is touched
//
// So intake continues while a flush waits for readers, and while it writes, unless it writes the whole ring.
//
// Memory: some 12 bytes for each slot and the bodies of messages that wait for a flush, also while OpenFile
// changes the capacity.

#include <atomic>
#include <cstdint>
#include <string>

#include "records/log_file_format.h"
#include "store/message_file.h"
#include "store/message_file_monitor.h"
#include "store/message_list.h"
#include "store/pending_list.h"
#include "store/section_patience.h"
#include "store/server_configuration.h"
#include "store/writer_turn.h"
#include "util/sync.h"
#include "util/timeout.h"
#include "util/unwind_check.h"

class MessageFileServer final : public TamLogUtil::MessageFile {
 public:
  class WriteAccess;

  // Neither is owned; both must outlive this. Touches nothing outside the process.
  MessageFileServer(ServerConfiguration* serverConfiguration, TamLogUtil::Mutex* configurationLock);
  // Closes what is open without clearing the running flag; an orderly stop calls CloseFile first.
  ~MessageFileServer() = default;

  // Opens the configured file, after closing one that is still open. A file that passes the integrity check
  // keeps its messages, any other is emptied; a file of another capacity is compacted. Pending messages are
  // lost. Waits without limit for readers inside, and up to two seconds for readers that keep the section of
  // an earlier open where that one is in the way. Throws ExceptionWindows and ExceptionBase with the sentence
  // of the step that failed; the caller then closes the file.
  void OpenFile(const std::string& mapName, const std::string& headerLockName,
                const std::string& readWaitEventName, const std::string& writeWaitEventName);

  // Clears the running flag, flushes the view to disk and closes everything, which also ends all waits of
  // this process for access to the file. After `timeout` it forces its way past readers and past writers of
  // this process that wait for them. Does not write pending messages. Leaves nothing open even on failure:
  // throws the first failure at the end. Does nothing when nothing is open.
  void CloseFile(TamLogUtil::Timeout& timeout);

  // Waits until no other process has the configured file open; the configured path may just have been
  // changed. Polls without a pause. Returns true when the file is free or missing, false when the time ran
  // out. ExceptionWindows "Failed to wait for log file to be free, CreateFile failed()".
  bool WaitUntilFree(TamLogUtil::Timeout& timeout);

  // Adds a message to the pending ones unless a filter drops it. Never waits for readers. Any thread.
  void AddMessage(const LogMessageBody& body);

  // Moves the pending messages into the file; waits without limit for readers. After a failure the messages
  // are still pending. ExceptionBase "Failed to read the header during FlushWrites()", "Failed to write a
  // message during FlushWrites()", "Failed to rewrite the modified header in FlushWrites()", and what
  // WriteAccess throws.
  void FlushWrites();

  // Forces the mapped view to the disk under read access. "Failed to get file read access in WriteToDisk()",
  // "Failed to force log file changes saved to disk, FlushViewOfFile() failed in WriteToDisk()".
  void WriteToDisk();

  // Empties the file and the pending list; a message added meanwhile is either cleared or stored. The caller
  // holds configLock. ExceptionBase "Failed to read the header during ClearMessages()", "Failed to rewrite
  // the modified header in ClearMessages()", and what WriteAccess throws.
  void ClearMessages();

  // Replaces the contents of `list` by the file's messages, newest first: 560 bytes each, so not for the
  // server's own use. Reads after releasing its read access, so no writer waits while the whole file is
  // copied; a writer may change it meanwhile. "Failed to read log file header in LoadToList()", "Failed to
  // read a message in LoadToList()".
  void LoadToList(MessageList& list);

  // Steps of OpenFile, which runs them while it has the writers' turn.
  //
  // Returns whether the mapped file passes the integrity rules, under read access. "Failed to verify log file
  // integrity, some handles or pointers are invalid", "Failed to get a copy of the header in
  // VerifyIntegrity()", "Failed to read a message while verifying file integrity".
  bool VerifyIntegrity();
  // Empties the mapped file, resets its counters and brings it to `maxMessage` slots. "Failed to reformat
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
  void SetFileView(const std::string& path, SectionPatience& patience);
  bool MayInitialize(std::uint32_t maxMessage);
  // Appends the messages of a sound file to `loaded`, which may be null.
  bool Verify(MessageMirror* loaded);
  // The three return false when the header, which they read again, has been written over since the check so
  // that an index is outside the file.
  //
  // `verified`: the messages that the check has just read, so that they need not be read again; may be null.
  bool InitializeFile(std::uint32_t maxMessage, MessageMirror* verified);
  bool Compact(LogFileHeader& header, std::uint32_t maxMessage);
  // Loads the file's messages into the pending list, read in the way of LoadToList.
  bool LoadMirror();
  // Calls begin(header, number of slots in the file), then append(slot, message) for each message from the
  // newest on; nothing more, and returns false, when begin does.
  template <class Begin, class Append>
  bool Load(Begin&& begin, Append&& append);
  void ResizeFile(std::uint32_t maxMessage);
  void SetServerRunning();
  void MarkClosed(TamLogUtil::Timeout& timeout, std::uint32_t maxMessage);
  Ticket TakeWriteAccess(TamLogUtil::Timeout& timeout);
  void ReleaseWriteAccess(const Ticket& ticket);

  ServerConfiguration* configuration;
  TamLogUtil::Mutex* configLock;
  std::string sectionPath;  // of the file of the newest section; empty before the first open; OpenFile only
  bool sectionIsOfOtherFile = false;  // the former file is mapped, not the configured one; OpenFile only
  WriterTurn writerTurn;
  PendingList pending;
  std::atomic<bool> changed = false;  // the messages changed; reset by the end of a write access
  MessageFileMonitor monitor;         // never started here; last, so that its thread ends first
};

// Write access for a scope, on one thread: readers of all processes are held out.
//
//   const MessageFileServer::WriteAccess access(&server);
//
// Its end raises changeCount if the messages changed, sets readCount to 0 and lets readers in. Resetting
// readCount is deliberate: a reader that died inside blocks writers for one time-out only.
class MessageFileServer::WriteAccess {
 public:
  // Waits up to `timeout` for other writers of this process and for readers, and takes access in any case;
  // writes "File access rights timed out, forcing access." to the diagnostic log if a writer had not
  // finished. ExceptionBase "MessageFileServer WriteAccess object created with null pointer", "Failed to grab
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
