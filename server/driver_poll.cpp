// Fetches every message that the kernel driver holds (server/driver_device.h).

#include "server/driver_device.h"
#include "server/server_service.h"

using TamLogUtil::Mutex;
using TamLogUtil::Timeout;

void ServerService::PollDriver() {
  const Mutex::Access access(messageLock, Timeout::Infinite);
  LogMessageBody message{};  // one for the whole drain; the driver fills all of it
  while (TakeFromDriver(driverHandle, message)) messageFile.AddMessage(message);
}
