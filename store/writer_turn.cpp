#include "store/writer_turn.h"

#include "util/exceptions.h"

using TamLogUtil::NativeHandle;
using TamLogUtil::Timeout;
using TamLogUtil::WaitOutcome;

namespace {

struct ClosedMeanwhile {};

struct TurnGate {
  NativeHandle event;
  NativeHandle closing;

  // Throws ClosedMeanwhile.
  bool Wait(std::uint32_t milliseconds) const {
    const WaitOutcome outcome = TamLogUtil::WaitUnlessClosed(event, closing, milliseconds);
    if (outcome == WaitOutcome::Closed) throw ClosedMeanwhile();
    return outcome == WaitOutcome::Signalled;
  }
  void Open() const { TamLogUtil::CheckedSetEvent(event); }
};

}  // namespace

WriterTurn::WriterTurn()
    : gate(TamLogUtil::CheckedCreateEvent(nullptr, false, false, nullptr),
           TamLogUtil::AutoHandle::From::Take) {}

WriterTurn::Hold::Hold(WriterTurn& writerTurn, Timeout& timeout, NativeHandle closing) : turn(writerTurn) {
  if (turn.owner == std::this_thread::get_id()) return;
  try {
    taken = turn.word.Wait(TurnGate{turn.gate.Get(), closing}, timeout.Remaining());
    outcome = taken ? WaitOutcome::Signalled : WaitOutcome::TimedOut;
  } catch (const ClosedMeanwhile&) {
    outcome = WaitOutcome::Closed;
  }
  if (taken) turn.owner = std::this_thread::get_id();
}

WriterTurn::Hold::~Hold() {
  if (!taken) return;
  turn.owner = std::thread::id();
  try {
    turn.word.Release(TurnGate{turn.gate.Get(), nullptr});
  } catch (const TamLogUtil::Exceptions::ExceptionBase&) {  // NOLINT(bugprone-empty-catch)
    // The event is this object's own and open for all its life; there is nothing to fall back to.
  }
}
