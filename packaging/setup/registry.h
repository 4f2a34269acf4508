#pragma once

// Values below HKEY_LOCAL_MACHINE, in the 64-bit view. Failures throw SetupError, except where a value is
// missing.

#include <cstdint>
#include <optional>
#include <string>

namespace TamLogSetup {

// A value of any type, as it is stored.
struct RegistryValue {
  std::uint32_t type = 0;
  std::string bytes;
};

std::optional<RegistryValue> ReadValue(const std::wstring& key, const std::wstring& name);
// Empty when there is no such text.
std::wstring ReadText(const std::wstring& key, const std::wstring& name);

void WriteValue(const std::wstring& key, const std::wstring& name, const RegistryValue& value);
void WriteText(const std::wstring& key, const std::wstring& name, const std::wstring& text);
void WriteExpandText(const std::wstring& key, const std::wstring& name, const std::wstring& text);
void WriteNumber(const std::wstring& key, const std::wstring& name, std::uint32_t number);

bool KeyExists(const std::wstring& key);
// Deletes the key with everything below it; a missing one is no failure.
void DeleteTree(const std::wstring& key);
// Deletes the key if it holds nothing.
void DeleteEmptyKey(const std::wstring& key);

// The machine's PATH. Adding a directory that already exists in it, or removing one that does not, changes
// nothing; all other bytes of the value stay.
bool IsOnPath(const std::wstring& directory);
void AddToPath(const std::wstring& directory);
void RemoveFromPath(const std::wstring& directory);

}  // namespace TamLogSetup
