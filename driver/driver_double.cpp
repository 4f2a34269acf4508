#include "driver/driver_double.h"

#include <array>
#include <cstddef>
#include <memory>
#include <type_traits>

#include "util/win32.h"

static_assert(sizeof(LogMessageBody) == TAMLOG_MESSAGE_SIZE);

namespace {

constexpr const char* kServiceName = "TAMLOG";
constexpr const char* kDevicePath = R"(\\.\TAMLOG)";
constexpr DWORD kUnloadDeadlineMs = 10000;

struct ServiceHandleCloser {
  void operator()(SC_HANDLE handle) const { CloseServiceHandle(handle); }
};
using ServiceHandle = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, ServiceHandleCloser>;

std::string SystemText(DWORD code) {
  std::array<char, 512> text{};
  const DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                      code, 0, text.data(), static_cast<DWORD>(text.size()), nullptr);
  std::string line(text.data(), length);
  line.erase(line.find_last_not_of("\r\n") + 1);
  return line;
}

std::string Describe(const std::string& doing, DWORD code) {
  const std::string text = SystemText(code);
  return doing + ": error " + std::to_string(code) + (text.empty() ? "" : " - " + text);
}

ServiceHandle OpenManager() {
  ServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
  if (!manager) throw DriverDoubleError("opening the service manager failed", GetLastError());
  return manager;
}

// Null when the driver is not registered.
ServiceHandle OpenRegistration(SC_HANDLE manager) {
  ServiceHandle service(OpenServiceA(manager, kServiceName, SERVICE_ALL_ACCESS));
  if (!service) {
    const DWORD code = GetLastError();
    if (code != ERROR_SERVICE_DOES_NOT_EXIST) {
      throw DriverDoubleError("opening the driver's registration failed", code);
    }
  }
  return service;
}

bool IsStopped(SC_HANDLE service) {
  SERVICE_STATUS status{};
  if (QueryServiceStatus(service, &status) == 0) {
    throw DriverDoubleError("asking for the driver's state failed", GetLastError());
  }
  return status.dwCurrentState == SERVICE_STOPPED;
}

void Unload(SC_HANDLE service) {
  SERVICE_STATUS status{};
  if (ControlService(service, SERVICE_CONTROL_STOP, &status) == 0) {
    const DWORD code = GetLastError();
    if (code != ERROR_SERVICE_NOT_ACTIVE) throw DriverDoubleError("unloading the driver failed", code);
  }
  const ULONGLONG start = GetTickCount64();
  while (!IsStopped(service)) {
    if (GetTickCount64() - start > kUnloadDeadlineMs) {
      throw DriverDoubleError("waiting for the driver to unload failed", WAIT_TIMEOUT);
    }
    Sleep(10);
  }
}

std::string FullPath(const std::string& path) {
  std::array<char, 1024> full{};
  const DWORD length = GetFullPathNameA(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
  if (length == 0) throw DriverDoubleError("\"" + path + "\" is no path", GetLastError());
  if (length >= full.size())
    throw DriverDoubleError("\"" + path + "\" is too long", ERROR_FILENAME_EXCED_RANGE);
  return {full.data(), length};
}

}  // namespace

DriverDoubleError::DriverDoubleError(const std::string& doing, std::uint32_t errorCode)
    : std::runtime_error(Describe(doing, errorCode)), code(errorCode) {}

std::string DriverDouble::PathBesideExecutable() {
  std::array<char, 1024> name{};
  const DWORD length = GetModuleFileNameA(nullptr, name.data(), static_cast<DWORD>(name.size()));
  if (length == 0 || length >= name.size()) {
    throw DriverDoubleError("asking for the executable's own path failed", GetLastError());
  }
  const std::string executable(name.data(), length);
  return executable.substr(0, executable.rfind('\\') + 1) + "tamlog.sys";
}

void DriverDouble::Install(const std::string& sysPath) {
  const std::string path = FullPath(sysPath);
  if (GetFileAttributesA(path.c_str()) == INVALID_FILE_ATTRIBUTES) {
    throw DriverDoubleError("the driver \"" + path + "\" cannot be found", GetLastError());
  }
  Remove();
  const ServiceHandle manager = OpenManager();
  const ServiceHandle service(
      CreateServiceA(manager.get(), kServiceName, "Torvane log driver double (development and tests)",
                     SERVICE_ALL_ACCESS, SERVICE_KERNEL_DRIVER, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                     path.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
  if (!service) throw DriverDoubleError("registering the driver \"" + path + "\" failed", GetLastError());
}

void DriverDouble::Start() {
  const ServiceHandle manager = OpenManager();
  const ServiceHandle service = OpenRegistration(manager.get());
  if (!service) throw DriverDoubleError("the driver is not installed", ERROR_SERVICE_DOES_NOT_EXIST);
  if (StartServiceA(service.get(), 0, nullptr) == 0) {
    const DWORD code = GetLastError();
    if (code != ERROR_SERVICE_ALREADY_RUNNING) throw DriverDoubleError("loading the driver failed", code);
  }
}

void DriverDouble::Stop() {
  const ServiceHandle manager = OpenManager();
  const ServiceHandle service = OpenRegistration(manager.get());
  if (service) Unload(service.get());
}

bool DriverDouble::Remove() {
  const ServiceHandle manager = OpenManager();
  const ServiceHandle service = OpenRegistration(manager.get());
  if (!service) return false;
  Unload(service.get());
  if (DeleteService(service.get()) == 0) {
    throw DriverDoubleError("removing the driver's registration failed", GetLastError());
  }
  return true;
}

DriverDouble::DriverDouble()
    : device(CreateFileA(kDevicePath, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                         nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)) {
  if (device == INVALID_HANDLE_VALUE) {
    throw DriverDoubleError(std::string("opening the device ") + kDevicePath + " failed", GetLastError());
  }
}

DriverDouble::~DriverDouble() {
  CloseHandle(device);
}

void DriverDouble::Control(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                           const char* doing) {
  DWORD returned = 0;
  // The input is only read; the system call's type has no const.
  void* in = const_cast<std::byte*>(input.data());
  if (DeviceIoControl(device, code, in, static_cast<DWORD>(input.size()), output.data(),
                      static_cast<DWORD>(output.size()), &returned, nullptr) == 0) {
    throw DriverDoubleError(std::string(doing) + " failed", GetLastError());
  }
}

void DriverDouble::Put(std::span<const LogMessageBody> messages) {
  if (messages.empty()) return;
  Control(TAMLOG_IOCTL_PUT_MESSAGES, std::as_bytes(messages), {}, "handing messages to the driver");
}

bool DriverDouble::Get(LogMessageBody& message) {
  DWORD returned = 0;
  return DeviceIoControl(device, TAMLOG_IOCTL_GET_MESSAGE, nullptr, 0, &message, sizeof(message), &returned,
                         nullptr) != 0;
}

void DriverDouble::SetFailure(std::uint32_t ntStatus) {
  Control(TAMLOG_IOCTL_SET_FAILURE, std::as_bytes(std::span(&ntStatus, 1)), {},
          "setting the driver's failure");
}

TamLogDriverCounters DriverDouble::Counters() {
  TamLogDriverCounters counters{};
  Control(TAMLOG_IOCTL_READ_COUNTERS, {}, std::as_writable_bytes(std::span(&counters, 1)),
          "reading the driver's counters");
  return counters;
}

void DriverDouble::Reset() {
  Control(TAMLOG_IOCTL_RESET, {}, {}, "resetting the driver");
}

LoadedDriverDouble::LoadedDriverDouble(const std::string& sysPath) {
  DriverDouble::Install(sysPath);
  try {
    DriverDouble::Start();
  } catch (...) {
    DriverDouble::Remove();
    throw;
  }
}

LoadedDriverDouble::~LoadedDriverDouble() {
  try {
    DriverDouble::Remove();
  } catch (const DriverDoubleError&) {
    // Dropped: the next Install removes what is left of this driver.
    return;
  }
}
