// Takes every message that the kernel driver holds (server/driver_device.h says how it is asked).

#include "server/driver_device.h"
#include "server/server_service.h"
#include "util/win32.h"

using TamLogUtil::Mutex;
using TamLogUtil::Timeout;

namespace {

// One call, one message. False when the driver holds none, or the device is not open.
bool TakeFromDriver(TamLogUtil::NativeHandle device, LogMessageBody& message) {
  DWORD bytesReturned = 0;  // the call wants it; its value does not matter
  return DeviceIoControl(device, IOCTL_TAMLOG_GET_MESSAGE, nullptr, 0, &message, sizeof message,
                         &bytesReturned, nullptr) != FALSE;
}

}  // namespace

void ServerService::PollDriver() {
  const Mutex::Access access(messageLock, Timeout::Infinite);
  LogMessageBody message{};  // one for the whole drain; the driver fills all of it
  while (TakeFromDriver(driverHandle, message)) messageFile.AddMessage(message);
}
