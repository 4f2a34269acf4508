// The registry, the driver and the service manager: the native counterpart of server/registry_calls.cpp,
// server/driver_device.cpp and util/service.cpp.

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "server/driver_device.h"
#include "server/registry_calls.h"
#include "tests/native/handles.h"
#include "tests/native/machine.h"
#include "util/service.h"
#include "util/sync.h"

namespace NativeMachine {

void ResetThreads();
void ResetDisk();

}  // namespace NativeMachine

namespace {

using NativeMachine::RegistryValues;
using TamLogUtil::NativeHandle;

constexpr std::uint32_t kMoreData = 234;
constexpr std::uint32_t kFileNotFound = 2;

struct Key {
  std::string path;
};

struct Settings {
  std::mutex lock;
  std::map<std::string, RegistryValues> keys;
  bool driverPresent = true;
  std::uint32_t driverOpens = 0;
  std::deque<LogMessageBody> driverMessages;
};

Settings& TheSettings() {
  static Settings settings;
  return settings;
}

// Names of values ignore letter case.
bool IsSameName(const std::string& left, const std::string& right) {
  const auto fold = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [fold](char a, char b) { return fold(a) == fold(b); });
}

std::string* FindValue(RegistryValues& values, const std::string& name) {
  for (auto& [known, data] : values) {
    if (IsSameName(known, name)) return &data;
  }
  return nullptr;
}

void Store(const std::string& path, const std::string& name, const std::string& data) {
  Settings& settings = TheSettings();
  const std::lock_guard guard(settings.lock);
  RegistryValues& values = settings.keys[path];
  std::string* const known = FindValue(values, name);
  if (known != nullptr) {
    *known = data;
  } else {
    values.emplace_back(name, data);
  }
}

const std::string& PathOf(void* key) {
  return static_cast<Key*>(key)->path;
}

struct DriverObject final : NativeMachine::Object {};

}  // namespace

namespace NativeMachine {

void Reset() {
  ResetThreads();
  ResetDisk();
  Settings& settings = TheSettings();
  const std::lock_guard guard(settings.lock);
  settings.keys.clear();
  settings.driverPresent = true;
  settings.driverOpens = 0;
  settings.driverMessages.clear();
}

RegistryValues Values(const std::string& key) {
  Settings& settings = TheSettings();
  const std::lock_guard guard(settings.lock);
  const auto found = settings.keys.find(key);
  return found == settings.keys.end() ? RegistryValues() : found->second;
}

void SetValue(const std::string& key, const std::string& name, const std::string& data) {
  Store(key, name, data);
}

void SetDriverPresent(bool present) {
  Settings& settings = TheSettings();
  const std::lock_guard guard(settings.lock);
  settings.driverPresent = present;
}

std::uint32_t DriverOpens() {
  Settings& settings = TheSettings();
  const std::lock_guard guard(settings.lock);
  return settings.driverOpens;
}

void PutIntoDriver(const LogMessageBody& message) {
  Settings& settings = TheSettings();
  const std::lock_guard guard(settings.lock);
  settings.driverMessages.push_back(message);
}

}  // namespace NativeMachine

namespace RegistryCalls {

std::uint32_t OpenOrCreate(void* parent, const char* name, void*& opened) {
  auto key = std::make_unique<Key>(Key{parent == nullptr ? name : PathOf(parent) + '\\' + name});
  Settings& settings = TheSettings();
  const std::lock_guard guard(settings.lock);
  settings.keys[key->path];
  opened = key.release();
  return 0;
}

void Close(void* key) {
  delete static_cast<Key*>(key);
}

void DeleteSubkey(void* key, const char* name) {
  Settings& settings = TheSettings();
  const std::lock_guard guard(settings.lock);
  settings.keys.erase(PathOf(key) + '\\' + name);
}

std::uint32_t Query(void* key, const char* name, void* data, std::uint32_t size) {
  Settings& settings = TheSettings();
  const std::lock_guard guard(settings.lock);
  const std::string* const value = FindValue(settings.keys[PathOf(key)], name);
  if (value == nullptr) return kNotFound;
  if (value->size() > size) return kMoreData;
  std::memcpy(data, value->data(), value->size());
  return 0;
}

std::uint32_t Enumerate(void* key, std::uint32_t index, char* name, std::uint32_t nameSize,
                        std::uint32_t& dataSize) {
  Settings& settings = TheSettings();
  const std::lock_guard guard(settings.lock);
  const RegistryValues& values = settings.keys[PathOf(key)];
  if (index >= values.size()) return kNoMoreValues;
  const auto& [known, data] = values[index];
  if (known.size() >= nameSize) return kMoreData;
  std::memcpy(name, known.c_str(), known.size() + 1);
  dataSize = static_cast<std::uint32_t>(data.size());
  return 0;
}

void SetNumber(void* key, const char* name, std::uint32_t value) {
  Store(PathOf(key), name, std::string(reinterpret_cast<const char*>(&value), sizeof value));
}

void SetText(void* key, const char* name, const char* text, std::uint32_t size) {
  Store(PathOf(key), name, std::string(text, size));
}

}  // namespace RegistryCalls

NativeHandle OpenDriverDevice() {
  Settings& settings = TheSettings();
  const std::lock_guard guard(settings.lock);
  if (!settings.driverPresent) {
    NativeMachine::SetLastError(kFileNotFound);
    return TamLogUtil::InvalidHandle();
  }
  ++settings.driverOpens;
  return NativeMachine::NewHandle(std::make_shared<DriverObject>());
}

bool TakeFromDriver(NativeHandle device, LogMessageBody& message) {
  Settings& settings = TheSettings();
  const std::lock_guard guard(settings.lock);
  if (device == TamLogUtil::InvalidHandle() || settings.driverMessages.empty()) return false;
  message = settings.driverMessages.front();
  settings.driverMessages.pop_front();
  return true;
}

// The service framework: there is no service manager.
namespace TamLogUtil::Services {

struct Service::Status {};

Service::Service() = default;
Service::~Service() noexcept(false) = default;
void Service::OnStart() {}
void Service::OnStop() {}
void Service::OnPause() {}
void Service::OnContinue() {}

}  // namespace TamLogUtil::Services
