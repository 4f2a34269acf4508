#pragma once

// Makes the write accesses of this process take turns. The protocol with the readers does not ensure that:
// its read-wait event stays signalled until a writer resets it, so two threads could get write access at
// once.
//
// A thread that has the turn may take it again: OpenFile has it for its whole length and takes write access
// inside. A thread whose wait ends without the turn continues without it and releases nothing. Any thread.

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

  // Throws "CreateEvent() failed".
  WriterTurn();
  WriterTurn(const WriterTurn&) = delete;
  WriterTurn& operator=(const WriterTurn&) = delete;

 private:
  TamLogUtil::Benaphore lock;        // free: taken without a system call
  TamLogUtil::AutoHandle lockEvent;  // an automatic-reset event
  std::atomic<std::thread::id> owner;
};

// The turn for a scope, on one thread.
class WriterTurn::Hold {
 public:
  // Waits up to `timeout`, or until `closing` (may be null) is signalled.
  Hold(WriterTurn& writerTurn, TamLogUtil::Timeout& timeout, TamLogUtil::NativeHandle closing);
  ~Hold();
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;

  // Returns how the wait ended; Signalled also when the thread already had the turn.
  TamLogUtil::WaitOutcome Outcome() const { return outcome; }

 private:
  bool PassOn();

  WriterTurn& turn;
  bool taken = false;
  TamLogUtil::WaitOutcome outcome = TamLogUtil::WaitOutcome::Signalled;
};
