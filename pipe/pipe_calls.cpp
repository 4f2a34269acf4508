#include "pipe/pipe_calls.h"

#include "util/win32.h"

using TamLogUtil::NativeHandle;

namespace PipeCalls {
namespace {

static_assert(kPending == ERROR_IO_PENDING && kAlreadyConnected == ERROR_PIPE_CONNECTED);
static_assert(kWaitTimeout == WAIT_TIMEOUT);

constexpr std::uint32_t kBufferBytes = 4096;

std::uint32_t Result(BOOL done) {
  return done != 0 ? ERROR_SUCCESS : GetLastError();
}

}  // namespace

void DeleteOverlapped::operator()(_OVERLAPPED* overlapped) const {
  delete overlapped;
}

OwnedOverlapped NewOverlapped(NativeHandle completionEvent) {
  OwnedOverlapped made(new OVERLAPPED());
  made->hEvent = completionEvent;
  return made;
}

std::uint32_t StatusOf(const _OVERLAPPED& overlapped) {
  return static_cast<std::uint32_t>(overlapped.Internal);
}

NativeHandle NewEvent() {
  return CreateEventA(nullptr, TRUE, FALSE, nullptr);
}

void AwaitEvent(NativeHandle event, std::uint32_t milliseconds) {
  WaitForSingleObject(event, milliseconds);
}

NativeHandle NewInstance(const std::string& name, Direction direction,
                         TamLogUtil::SecurityAttributes* security) {
  const DWORD access = direction == Direction::Inbound ? PIPE_ACCESS_INBOUND : PIPE_ACCESS_OUTBOUND;
  return CreateNamedPipeA(name.c_str(), access | FILE_FLAG_OVERLAPPED,
                          PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT, PIPE_UNLIMITED_INSTANCES,
                          kBufferBytes, kBufferBytes, 0, security);
}

std::uint32_t Connect(NativeHandle instance, _OVERLAPPED* overlapped) {
  return Result(ConnectNamedPipe(instance, overlapped));
}

std::uint32_t Read(NativeHandle instance, void* buffer, std::size_t size, _OVERLAPPED* overlapped) {
  return Result(ReadFile(instance, buffer, static_cast<DWORD>(size), nullptr, overlapped));
}

std::uint32_t Write(NativeHandle instance, const void* bytes, std::size_t size, _OVERLAPPED* overlapped) {
  return Result(WriteFile(instance, bytes, static_cast<DWORD>(size), nullptr, overlapped));
}

void Disconnect(NativeHandle instance) {
  DisconnectNamedPipe(instance);
}

// CancelIoEx, because CancelIo reaches only operations of the calling thread. It fails when the operation has
// already ended, and then the event is set.
void Cancel(NativeHandle instance, _OVERLAPPED* overlapped) {
  CancelIoEx(instance, overlapped);
}

}  // namespace PipeCalls
