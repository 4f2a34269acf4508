#pragma once

// Where and under which names the server keeps its settings in the registry. The settings in memory are a
// ServerConfiguration (store/server_configuration.h); ServerService::Load and ServerService::Save, which
// carry them between the two, are in configuration.cpp.
//
// Under the main key: LogFile (text), MaxMessage, DevicePollRate (milliseconds), SaveRate (seconds) and
// TypeFilter (bit i: messages of type i are kept), all written with their defaults when missing. Under its
// subkey Filters: one text per filter, a letter ("i" include, any other exclude) and the filter's text; their
// value names mean nothing and are given anew at every save.
//
// Nothing that is loaded is range-checked; what the server itself accepts over the pipe is.

#include <cstdint>
#include <string>

#include "server/registry_key.h"

inline constexpr char kConfigurationKey[] = R"(SOFTWARE\Brenmark VORTA\Torvane Log Server)";
inline constexpr char kFiltersSubkey[] = "Filters";

// The log file's name when no path is configured; it lies beside the executable then.
inline constexpr char kDefaultLogFileName[] = "Logs.dat";

inline constexpr std::uint32_t kDefaultMaxMessage = 50000;
inline constexpr std::uint32_t kDefaultDevicePollRate = 1000;
inline constexpr std::uint32_t kDefaultSaveRate = 300;
inline constexpr std::uint32_t kDefaultTypeFilter = 0xFFFFFFFF;

// The path kept in the main key; when there is none, the default path is written there first. ExceptionBase
// "Failed to obtain executable's location", ExceptionWindows "ReadData() failed".
std::string ReadLogFilePath(RegistryKey& mainKey);
