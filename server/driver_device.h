#pragma once

// The interface that the server needs of the kernel driver. One successful control call hands over one
// message (a LogMessageBody, not handed over before); once the driver holds none, the call fails. The server
// looks neither at the error nor at the number of bytes returned.

#include <cstdint>

#include "records/log_file_format.h"
#include "util/native_handle.h"

inline constexpr char kDriverDevicePath[] = R"(\\.\TAMLOG)";

// Unknown device type 0x22, function 0x801, buffered, any access: no input, one LogMessageBody as output.
// The name is the one that the driver's own headers use.
inline constexpr std::uint32_t IOCTL_TAMLOG_GET_MESSAGE = 0x00222004;

// The device, or the invalid handle with the last error set.
TamLogUtil::NativeHandle OpenDriverDevice();

// One call, one message. False when the driver holds none, or the device is not open.
bool TakeFromDriver(TamLogUtil::NativeHandle device, LogMessageBody& message);
