#pragma once

// System calls that this executable replaces, so that a test can make them fail or observe them:
// call_faults.cpp defines the import pointers (__imp_X), which the linker prefers to the import library.
// Calls without a setting are passed to the real functions.

#include <atomic>
#include <cstdint>
#include <functional>

namespace TestSupport {

class CallFault {
 public:
  enum class On { AnyThread, ThisThread, OtherThreads };

  // After the next `skip` calls on the given threads, `count` calls fail with `error`.
  void Fail(std::uint32_t error, On threads = On::AnyThread, int count = 1, int skip = 0);
  // Removes all settings and resets the counts.
  void Clear();
  // Runs at the start of each call on any thread except the one that set it.
  void Before(std::function<void()> action);

  // Calls since Clear, failed ones included.
  int Calls() const { return calls; }
  // Calls that ended with "I/O pending" since Clear.
  int PendingCalls() const { return pending; }

  // Real calls that have returned since Clear; counted for ConnectNamedPipe only.
  int Returns() const { return returns; }

  // For the replaced calls. ShouldFail sets the last error when it returns true.
  bool ShouldFail();
  std::uint32_t Error() const { return error; }
  void NotePending() { ++pending; }
  void NoteReturn() { ++returns; }

 private:
  bool Concerns(On threads) const;
  bool TakeFailure();

  std::atomic<int> calls{0};
  std::atomic<int> pending{0};
  std::atomic<int> returns{0};
  std::atomic<int> skipped{0};
  std::atomic<int> failures{0};
  std::atomic<std::uint32_t> error{0};
  std::atomic<On> failingThreads{On::AnyThread};
  std::atomic<std::uint32_t> settingThread{0};
  std::atomic<bool> hasAction{false};
  std::function<void()> action;
};

struct CallFaults {
  CallFault allocateSid;           // AllocateAndInitializeSid
  CallFault freeSid;               // counted only
  CallFault setEntriesInAcl;       // returns the error
  CallFault initializeDescriptor;  // InitializeSecurityDescriptor
  CallFault setDescriptorDacl;     // SetSecurityDescriptorDacl
  CallFault localFree;             // counted only
  CallFault createOverlapEvent;    // CreateEventA for a manual-reset event that starts unsignalled
  CallFault setEvent;
  CallFault resetEvent;
  CallFault waitForMultiple;   // WaitForMultipleObjects
  CallFault duplicateHandle;   // DuplicateHandle
  CallFault createNamedPipe;   // CreateNamedPipeA
  CallFault connectNamedPipe;  // ConnectNamedPipe
  CallFault serverRead;        // ReadFile of 1028 bytes
  CallFault write;             // WriteFile
  CallFault createThread;
  CallFault allocateConnection;  // new (std::nothrow) of a connection's size

  // Whether the server's threads wait for all reads and connects that they began since Clear.
  bool ServerWaits() const;
  void Clear();
};

CallFaults& Faults();

}  // namespace TestSupport
