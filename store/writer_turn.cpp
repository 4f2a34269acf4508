#include "store/writer_turn.h"

#include "util/exceptions.h"

using TamLogUtil::NativeHandle;
using TamLogUtil::Timeout;
using TamLogUtil::WaitOutcome;

WriterTurn::WriterTurn()
    : free(TamLogUtil::CheckedCreateEvent(nullptr, false, true, nullptr),
           TamLogUtil::AutoHandle::From::Take) {}

WriterTurn::Hold::Hold(WriterTurn& writerTurn, Timeout& timeout, NativeHandle closing) : turn(writerTurn) {
  if (turn.owner == std::this_thread::get_id()) return;
  outcome = TamLogUtil::WaitUnlessClosed(turn.free.Get(), closing, timeout.Remaining());
  taken = outcome == WaitOutcome::Signalled;
  if (taken) turn.owner = std::this_thread::get_id();
}

WriterTurn::Hold::~Hold() {
  if (!taken) return;
  turn.owner = std::thread::id();
  try {
    TamLogUtil::CheckedSetEvent(turn.free.Get());
  } catch (const TamLogUtil::Exceptions::ExceptionBase&) {  // NOLINT(bugprone-empty-catch)
    // The event is this object's own and open for all its life; there is nothing to fall back to.
  }
}
