#include "server/registry_key.h"

#include "util/exceptions.h"
#include "util/win32.h"

using TamLogUtil::Exceptions::ExceptionWindows;

namespace {

// Registry calls return their error instead of setting the last error. The operating system's name for their
// result is LSTATUS, a signed type; the codes themselves are never negative.
using Result = std::uint32_t;

HKEY Native(void* key) {
  return static_cast<HKEY>(key);
}

const BYTE* Bytes(const void* data) {
  return static_cast<const BYTE*>(data);
}

Result Query(void* key, const char* name, void* data, std::uint32_t size) {
  DWORD bytes = size;
  return static_cast<Result>(
      RegQueryValueExA(Native(key), name, nullptr, nullptr, static_cast<BYTE*>(data), &bytes));
}

}  // namespace

RegistryKey::RegistryKey(const std::string& path) : key(Open(HKEY_LOCAL_MACHINE, path)) {}

RegistryKey::RegistryKey(const RegistryKey& parent, const std::string& name) : key(Open(parent.key, name)) {}

RegistryKey::~RegistryKey() {
  RegCloseKey(Native(key));
}

void* RegistryKey::Open(void* parent, const std::string& name) {
  HKEY opened = nullptr;
  const LSTATUS result = RegCreateKeyExA(Native(parent), name.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                         KEY_READ | KEY_WRITE, nullptr, &opened, nullptr);
  if (result != ERROR_SUCCESS) {
    throw ExceptionWindows("RegCreateKeyEx() failed", nullptr, static_cast<Result>(result));
  }
  return opened;
}

std::uint32_t RegistryKey::ReadNumber(const std::string& name, std::uint32_t defaultValue) {
  std::uint32_t value = 0;  // shorter data fill the low bytes
  const Result result = Query(key, name.c_str(), &value, sizeof value);
  if (result == ERROR_FILE_NOT_FOUND) {
    WriteNumber(name, defaultValue);
    return defaultValue;
  }
  if (result != ERROR_SUCCESS) throw ExceptionWindows("ReadData() failed", nullptr, result);
  return value;
}

std::string RegistryKey::ReadText(const std::string& name, const std::string& defaultValue) {
  // The system does not promise a zero at the end of the data: the byte behind the buffer supplies it.
  char buffer[kTextBufferSize + 1] = {};
  const Result result = Query(key, name.c_str(), buffer, kTextBufferSize);
  if (result == ERROR_FILE_NOT_FOUND) {
    WriteText(name, defaultValue);
    return defaultValue;
  }
  if (result != ERROR_SUCCESS) throw ExceptionWindows("ReadData() failed", nullptr, result);
  return buffer;
}

void RegistryKey::WriteNumber(const std::string& name, std::uint32_t value) {
  RegSetValueExA(Native(key), name.c_str(), 0, REG_DWORD, Bytes(&value), sizeof value);
}

void RegistryKey::WriteText(const std::string& name, const std::string& value) {
  RegSetValueExA(Native(key), name.c_str(), 0, REG_SZ, Bytes(value.c_str()),
                 static_cast<DWORD>(value.size() + 1));
}

void RegistryKey::DeleteSubkey(const std::string& name) {
  RegDeleteKeyA(Native(key), name.c_str());
}

std::optional<std::string> RegistryKey::NextValue() {
  char name[kNameBufferSize] = {};
  DWORD nameSize = kNameBufferSize;
  DWORD dataSize = 0;
  const LSTATUS result =
      RegEnumValueA(Native(key), nextIndex, name, &nameSize, nullptr, nullptr, nullptr, &dataSize);
  if (result == ERROR_NO_MORE_ITEMS) nextIndex = 0;
  if (result != ERROR_SUCCESS) return std::nullopt;
  ++nextIndex;
  std::string data(dataSize + 1, '\0');
  if (Query(key, name, data.data(), dataSize + 1) != ERROR_SUCCESS) return std::nullopt;
  return data.c_str();
}
