#pragma once

// The system calls of the pipe transport, one function each. None throws. Those that return a number return 0
// when the operation is done, kPending when it is pending, otherwise the system's error code; the others
// leave the last error set when they fail.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "util/native_handle.h"

struct _OVERLAPPED;

namespace PipeCalls {

inline constexpr std::uint32_t kPending = 997;
inline constexpr std::uint32_t kAlreadyConnected = 535;
// The result of a wait whose time ran out.
inline constexpr std::uint32_t kWaitTimeout = 258;

// The system's record of one operation and its outcome. `completionEvent` is not owned; the system signals it
// at the end of an operation.
struct DeleteOverlapped {
  void operator()(_OVERLAPPED* overlapped) const;
};
using OwnedOverlapped = std::unique_ptr<_OVERLAPPED, DeleteOverlapped>;
OwnedOverlapped NewOverlapped(TamLogUtil::NativeHandle completionEvent);
// Returns the outcome of an operation that was pending and has ended: 0 or the kernel's status.
std::uint32_t StatusOf(const _OVERLAPPED& overlapped);

// Creates a manual-reset event that is not signalled; null on failure.
TamLogUtil::NativeHandle NewEvent();
void AwaitEvent(TamLogUtil::NativeHandle event, std::uint32_t milliseconds);

// Creates a new instance of a message pipe; the invalid handle on failure.
enum class Direction : std::uint8_t { Inbound, Outbound };
TamLogUtil::NativeHandle NewInstance(const std::string& name, Direction direction,
                                     TamLogUtil::SecurityAttributes* security);
std::uint32_t Connect(TamLogUtil::NativeHandle instance, _OVERLAPPED* overlapped);
std::uint32_t Read(TamLogUtil::NativeHandle instance, void* buffer, std::size_t size,
                   _OVERLAPPED* overlapped);
std::uint32_t Write(TamLogUtil::NativeHandle instance, const void* bytes, std::size_t size,
                    _OVERLAPPED* overlapped);
// Disconnects the client and discards what it has not read.
void Disconnect(TamLogUtil::NativeHandle instance);
// Cancels an operation of any thread, whose event reports its end.
void Cancel(TamLogUtil::NativeHandle instance, _OVERLAPPED* overlapped);

}  // namespace PipeCalls
