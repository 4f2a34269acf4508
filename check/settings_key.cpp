#include "check/settings_key.h"

#include <array>
#include <memory>
#include <sstream>
#include <type_traits>

#include "check/system.h"
#include "client/message/win32.h"

namespace TamLogCheck {

namespace {

constexpr char kMakerKey[] = R"(SOFTWARE\Brenmark VORTA)";
constexpr char kServerKey[] = R"(SOFTWARE\Brenmark VORTA\Torvane Log Server)";
constexpr char kFilters[] = "Filters";
constexpr char kFirstLine[] = "tamlogcheck settings 1";
constexpr char kLastLine[] = "end";

struct KeyCloser {
  void operator()(HKEY key) const { RegCloseKey(key); }
};
using Key = std::unique_ptr<std::remove_pointer_t<HKEY>, KeyCloser>;

void Check(LSTATUS result, const std::string& doing) {
  if (result != ERROR_SUCCESS) Fail(doing, static_cast<std::uint32_t>(result));
}

std::string PathOf(const std::string& below) {
  return below.empty() ? kServerKey : std::string(kServerKey) + "\\" + below;
}

// Returns null when the key does not exist.
Key Open(const std::string& path, REGSAM access = KEY_READ) {
  HKEY key = nullptr;
  const LSTATUS result = RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, access, &key);
  if (result == ERROR_FILE_NOT_FOUND) return nullptr;
  Check(result, "opening the key " + path);
  return Key(key);
}

Key Create(const std::string& path) {
  HKEY key = nullptr;
  Check(RegCreateKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, &key,
                        nullptr),
        "creating the key " + path);
  return Key(key);
}

void Delete(const std::string& path) {
  const LSTATUS result = RegDeleteKeyA(HKEY_LOCAL_MACHINE, path.c_str());
  if (result != ERROR_FILE_NOT_FOUND) Check(result, "deleting the key " + path);
}

// Keeps the key, and with it its access list.
void DeleteValues(const std::string& path) {
  const Key key = Open(path, KEY_QUERY_VALUE | KEY_SET_VALUE);
  while (key) {
    std::array<char, 16384> name{};
    DWORD size = name.size();
    const LSTATUS result =
        RegEnumValueA(key.get(), 0, name.data(), &size, nullptr, nullptr, nullptr, nullptr);
    if (result == ERROR_NO_MORE_ITEMS) return;
    Check(result, "reading the settings");
    Check(RegDeleteValueA(key.get(), name.data()), "deleting " + std::string(name.data()));
  }
}

void SaveValues(const std::string& below, std::vector<SavedValue>& values) {
  const Key key = Open(PathOf(below));
  for (DWORD index = 0; key; ++index) {
    std::array<char, 16384> name{};
    std::vector<std::uint8_t> bytes(65536);
    DWORD nameSize = name.size();
    auto size = static_cast<DWORD>(bytes.size());
    DWORD type = 0;
    const LSTATUS result =
        RegEnumValueA(key.get(), index, name.data(), &nameSize, nullptr, &type, bytes.data(), &size);
    if (result == ERROR_NO_MORE_ITEMS) return;
    Check(result, "reading the settings");
    bytes.resize(size);
    values.push_back({below, std::string(name.data(), nameSize), type, std::move(bytes)});
  }
}

void WriteValue(const SavedValue& value) {
  Check(RegSetValueExA(Create(PathOf(value.key)).get(), value.name.c_str(), 0, value.type, value.bytes.data(),
                       static_cast<DWORD>(value.bytes.size())),
        "writing " + value.name);
}

void WriteNumber(const char* name, std::uint32_t number) {
  WriteValue({"",
              name,
              REG_DWORD,
              {static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(number >> 8U),
               static_cast<std::uint8_t>(number >> 16U), static_cast<std::uint8_t>(number >> 24U)}});
}

template <typename Bytes>
std::string Hex(const Bytes& bytes) {
  constexpr std::array<char, 17> kDigits{"0123456789abcdef"};
  std::string text = "x";
  for (const auto each : bytes) {
    text += kDigits[static_cast<std::uint8_t>(each) >> 4U];
    text += kDigits[static_cast<std::uint8_t>(each) & 0xFU];
  }
  return text;
}

std::optional<std::vector<std::uint8_t>> FromHex(const std::string& text) {
  if (text.size() % 2 != 1 || text[0] != 'x' ||
      text.find_first_not_of("0123456789abcdef", 1) != std::string::npos) {
    return std::nullopt;
  }
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 1; i < text.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

}  // namespace

SavedSettings SaveSettings() {
  SavedSettings saved;
  saved.makerKeyThere = Open(kMakerKey) != nullptr;
  saved.serverKeyThere = Open(kServerKey) != nullptr;
  saved.filtersKeyThere = Open(PathOf(kFilters)) != nullptr;
  SaveValues("", saved.values);
  SaveValues(kFilters, saved.values);
  return saved;
}

void RestoreSettings(const SavedSettings& saved) {
  DeleteValues(PathOf(kFilters));
  DeleteValues(kServerKey);
  if (!saved.filtersKeyThere) Delete(PathOf(kFilters));
  if (!saved.serverKeyThere) Delete(kServerKey);
  if (!saved.makerKeyThere) Delete(kMakerKey);
  if (saved.serverKeyThere) Create(kServerKey);
  if (saved.filtersKeyThere) Create(PathOf(kFilters));
  for (const SavedValue& value : saved.values) WriteValue(value);
}

std::string TextOf(const SavedSettings& saved) {
  std::string text = std::string(kFirstLine) + "\n" + (saved.makerKeyThere ? "1 " : "0 ") +
                     (saved.serverKeyThere ? "1 " : "0 ") + (saved.filtersKeyThere ? "1" : "0") + "\n";
  for (const SavedValue& value : saved.values) {
    text += Hex(value.key) + " " + Hex(value.name) + " " + std::to_string(value.type) + " " +
            Hex(value.bytes) + "\n";
  }
  return text + kLastLine + "\n";
}

std::optional<SavedSettings> SavedSettingsOf(const std::string& text) {
  std::istringstream lines(text);
  std::string line;
  SavedSettings saved;
  if (!std::getline(lines, line) || line != kFirstLine || !std::getline(lines, line) || line.size() != 5) {
    return std::nullopt;
  }
  saved.makerKeyThere = line[0] == '1';
  saved.serverKeyThere = line[2] == '1';
  saved.filtersKeyThere = line[4] == '1';
  while (std::getline(lines, line) && line != kLastLine) {
    std::istringstream words(line);
    std::array<std::string, 3> hex;
    SavedValue value;
    if (!(words >> hex[0] >> hex[1] >> value.type >> hex[2])) return std::nullopt;
    const auto key = FromHex(hex[0]);
    const auto name = FromHex(hex[1]);
    const auto bytes = FromHex(hex[2]);
    if (!key || !name || !bytes) return std::nullopt;
    value.key.assign(key->begin(), key->end());
    value.name.assign(name->begin(), name->end());
    value.bytes = *bytes;
    saved.values.push_back(std::move(value));
  }
  return line == kLastLine ? std::optional(saved) : std::nullopt;
}

void WriteSettings(const std::string& logFile, std::uint32_t capacity) {
  DeleteValues(PathOf(kFilters));
  DeleteValues(kServerKey);
  WriteNumber("MaxMessage", capacity);
  WriteNumber("DevicePollRate", 200);
  WriteNumber("SaveRate", 2);
  WriteLogFile(logFile);
}

void WriteLogFile(const std::string& logFile) {
  SavedValue value{"", "LogFile", REG_SZ, {logFile.begin(), logFile.end()}};
  value.bytes.push_back(0);
  WriteValue(value);
}

std::string StoredLogFile() {
  const Key key = Open(kServerKey);
  std::array<char, 2048> text{};
  DWORD size = text.size() - 1;
  DWORD type = 0;
  if (!key ||
      RegQueryValueExA(key.get(), "LogFile", nullptr, &type, reinterpret_cast<BYTE*>(text.data()), &size) !=
          ERROR_SUCCESS ||
      type != REG_SZ) {
    return "";
  }
  return text.data();
}

std::string SettingsAccessList() {
  const Key key = Open(kServerKey, READ_CONTROL);
  if (!key) return "";
  return AccessListOf(key.get(), ObjectKind::Key);
}

std::uint32_t TryToOpenSettingsForWriting() {
  HKEY key = nullptr;
  const LSTATUS result = RegOpenKeyExA(HKEY_LOCAL_MACHINE, kServerKey, 0, KEY_SET_VALUE, &key);
  const Key owned(result == ERROR_SUCCESS ? key : nullptr);
  return static_cast<std::uint32_t>(result);
}

}  // namespace TamLogCheck
