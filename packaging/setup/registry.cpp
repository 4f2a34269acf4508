#include "packaging/setup/registry.h"

#include <cstring>
#include <memory>

#include "client/message/win32.h"
#include "packaging/setup/path_list.h"
#include "packaging/setup/setup_error.h"

namespace TamLogSetup {

namespace {

constexpr wchar_t kEnvironment[] = LR"(SYSTEM\CurrentControlSet\Control\Session Manager\Environment)";
constexpr wchar_t kPath[] = L"Path";

struct Closer {
  void operator()(HKEY key) const { RegCloseKey(key); }
};
using Key = std::unique_ptr<std::remove_pointer_t<HKEY>, Closer>;

Key Open(const std::wstring& path, REGSAM access) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, access | KEY_WOW64_64KEY, &key) != ERROR_SUCCESS)
    return nullptr;
  return Key(key);
}

std::string BytesOf(const std::wstring& text) {
  std::string bytes((text.size() + 1) * sizeof(wchar_t), '\0');
  std::memcpy(bytes.data(), text.c_str(), bytes.size());
  return bytes;
}

std::wstring TextOf(const RegistryValue& value) {
  std::wstring text(value.bytes.size() / sizeof(wchar_t), L'\0');
  std::memcpy(text.data(), value.bytes.data(), text.size() * sizeof(wchar_t));
  return text.substr(0, text.find(L'\0'));
}

// Lets running programs, Explorer above all, read the changed environment.
void AnnounceEnvironment() {
  DWORD_PTR result = 0;
  SendMessageTimeoutW(HWND_BROADCAST, WM_SETTINGCHANGE, 0, reinterpret_cast<LPARAM>(L"Environment"),
                      SMTO_ABORTIFHUNG, 2000, &result);
}

// The type of the value stays: it says whether %NAMES% in it are replaced.
void StorePath(const RegistryValue& old, const std::wstring& list) {
  WriteValue(kEnvironment, kPath, {old.type, BytesOf(list)});
  AnnounceEnvironment();
}

RegistryValue PathValue() {
  RegistryValue value = ReadValue(kEnvironment, kPath).value_or(RegistryValue{REG_EXPAND_SZ, BytesOf(L"")});
  if (value.type != REG_SZ && value.type != REG_EXPAND_SZ)
    throw SetupError("the system's PATH is of a type that is no text; it is left as it is");
  return value;
}

}  // namespace

std::optional<RegistryValue> ReadValue(const std::wstring& key, const std::wstring& name) {
  const Key open = Open(key, KEY_QUERY_VALUE);
  DWORD type = 0;
  DWORD size = 0;
  if (!open || RegQueryValueExW(open.get(), name.c_str(), nullptr, &type, nullptr, &size) != ERROR_SUCCESS)
    return std::nullopt;
  RegistryValue value{type, std::string(size, '\0')};
  if (RegQueryValueExW(open.get(), name.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(value.bytes.data()),
                       &size) != ERROR_SUCCESS)
    return std::nullopt;
  value.bytes.resize(size);
  return value;
}

std::wstring ReadText(const std::wstring& key, const std::wstring& name) {
  const auto value = ReadValue(key, name);
  return value && (value->type == REG_SZ || value->type == REG_EXPAND_SZ) ? TextOf(*value) : L"";
}

void WriteValue(const std::wstring& key, const std::wstring& name, const RegistryValue& value) {
  HKEY made = nullptr;
  LSTATUS result = RegCreateKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                   KEY_SET_VALUE | KEY_WOW64_64KEY, nullptr, &made, nullptr);
  const Key open(made);
  if (result == ERROR_SUCCESS)
    result =
        RegSetValueExW(made, name.c_str(), 0, value.type, reinterpret_cast<const BYTE*>(value.bytes.data()),
                       static_cast<DWORD>(value.bytes.size()));
  if (result != ERROR_SUCCESS)
    Fail("cannot write the registry, HKLM\\" + Utf8(key), static_cast<DWORD>(result));
}

void WriteText(const std::wstring& key, const std::wstring& name, const std::wstring& text) {
  WriteValue(key, name, {REG_SZ, BytesOf(text)});
}

void WriteExpandText(const std::wstring& key, const std::wstring& name, const std::wstring& text) {
  WriteValue(key, name, {REG_EXPAND_SZ, BytesOf(text)});
}

void WriteNumber(const std::wstring& key, const std::wstring& name, std::uint32_t number) {
  std::string bytes(sizeof number, '\0');
  std::memcpy(bytes.data(), &number, sizeof number);
  WriteValue(key, name, {REG_DWORD, bytes});
}

bool KeyExists(const std::wstring& key) {
  return Open(key, KEY_QUERY_VALUE) != nullptr;
}

void DeleteTree(const std::wstring& key) {
  const std::size_t cut = key.rfind(L'\\');
  const Key parent =
      Open(key.substr(0, cut), DELETE | KEY_ENUMERATE_SUB_KEYS | KEY_QUERY_VALUE | KEY_SET_VALUE);
  if (!parent) return;
  const LSTATUS result = RegDeleteTreeW(parent.get(), key.substr(cut + 1).c_str());
  if (result != ERROR_SUCCESS && result != ERROR_FILE_NOT_FOUND)
    Fail("cannot delete HKLM\\" + Utf8(key), static_cast<DWORD>(result));
}

void DeleteEmptyKey(const std::wstring& key) {
  DWORD keys = 0;
  DWORD values = 0;
  {
    const Key open = Open(key, KEY_QUERY_VALUE);
    if (!open || RegQueryInfoKeyW(open.get(), nullptr, nullptr, nullptr, &keys, nullptr, nullptr, &values,
                                  nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
      return;
  }
  if (keys == 0 && values == 0) RegDeleteKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), KEY_WOW64_64KEY, 0);
}

bool IsOnPath(const std::wstring& directory) {
  return ContainsDirectory(TextOf(PathValue()), directory);
}

void AddToPath(const std::wstring& directory) {
  const RegistryValue old = PathValue();
  const std::wstring list = TextOf(old);
  if (!ContainsDirectory(list, directory)) StorePath(old, WithDirectory(list, directory));
}

void RemoveFromPath(const std::wstring& directory) {
  const RegistryValue old = PathValue();
  const std::wstring list = TextOf(old);
  if (ContainsDirectory(list, directory)) StorePath(old, WithoutDirectory(list, directory));
}

}  // namespace TamLogSetup
