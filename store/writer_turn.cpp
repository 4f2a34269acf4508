#include "store/writer_turn.h"

#include "util/exceptions.h"

using TamLogUtil::NativeHandle;
using TamLogUtil::Timeout;
using TamLogUtil::WaitOutcome;

namespace {

struct ClosedMeanwhile {};

struct TurnEvent {
  NativeHandle event;
  NativeHandle closing;

  // Throws ClosedMeanwhile.
  bool Wait(std::uint32_t milliseconds) const {
    const WaitOutcome outcome = TamLogUtil::WaitUnlessClosed(event, closing, milliseconds);
    if (outcome == WaitOutcome::Closed) throw ClosedMeanwhile();
    return outcome == WaitOutcome::Signalled;
  }
  void Signal() const { TamLogUtil::CheckedSetEvent(event); }
};

}  // namespace

WriterTurn::WriterTurn()
    : lockEvent(TamLogUtil::CheckedCreateEvent(nullptr, false, false, nullptr),
                TamLogUtil::AutoHandle::From::Take) {
  // The system takes the empty owner's value for the process itself: a wait for it would never end.
  if (lockEvent.IsInvalid()) throw TamLogUtil::Exceptions::ExceptionWindows("CreateEvent() failed");
}

WriterTurn::Hold::Hold(WriterTurn& writerTurn, Timeout& timeout, NativeHandle closing) : turn(writerTurn) {
  if (turn.owner == std::this_thread::get_id()) return;
  try {
    taken = turn.lock.Wait(TurnEvent{turn.lockEvent.Get(), closing}, timeout.Remaining());
    outcome = taken ? WaitOutcome::Signalled : WaitOutcome::TimedOut;
  } catch (const ClosedMeanwhile&) {
    outcome = WaitOutcome::Closed;
  }
  if (taken) turn.owner = std::this_thread::get_id();
}

// Retried once: a turn that is not passed on would block every later writer. A release that failed has let no
// thread through.
WriterTurn::Hold::~Hold() {
  if (!taken) return;
  turn.owner = std::thread::id();
  if (!PassOn()) PassOn();
}

bool WriterTurn::Hold::PassOn() {
  try {
    turn.lock.Release(TurnEvent{turn.lockEvent.Get(), nullptr});
    return true;
  } catch (const TamLogUtil::Exceptions::ExceptionBase&) {
    return false;
  }
}
