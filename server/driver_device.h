#pragma once

// The server's interface to the kernel driver. Each successful control call returns the next message (a
// LogMessageBody); when the driver has none left, the call fails. The server ignores the error and the number
// of bytes returned.

#include <cstdint>

#include "records/log_file_format.h"
#include "util/native_handle.h"

inline constexpr char kDriverDevicePath[] = R"(\\.\TAMLOG)";

// Device type 0x22 (unknown), function 0x801, buffered, any access: no input, one LogMessageBody as output.
// The driver's own headers use this name.
inline constexpr std::uint32_t IOCTL_TAMLOG_GET_MESSAGE = 0x00222004;

// Returns the device, or the invalid handle with the last error set.
TamLogUtil::NativeHandle OpenDriverDevice();

// Fetches one message. Returns false when the driver has none or the device is not open.
bool TakeFromDriver(TamLogUtil::NativeHandle device, LogMessageBody& message);
