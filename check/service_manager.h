#pragma once

// The service manager: the log server's registration, its state and its control. Functions that return a
// number return 0 or the system's error code; all others throw std::runtime_error.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace TamLogCheck {

inline constexpr char kServerService[] = "TamLogServer";

struct Registration {
  std::string commandLine;
  std::string account;
  std::string description;
  bool automatic = false;
  bool ownProcess = false;
};

struct ServiceStatus {
  std::uint32_t state = 0;  // the manager's number; 0: not registered
  std::uint32_t processId = 0;
  std::uint32_t exitCode = 0;

  bool Running() const { return state == 4; }
  bool Stopped() const { return state == 1; }
};

struct RestartAction {
  std::uint32_t type = 0;  // 1: restart the service
  std::uint32_t delayMs = 0;

  bool operator==(const RestartAction&) const = default;
};

struct Recovery {
  std::uint32_t resetSeconds = 0;
  std::vector<RestartAction> actions;

  bool operator==(const Recovery&) const = default;
};

// The recovery that the packages set: restarts after 5, 30 and 60 s; after a day without failure the first
// delay applies again.
Recovery RecoveryOfThePackages();
std::string TextOf(const Recovery& recovery);

// Returns whether this user may register services.
bool MayAdminister();

std::optional<Registration> FindRegistration(const std::string& name = kServerService);
ServiceStatus StatusOf(const std::string& name = kServerService);
std::uint32_t StartService(const std::string& name = kServerService);
std::uint32_t StopService(const std::string& name = kServerService);
std::uint32_t DeleteService(const std::string& name = kServerService);
// Registers a service that is started by request only, and runs as the local system.
void CreateService(const std::string& name, const std::string& commandLine);

// Returns nothing when the system does not report it.
std::optional<Recovery> FindRecovery();
std::uint32_t SetRecovery(const Recovery& recovery);

// Returns the access list of the log server's service as text.
std::string ServiceAccessList();
// Tries to open the log server's service with rights to start and stop it, or to change it.
enum class ServiceRight : std::uint8_t { StartAndStop, Change };
std::uint32_t TryServiceRight(ServiceRight right);

}  // namespace TamLogCheck
