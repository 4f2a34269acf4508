#pragma once

// The server object: the service that the manager starts and stops, the handler of every pipe request and the
// callback of every timer. It owns all other parts and decides the order in which they start and stop.
//
// Threads that call it: the manager's (OnStart, OnStop), three timer threads (OnTimer), one thread per pipe
// connection (HandleMessage, ConnectionEnded), a restart thread (Restart).
//
// Locks, outermost first:
//   a Lifecycle::Turn  start and stop sequences take turns
//   messageLock        intake of messages (driver poll, submit request) and the whole start sequence
//   configLock         every field of `configuration`, the registry while it is loaded or saved, the renaming
//                      of the log file; messageFile takes it too when it reads settings
//   restartLock        the test-and-set of `restarting`; no other lock is taken under it
// The stop sequence does not take messageLock. ClearLog holds configLock while messageFile waits for the
// readers of the file, so a reader that keeps its access also blocks every request about settings, the intake
// of messages, and a stop in its first steps. That is accepted: readers keep access for milliseconds.

#include <atomic>
#include <cstdint>

#include "pipe/pipe_server.h"
#include "records/pipe_protocol.h"
#include "server/lifecycle.h"
#include "server/service_interface.h"
#include "store/message_file_server.h"
#include "store/server_configuration.h"
#include "util/native_handle.h"
#include "util/service.h"
#include "util/sync.h"
#include "util/thread_annotations.h"
#include "util/timer.h"

class RegistryKey;

// The numbers by which the timers call OnTimer.
inline constexpr std::uint32_t kDriverPollTimer = 0;
inline constexpr std::uint32_t kWriteToDiskTimer = 1;
inline constexpr std::uint32_t kFlushWritesTimer = 2;

class ServerService : public TamLogUtil::Services::Service, public ServiceInterface {
 public:
  // All waits of one stop share this many milliseconds. A stop that finds another start or stop in progress
  // waits up to 20 s for that first; when it does not end, 5 s are left for the rest.
  static constexpr std::uint32_t kStopDeadline = 15000;

  // Inert until OnStart: touches neither registry nor driver nor files.
  ServerService();

  // Stops a running server first; an ExceptionBase of that stop is logged. Any other exception of it leaves
  // the destructor after the members are gone. No other thread may call in any more, except a restart thread,
  // which is called off and waited for.
  ~ServerService() noexcept(false) override;

  // Starts everything, from stopped. ExceptionWindows "Failed to get access to the Tamlog device driver,
  // CreateFile() failed." with nothing changed when the driver is missing; otherwise the exceptions of the
  // registry and of the log file. What a failed start has started already keeps running until OnStop.
  void OnStart() override EXCLUDES(messageLock, configLock);

  // Stops everything, also after a start that failed half-way; harmless when stopped. Waits at most
  // kStopDeadline for threads and readers and then continues without them. Cancels a pending restart.
  // Messages that are not in the file yet are lost. A log file that cannot be moved to its new path stays
  // where it is, silently.
  void OnStop() override EXCLUDES(configLock);

  // Stops and starts in one turn, for the restart thread. Does nothing, or only the stop, when the ticket was
  // cancelled.
  void Restart(const Lifecycle::RestartTicket& ticket) EXCLUDES(messageLock, configLock);
  Lifecycle::RestartTicket NewRestartTicket() { return Lifecycle::RestartTicket(lifecycle); }

  // Carries out a request (handle_message.cpp). Called on the connections' threads, several at once.
  void HandleMessage(const PipeRequest& request, PipeReply& reply) override EXCLUDES(messageLock, configLock);
  void ConnectionEnded(PipeServerHandleThread* connection) override;

  // Does the work of a timer (periodic_work.cpp).
  void OnTimer(std::uint32_t timerId) override EXCLUDES(messageLock, configLock);

 private:
  friend bool ClaimRestart(ServerService& service);

  void StartSequence() EXCLUDES(messageLock, configLock);
  void AwaitFormerTicks() EXCLUDES(messageLock, configLock);
  void StopSequence(std::uint32_t milliseconds) EXCLUDES(configLock);
  void OpenDriver();
  void CloseDriver();
  std::uint32_t SavePeriod() EXCLUDES(configLock);
  void EndLeftoverThreads();

  // configuration.cpp
  void Load() EXCLUDES(configLock);
  void LoadFilters(const RegistryKey& mainKey) REQUIRES(configLock);
  void Save() EXCLUDES(configLock);
  void SaveFilters(RegistryKey& mainKey) REQUIRES(configLock);

  // driver_poll.cpp
  void PollDriver() EXCLUDES(messageLock, configLock);

  // handle_message.cpp
  void CarryOut(const PipeRequest& request, PipeReply& reply) EXCLUDES(messageLock, configLock);
  void SubmitMessage(const LogMessageBody& message, PipeReply& reply) EXCLUDES(messageLock, configLock);
  void GetSettings(PipeReply& reply) EXCLUDES(configLock);
  void SetSettings(const SettingsBody& settings, PipeReply& reply) EXCLUDES(configLock);
  void GetLogFile(PipeReply& reply) EXCLUDES(configLock);
  void SetLogFile(const PipeRequest& request, PipeReply& reply) EXCLUDES(configLock);
  void GetFilter(std::uint32_t index, PipeReply& reply) EXCLUDES(configLock);
  void ClearFilters(PipeReply& reply) EXCLUDES(configLock);
  void AddFilter(const PipeRequest& request, PipeReply& reply) EXCLUDES(configLock);
  void ClearLog(PipeReply& reply) EXCLUDES(configLock);
  void StartRestart();

  Lifecycle lifecycle;  // first, so that it is destroyed last

  // The order of these members matters for construction and destruction. Flags and handle are atomic because
  // a stop that ran out of time continues while threads still read them.
  std::atomic<bool> stopped{true};
  PipeServer pipeServer;
  TamLogUtil::Timer driverPollTimer;
  TamLogUtil::Timer writeToDiskTimer;
  TamLogUtil::Timer flushWritesTimer;
  ServerConfiguration configuration GUARDED_BY(configLock);
  bool loaded GUARDED_BY(configLock) = false;  // whether Load has filled `configuration`
  MessageFileServer messageFile;
  TamLogUtil::Mutex messageLock;
  TamLogUtil::Mutex configLock ACQUIRED_AFTER(messageLock);
  std::atomic<bool> restarting{false};  // set under restartLock, cleared by a completed start without it
  TamLogUtil::Mutex restartLock;
  std::atomic<TamLogUtil::NativeHandle> driverHandle;  // the invalid-handle value while not open
};
