#pragma once

// The calls of the system that the pipe transport makes, one function each. None throws. Those that return a
// number return 0 when the operation is done, kPending when it is under way, otherwise the system's error
// code; of the others those that may fail leave the last error set.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "util/native_handle.h"

struct _OVERLAPPED;

namespace PipeCalls {

inline constexpr std::uint32_t kPending = 997;
inline constexpr std::uint32_t kAlreadyConnected = 535;
// What a wait returns when its time ran out.
inline constexpr std::uint32_t kWaitTimeout = 258;

// The record of one operation, in which the system leaves its outcome. `completionEvent` is not owned; the
// system signals it at the end of an operation.
struct DeleteOverlapped {
  void operator()(_OVERLAPPED* overlapped) const;
};
using OwnedOverlapped = std::unique_ptr<_OVERLAPPED, DeleteOverlapped>;
OwnedOverlapped NewOverlapped(TamLogUtil::NativeHandle completionEvent);
// Of an operation that was pending and is over: 0 or the kernel's status.
std::uint32_t StatusOf(const _OVERLAPPED& overlapped);

// A manual-reset event that is not signalled; null when it failed.
TamLogUtil::NativeHandle NewEvent();
void AwaitEvent(TamLogUtil::NativeHandle event, std::uint32_t milliseconds);

// One more instance of a message pipe; the invalid handle when it failed.
enum class Direction : std::uint8_t { Inbound, Outbound };
TamLogUtil::NativeHandle NewInstance(const std::string& name, Direction direction,
                                     TamLogUtil::SecurityAttributes* security);
std::uint32_t Connect(TamLogUtil::NativeHandle instance, _OVERLAPPED* overlapped);
std::uint32_t Read(TamLogUtil::NativeHandle instance, void* buffer, std::size_t size,
                   _OVERLAPPED* overlapped);
std::uint32_t Write(TamLogUtil::NativeHandle instance, const void* bytes, std::size_t size,
                    _OVERLAPPED* overlapped);
// The client is cut off, and what it has not read is thrown away.
void Disconnect(TamLogUtil::NativeHandle instance);
// Whatever thread started the operation. Its end is told by its event.
void Cancel(TamLogUtil::NativeHandle instance, _OVERLAPPED* overlapped);

}  // namespace PipeCalls
