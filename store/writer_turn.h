#pragma once

// Makes the write accesses of this process take turns. The protocol with the readers does not: its read-wait
// event stays signalled until a writer resets it, so two threads could be "in" at once.
//
// A thread that has the turn may take it again: opening a file has it for its whole length and takes write
// access inside. Whoever waits in vain goes on without the turn and gives nothing back at the end. Any
// thread.

#include <atomic>
#include <cstdint>
#include <thread>

#include "store/access_objects.h"
#include "util/benaphore.h"
#include "util/native_handle.h"
#include "util/sync.h"
#include "util/timeout.h"

class WriterTurn {
 public:
  class Hold;

  // "CreateEvent() failed".
  WriterTurn();
  WriterTurn(const WriterTurn&) = delete;
  WriterTurn& operator=(const WriterTurn&) = delete;

 private:
  TamLogUtil::Benaphore lock;        // taken without a call into the system while the turn is free
  TamLogUtil::AutoHandle lockEvent;  // an automatic-reset event
  std::atomic<std::thread::id> owner;
};

// Has the turn for a scope, on one thread.
class WriterTurn::Hold {
 public:
  // Waits up to `timeout`, or until `closing` (may be null) is signalled.
  Hold(WriterTurn& writerTurn, TamLogUtil::Timeout& timeout, TamLogUtil::NativeHandle closing);
  ~Hold();
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;

  // How the wait ended; Signalled when the thread had the turn already.
  TamLogUtil::WaitOutcome Outcome() const { return outcome; }

 private:
  bool PassOn();

  WriterTurn& turn;
  bool taken = false;
  TamLogUtil::WaitOutcome outcome = TamLogUtil::WaitOutcome::Signalled;
};
