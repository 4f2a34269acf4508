#pragma once

// The keys, names and defaults of the server's settings in the registry. In memory the settings are a
// ServerConfiguration (store/server_configuration.h); ServerService::Load and Save in configuration.cpp copy
// them from and to the registry.
//
// Under the main key: LogFile (text), MaxMessage, DevicePollRate (milliseconds), SaveRate (seconds) and
// TypeFilter (bit i: messages of type i are kept), all written with their defaults when missing. Under its
// subkey Filters: one text per filter, a letter ("i" include, any other exclude) and the filter's text; the
// value names have no meaning and are chosen again at every save.
//
// Values from the registry are not range-checked; values from the pipe are.

#include <cstdint>
#include <string>

#include "server/registry_key.h"

inline constexpr char kConfigurationKey[] = R"(SOFTWARE\Brenmark VORTA\Torvane Log Server)";
inline constexpr char kFiltersSubkey[] = "Filters";

// The name of the log file, in the executable's directory, when no path is configured.
inline constexpr char kDefaultLogFileName[] = "Logs.dat";

inline constexpr std::uint32_t kDefaultMaxMessage = 50000;
inline constexpr std::uint32_t kDefaultDevicePollRate = 1000;
inline constexpr std::uint32_t kDefaultSaveRate = 300;
inline constexpr std::uint32_t kDefaultTypeFilter = 0xFFFFFFFF;

// Returns the path in the main key; writes the default path there first when it is missing. ExceptionBase
// "Failed to obtain executable's location", ExceptionWindows "ReadData() failed".
std::string ReadLogFilePath(RegistryKey& mainKey);
