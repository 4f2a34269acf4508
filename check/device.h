#pragma once

// The driver's device, and an empty stand-in for it where it is missing: the log server opens the device at
// its start, and reads no message from the stand-in. The name has to be visible to the whole machine, which
// takes the rights of the local system: a service of its own defines and removes it.

#include <string>

namespace TamLogCheck {

bool DeviceIsThere();

// Both return the problem; empty when there is none. RemoveDevice may be called where ProvideDevice was not.
std::string ProvideDevice();
std::string RemoveDevice();

// The service's program: called by the service manager. Returns the exit code.
int RunDeviceService(const std::string& task);

}  // namespace TamLogCheck
