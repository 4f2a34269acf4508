#include "server/registry_key.h"

#include "server/registry_calls.h"
#include "util/exceptions.h"

using TamLogUtil::Exceptions::ExceptionWindows;

RegistryKey::RegistryKey(const std::string& path) : key(Open(nullptr, path)) {}

RegistryKey::RegistryKey(const RegistryKey& parent, const std::string& name) : key(Open(parent.key, name)) {}

RegistryKey::~RegistryKey() {
  RegistryCalls::Close(key);
}

void* RegistryKey::Open(void* parent, const std::string& name) {
  void* opened = nullptr;
  const std::uint32_t result = RegistryCalls::OpenOrCreate(parent, name.c_str(), opened);
  if (result != 0) throw ExceptionWindows("RegCreateKeyEx() failed", nullptr, result);
  return opened;
}

std::uint32_t RegistryKey::ReadNumber(const std::string& name, std::uint32_t defaultValue) {
  std::uint32_t value = 0;  // shorter data fill the low bytes
  const std::uint32_t result = RegistryCalls::Query(key, name.c_str(), &value, sizeof value);
  if (result == RegistryCalls::kNotFound) {
    WriteNumber(name, defaultValue);
    return defaultValue;
  }
  if (result != 0) throw ExceptionWindows("ReadData() failed", nullptr, result);
  return value;
}

std::string RegistryKey::ReadText(const std::string& name, const std::string& defaultValue) {
  // The system does not guarantee a zero at the end of the data: the extra byte supplies it.
  char buffer[kTextBufferSize + 1] = {};
  const std::uint32_t result = RegistryCalls::Query(key, name.c_str(), buffer, kTextBufferSize);
  if (result == RegistryCalls::kNotFound) {
    WriteText(name, defaultValue);
    return defaultValue;
  }
  if (result != 0) throw ExceptionWindows("ReadData() failed", nullptr, result);
  return buffer;
}

void RegistryKey::WriteNumber(const std::string& name, std::uint32_t value) {
  RegistryCalls::SetNumber(key, name.c_str(), value);
}

void RegistryKey::WriteText(const std::string& name, const std::string& value) {
  RegistryCalls::SetText(key, name.c_str(), value.c_str(), static_cast<std::uint32_t>(value.size() + 1));
}

void RegistryKey::DeleteSubkey(const std::string& name) {
  RegistryCalls::DeleteSubkey(key, name.c_str());
}

std::optional<std::string> RegistryKey::NextValue() {
  char name[kNameBufferSize] = {};
  std::uint32_t dataSize = 0;
  const std::uint32_t result = RegistryCalls::Enumerate(key, nextIndex, name, kNameBufferSize, dataSize);
  if (result == RegistryCalls::kNoMoreValues) nextIndex = 0;
  if (result != 0) return std::nullopt;
  ++nextIndex;
  std::string data(dataSize + std::size_t{1}, '\0');
  if (RegistryCalls::Query(key, name, data.data(), dataSize + 1) != 0) return std::nullopt;
  return data.c_str();
}
