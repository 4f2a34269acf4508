#include "server/registry_calls.h"

#include "util/win32.h"

namespace RegistryCalls {
namespace {

static_assert(kNotFound == ERROR_FILE_NOT_FOUND && kNoMoreValues == ERROR_NO_MORE_ITEMS);

// Registry calls return their error instead of setting the last error. The type of the result, LSTATUS, is
// signed, but the codes are never negative.
std::uint32_t Code(LSTATUS result) {
  return static_cast<std::uint32_t>(result);
}

HKEY Native(void* key) {
  return static_cast<HKEY>(key);
}

const BYTE* Bytes(const void* data) {
  return static_cast<const BYTE*>(data);
}

}  // namespace

std::uint32_t OpenOrCreate(void* parent, const char* name, void*& opened) {
  HKEY key = nullptr;
  const LSTATUS result =
      RegCreateKeyExA(parent == nullptr ? HKEY_LOCAL_MACHINE : Native(parent), name, 0, nullptr,
                      REG_OPTION_NON_VOLATILE, KEY_READ | KEY_WRITE, nullptr, &key, nullptr);
  opened = key;
  return Code(result);
}

void Close(void* key) {
  RegCloseKey(Native(key));
}

void DeleteSubkey(void* key, const char* name) {
  RegDeleteKeyA(Native(key), name);
}

std::uint32_t Query(void* key, const char* name, void* data, std::uint32_t size) {
  DWORD bytes = size;
  return Code(RegQueryValueExA(Native(key), name, nullptr, nullptr, static_cast<BYTE*>(data), &bytes));
}

std::uint32_t Enumerate(void* key, std::uint32_t index, char* name, std::uint32_t nameSize,
                        std::uint32_t& dataSize) {
  DWORD characters = nameSize;
  DWORD bytes = 0;
  const LSTATUS result =
      RegEnumValueA(Native(key), index, name, &characters, nullptr, nullptr, nullptr, &bytes);
  dataSize = bytes;
  return Code(result);
}

void SetNumber(void* key, const char* name, std::uint32_t value) {
  RegSetValueExA(Native(key), name, 0, REG_DWORD, Bytes(&value), sizeof value);
}

void SetText(void* key, const char* name, const char* text, std::uint32_t size) {
  RegSetValueExA(Native(key), name, 0, REG_SZ, Bytes(text), size);
}

}  // namespace RegistryCalls
