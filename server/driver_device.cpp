#include "server/driver_device.h"

#include "util/win32.h"

using TamLogUtil::NativeHandle;

NativeHandle OpenDriverDevice() {
  return CreateFileA(kDriverDevicePath, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_WRITE, nullptr,
                     OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
}

bool TakeFromDriver(NativeHandle device, LogMessageBody& message) {
  DWORD bytesReturned = 0;  // required by the call; its value is ignored
  return DeviceIoControl(device, IOCTL_TAMLOG_GET_MESSAGE, nullptr, 0, &message, sizeof message,
                         &bytesReturned, nullptr) != FALSE;
}
