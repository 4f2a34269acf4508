#include "store/message_file.h"

#include "store/with_context.h"

namespace TamLogUtil {

using Exceptions::ExceptionBase;

namespace {

constexpr char kCannotTake[] = "Failed to grab read access, some handles or pointers are invalid";
constexpr char kCannotRelease[] = "Failed to release read access, some handles or pointers are invalid";

void ResetReadCount(MappedView& view) {
  WithContext("Failed to reset the read count in SetFileView()", [&] { view.SetReadCount(0); });
}

}  // namespace

void MessageFile::OpenFile(const std::string& mapName, const std::string& headerLockName,
                           const std::string& readWaitEventName, const std::string& writeWaitEventName,
                           SecurityAttributes* attributes) {
  objectNames = {.mapping = mapName,
                 .headerLock = headerLockName,
                 .readWait = readWaitEventName,
                 .writeWait = writeWaitEventName};
  auto opened = WithContext("Failed to create file access objects in MessageFile::OpenFile()", [&] {
    return std::make_shared<AccessObjects>(headerLockName, readWaitEventName, writeWaitEventName, attributes);
  });
  const LeafLock::Guard guard(viewLock);
  openObjects = std::move(opened);
}

void MessageFile::CloseFile() {
  // Destroyed after the lock is released: that closes the handles, those of the objects unless a thread that
  // is just waking up still holds them.
  AutoHandle closedFile;
  std::shared_ptr<AccessObjects> closed;
  const LeafLock::Guard guard(viewLock);
  closedFile.Swap(file);
  if (openObjects != nullptr) openObjects->EndWaits();
  EndAccesses();
  closed = std::move(openObjects);
  mappedView.Unmap();
}

void MessageFile::CheckOpen() {
  if (openObjects == nullptr) {
    throw ExceptionBase("Failed to grab write access, some handles or pointers are invalid");
  }
}

void MessageFile::KeepFile(AutoHandle& opened) {
  const LeafLock::Guard guard(viewLock);
  CheckOpen();
  file.Swap(opened);
}

bool MessageFile::MapWithoutReaders(SecurityAttributes* attributes, MappedView::Older older) {
  const LeafLock::Guard guard(viewLock);
  CheckOpen();
  const bool created = mappedView.Map(file.Get(), objectNames.mapping, attributes, older);
  ++mappings;
  ResetReadCount(mappedView);
  return created;
}

void MessageFile::CloseView() {
  const LeafLock::Guard guard(viewLock);
  EndAccesses();
  mappedView.Unmap();
}

// Invalidates the tickets of accesses that this process still has. Signals what the ends of those accesses
// would have signalled, because readers may keep the named objects alive, and the next open takes them in
// their present state.
void MessageFile::EndAccesses() {
  ++mappings;
  if (openObjects != nullptr && readersHeldOut) openObjects->ReadWait().SetSignal();
  if (openObjects != nullptr && ownReaders > 0) openObjects->WriteWait().SetSignal();
  readersHeldOut = false;
  ownReaders = 0;
}

bool MessageFile::IsOpen() {
  const LeafLock::Guard guard(viewLock);
  return openObjects != nullptr && mappedView.IsMapped();
}

MessageFile::Ticket MessageFile::PresentTicket(const char* invalidText) {
  const LeafLock::Guard guard(viewLock);
  if (openObjects == nullptr || !mappedView.IsMapped()) throw ExceptionBase(invalidText);
  return {.objects = openObjects, .mapping = mappings};
}

void MessageFile::CheckTicket(const Ticket& ticket, const char* invalidText) {
  if (openObjects != ticket.objects || mappings != ticket.mapping) throw ExceptionBase(invalidText);
}

void MessageFile::HoldReadersOut(const Ticket& ticket, const char* invalidText) {
  const LeafLock::Guard guard(viewLock);
  CheckTicket(ticket, invalidText);
  readersHeldOut = true;
  openObjects->ReadWait().RemoveSignal();
}

void MessageFile::LetReadersIn(const Ticket& ticket, const char* invalidText) {
  const LeafLock::Guard guard(viewLock);
  CheckTicket(ticket, invalidText);
  readersHeldOut = false;
  try {
    openObjects->ReadWait().SetSignal();
  } catch (const ExceptionBase&) {
    // Retried, and reported in either case: the next writer would wait for this event forever.
    openObjects->ReadWait().SetSignal();
    throw;
  }
}

// Read access -------------------------------------------------------------------------------------------

MessageFile::Ticket MessageFile::TakeReadAccess(Timeout& timeout) {
  Ticket ticket = PresentTicket(kCannotTake);
  while (true) {
    switch (ticket.objects->WaitForReadWait(timeout.Remaining())) {
      case WaitOutcome::Closed:
        throw ExceptionBase(kCannotTake);
      case WaitOutcome::TimedOut:
        throw ExceptionBase("Failed to get message file read access");
      case WaitOutcome::Signalled:
        break;
    }
    bool entered = false;
    try {
      const HeaderLock headerLock(*ticket.objects, kCannotTake);
      // A writer may have entered between the two waits.
      entered = ticket.objects->ReadWait().Wait(0) && EnterAsReader(ticket);
    } catch (const ExceptionBase&) {
      // The header lock could not be released. Without this the reader just counted in would stay counted.
      if (entered) LeaveAsReader(ticket);
      throw;
    }
    if (entered) return ticket;
  }
}

// Returns false when a writer of this process has entered since read-wait was checked. Between two processes
// nothing prevents that; within this one the same lock covers both sides, so its threads never enter
// together.
bool MessageFile::EnterAsReader(const Ticket& ticket) {
  const LeafLock::Guard guard(viewLock);
  CheckTicket(ticket, kCannotTake);
  if (readersHeldOut) return false;
  mappedView.ChangeReadCount(1);
  try {
    openObjects->WriteWait().RemoveSignal();
  } catch (const ExceptionBase&) {
    mappedView.ChangeReadCount(-1);
    throw;
  }
  ++ownReaders;
  return true;
}

void MessageFile::ReleaseReadAccess(const Ticket& ticket) {
  WithContext("Failed to release message file read access", [&] {
    bool leaving = false;
    try {
      const HeaderLock headerLock(*ticket.objects, kCannotRelease);
      leaving = true;
      LeaveAsReader(ticket);
    } catch (const ExceptionBase&) {
      // Leaves even without the header lock: otherwise writers would wait for this reader forever.
      if (!leaving) LeaveAsReader(ticket);
      throw;
    }
  });
}

void MessageFile::LeaveAsReader(const Ticket& ticket) {
  const LeafLock::Guard guard(viewLock);
  CheckTicket(ticket, kCannotRelease);
  if (mappedView.ChangeReadCount(-1) == 0) openObjects->WriteWait().SetSignal();
  // Last: EndAccesses, which checks this, makes up for a failure above.
  --ownReaders;
}

MessageFile::ReadAccess::ReadAccess(MessageFile* messageFile, Timeout& timeout) : file(messageFile) {
  if (file == nullptr) throw ExceptionBase("MessageFile ReadAccess object created with null pointer");
  ticket = file->TakeReadAccess(timeout);
}

MessageFile::ReadAccess::~ReadAccess() noexcept(false) {
  unwindCheck.Finish([this] { file->ReleaseReadAccess(ticket); });
}

}  // namespace TamLogUtil
