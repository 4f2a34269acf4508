#pragma once

// The driver double seen from a program: loads and unloads the kernel driver (tamlog_driver.c) through the
// service manager, sends it messages, makes it fail, and reads its counters. For development, demonstration
// and tests.
//
// The driver's name at the service manager is "TAMLOG" and its device is "\\.\TAMLOG": one for the whole
// machine (for a whole Wine prefix), so programs that load it must take turns.
//
// Threads: the static operations may be called from any thread; one DriverDouble belongs to one thread at a
// time. Several objects, in several processes, may have the device open at once.

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

#include "driver/tamlog_driver_control.h"
#include "records/log_file_format.h"

// A system call failed. what() names the call, the subject, the error's number and the system's text for it.
class DriverDoubleError : public std::runtime_error {
 public:
  DriverDoubleError(const std::string& doing, std::uint32_t errorCode);
  std::uint32_t Code() const { return code; }  // the system's error code

 private:
  std::uint32_t code;
};

class DriverDouble {
 public:
  // Returns the path of "tamlog.sys" in the directory of the running executable, where the build puts it.
  static std::string PathBesideExecutable();

  // Registers the driver at `sysPath`, to be started on demand; a relative path is resolved from the current
  // directory. Unloads and removes an existing registration first. Throws DriverDoubleError.
  static void Install(const std::string& sysPath);
  // Loads the registered driver; does nothing when it is already loaded. Throws DriverDoubleError.
  static void Start();
  // Unloads the driver even while handles are open, and discards its messages. Does nothing when it is not
  // loaded or not registered.
  static void Stop();
  // Unloads the driver and removes the registration. Returns false when there was none.
  static bool Remove();

  // Opens the device. Throws DriverDoubleError; Code() is 2 when no driver is loaded.
  DriverDouble();
  ~DriverDouble();  // closes the device; the driver stays loaded, its messages stay
  DriverDouble(const DriverDouble&) = delete;
  DriverDouble& operator=(const DriverDouble&) = delete;

  // Everything below throws DriverDoubleError when the driver refuses or is no longer loaded.

  // Appends the messages in their order, all or none. Makes no call for an empty span.
  void Put(std::span<const LogMessageBody> messages);
  // Fetches the oldest message as the server does. Returns false when the driver has none or a failure is
  // set.
  bool Get(LogMessageBody& message);
  // Makes every later get fail with this NTSTATUS (0x80000000 and above), the server's too; 0 ends that.
  void SetFailure(std::uint32_t ntStatus);
  TamLogDriverCounters Counters();
  // Empties the queue, ends a failure, and zeroes the counters except those of open handles.
  void Reset();

 private:
  void Control(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
               const char* doing);

  void* device;
};

// Installs and loads the driver double for its lifetime, for tests.
class LoadedDriverDouble {
 public:
  explicit LoadedDriverDouble(const std::string& sysPath = DriverDouble::PathBesideExecutable());
  ~LoadedDriverDouble();  // unloads and removes; after a failure the next Install does so
  LoadedDriverDouble(const LoadedDriverDouble&) = delete;
  LoadedDriverDouble& operator=(const LoadedDriverDouble&) = delete;
};
