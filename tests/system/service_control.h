#pragma once

// The service manager's functions that the tests use: queries of the registered log server, and starting,
// stopping and removing it. Codes are the system's error codes, 0 for success. Throws std::runtime_error when
// the manager itself fails.

#include <cstdint>
#include <optional>
#include <string>

inline constexpr char kServiceName[] = "TamLogServer";

enum class ServiceState : std::uint32_t {
  Absent = 0,
  Stopped = 1,
  StartPending = 2,
  StopPending = 3,
  Running = 4
};

struct ServiceRegistration {
  std::string displayName;
  std::string description;
  std::string commandLine;
  std::string account;
  std::uint32_t type = 0;
  std::uint32_t startType = 0;
  std::uint32_t errorControl = 0;
};

class ServiceControl {
 public:
  static std::optional<ServiceRegistration> Registration();
  // Returns the state that the manager reports: under Wine it does not notice the death of a service's
  // process.
  static ServiceState State();
  static std::uint32_t ProcessId();  // 0 when it never ran or has stopped
  static std::uint32_t Start();
  static std::uint32_t SendStop();
  static std::uint32_t Delete();
};
