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
  // Let go of outside the lock: that closes the handles, unless a thread that is just waking up still needs
  // them.
  std::shared_ptr<AccessObjects> closed;
  const LeafLock::Guard guard(viewLock);
  if (openObjects != nullptr) openObjects->EndWaits();
  EndAccesses();
  closed = std::move(openObjects);
  mappedView.Unmap();
}

void MessageFile::MapWithoutReaders(NativeHandle file, SecurityAttributes* attributes) {
  const LeafLock::Guard guard(viewLock);
  mappedView.Map(file, objectNames.mapping, attributes);
  ++mappings;
  ResetReadCount(mappedView);
}

void MessageFile::CloseView() {
  const LeafLock::Guard guard(viewLock);
  EndAccesses();
  mappedView.Unmap();
}

// Accesses of this process that are still inside can do nothing more: their tickets are void. What their ends
// would have signalled is signalled here, because the named objects may live on in readers, and the next open
// takes them as they are.
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
    // Once more, and reported all the same: the next writer would wait for it without end.
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
      // A writer may have come in between the two waits.
      entered = ticket.objects->ReadWait().Wait(0) && EnterAsReader(ticket);
    } catch (const ExceptionBase&) {
      // The header lock could not be given back. Nobody would ever count out the reader that came in.
      if (entered) LeaveAsReader(ticket);
      throw;
    }
    if (entered) return ticket;
  }
}

// False when a writer of this process has come in since read-wait was looked at. Between two processes
// nothing prevents that; here the same lock covers both sides, so the server's own threads never pass each
// other.
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

void MessageFile::GiveBackReadAccess(const Ticket& ticket) {
  WithContext("Failed to release message file read access", [&] {
    bool leaving = false;
    try {
      const HeaderLock headerLock(*ticket.objects, kCannotRelease);
      leaving = true;
      LeaveAsReader(ticket);
    } catch (const ExceptionBase&) {
      // Without the header lock rather than not at all: writers would wait for this reader for good.
      if (!leaving) LeaveAsReader(ticket);
      throw;
    }
  });
}

void MessageFile::LeaveAsReader(const Ticket& ticket) {
  const LeafLock::Guard guard(viewLock);
  CheckTicket(ticket, kCannotRelease);
  if (mappedView.ChangeReadCount(-1) == 0) openObjects->WriteWait().SetSignal();
  // Last: what fails above is made up for by EndAccesses, which looks at this.
  --ownReaders;
}

MessageFile::ReadAccess::ReadAccess(MessageFile* messageFile, Timeout& timeout) : file(messageFile) {
  if (file == nullptr) throw ExceptionBase("MessageFile ReadAccess object created with null pointer");
  ticket = file->TakeReadAccess(timeout);
}

MessageFile::ReadAccess::~ReadAccess() noexcept(false) {
  unwindCheck.Finish([this] { file->GiveBackReadAccess(ticket); });
}

}  // namespace TamLogUtil
