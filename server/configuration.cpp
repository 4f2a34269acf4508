#include "server/configuration.h"

#include <optional>

#include "server/server_service.h"
#include "util/helpers.h"

using TamLogUtil::Mutex;
using TamLogUtil::Timeout;

std::string ReadLogFilePath(RegistryKey& mainKey) {
  return mainKey.ReadText("LogFile", TamLogUtil::PathBesideExecutable(kDefaultLogFileName));
}

void ServerService::Load() {
  RegistryKey mainKey(kConfigurationKey);
  const Mutex::Access access(configLock, Timeout::Infinite);
  configuration.logFile = ReadLogFilePath(mainKey);
  configuration.maxMessage = mainKey.ReadNumber("MaxMessage", kDefaultMaxMessage);
  configuration.requestedMaxMessage = configuration.maxMessage;
  configuration.devicePollRate = mainKey.ReadNumber("DevicePollRate", kDefaultDevicePollRate);
  configuration.saveRate = mainKey.ReadNumber("SaveRate", kDefaultSaveRate);
  TamLogUtil::UnpackFlags(mainKey.ReadNumber("TypeFilter", kDefaultTypeFilter), configuration.typeFilter,
                          kMessageTypes);
  driverPollTimer.SetPeriod(configuration.devicePollRate);
  LoadFilters(mainKey);
  loaded = true;
}

void ServerService::LoadFilters(const RegistryKey& mainKey) {
  RegistryKey filters(mainKey, kFiltersSubkey);
  configuration.includeFilters.clear();
  configuration.excludeFilters.clear();
  while (const std::optional<std::string> data = filters.NextValue()) {
    if (data->empty()) continue;
    auto& list = data->front() == 'i' ? configuration.includeFilters : configuration.excludeFilters;
    list.push_back(data->substr(1));
  }
}

void ServerService::Save() {
  RegistryKey mainKey(kConfigurationKey);
  const Mutex::Access access(configLock, Timeout::Infinite);
  // A stop after a start that failed before Load leaves the registry unchanged.
  if (!loaded) return;
  mainKey.WriteText("LogFile", configuration.logFile);
  // The capacity requested over the pipe, not the one in effect: it takes effect at the next start.
  mainKey.WriteNumber("MaxMessage", configuration.requestedMaxMessage);
  mainKey.WriteNumber("DevicePollRate", configuration.devicePollRate);
  mainKey.WriteNumber("SaveRate", configuration.saveRate);
  mainKey.WriteNumber("TypeFilter", TamLogUtil::PackFlags(configuration.typeFilter, kMessageTypes));
  SaveFilters(mainKey);
}

void ServerService::SaveFilters(RegistryKey& mainKey) {
  // Recreated, so that values written by hand under other names do not stay.
  mainKey.DeleteSubkey(kFiltersSubkey);
  RegistryKey filters(mainKey, kFiltersSubkey);
  std::int32_t number = 0;
  const auto write = [&filters, &number](char kind, const std::string& text) {
    filters.WriteText("Filters" + TamLogUtil::ToString(number), kind + text);
    ++number;
  };
  for (const std::string& text : configuration.includeFilters) write('i', text);
  for (const std::string& text : configuration.excludeFilters) write('e', text);
}
