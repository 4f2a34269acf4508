#include "tests/server/support.h"

#include <cstring>
#include <fstream>

#include "util/win32.h"

namespace registry {

namespace {

HKEY OpenOrCreate(const char* key, DWORD options) {
  HKEY opened = nullptr;
  RegCreateKeyExA(HKEY_LOCAL_MACHINE, key, 0, nullptr, options, KEY_ALL_ACCESS, nullptr, &opened, nullptr);
  return opened;
}

}  // namespace

void DeleteAll() {
  RegDeleteTreeA(HKEY_LOCAL_MACHINE, kParentKey);
}

void ReplaceByVolatileParent() {
  DeleteAll();
  RegCloseKey(OpenOrCreate(kParentKey, REG_OPTION_VOLATILE));
}

bool KeyExists(const char* key) {
  HKEY opened = nullptr;
  const bool exists = RegOpenKeyExA(HKEY_LOCAL_MACHINE, key, 0, KEY_READ, &opened) == ERROR_SUCCESS;
  if (exists) RegCloseKey(opened);
  return exists;
}

std::optional<Value> Read(const char* key, const std::string& name) {
  HKEY opened = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, key, 0, KEY_READ, &opened) != ERROR_SUCCESS) return std::nullopt;
  std::string data(4096, '\0');
  DWORD type = 0;
  auto size = static_cast<DWORD>(data.size());
  const LSTATUS result =
      RegQueryValueExA(opened, name.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(data.data()), &size);
  RegCloseKey(opened);
  if (result != ERROR_SUCCESS) return std::nullopt;
  data.resize(size);
  return Value{type, data};
}

void Write(const char* key, const std::string& name, std::uint32_t type, const std::string& data) {
  HKEY opened = OpenOrCreate(key, REG_OPTION_NON_VOLATILE);
  RegSetValueExA(opened, name.c_str(), 0, type, reinterpret_cast<const BYTE*>(data.data()),
                 static_cast<DWORD>(data.size()));
  RegCloseKey(opened);
}

std::optional<std::uint32_t> Number(const std::string& name) {
  const std::optional<Value> value = Read(kMainKey, name);
  std::uint32_t number = 0;
  if (!value || value->type != REG_DWORD || value->data.size() != sizeof number) return std::nullopt;
  std::memcpy(&number, value->data.data(), sizeof number);
  return number;
}

std::optional<std::string> Text(const std::string& name) {
  const std::optional<Value> value = Read(kMainKey, name);
  if (!value || value->type != REG_SZ) return std::nullopt;
  return value->data.c_str();
}

void SetNumber(const std::string& name, std::uint32_t value) {
  Write(kMainKey, name, REG_DWORD, std::string(reinterpret_cast<const char*>(&value), sizeof value));
}

void SetText(const std::string& name, const std::string& value) {
  Write(kMainKey, name, REG_SZ, std::string(value.c_str(), value.size() + 1));
}

void AddFilterValue(const std::string& name, const std::string& data) {
  Write(kFiltersKey, name, REG_SZ, std::string(data.c_str(), data.size() + 1));
}

std::map<std::string, std::string> FilterValues() {
  std::map<std::string, std::string> values;
  HKEY opened = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, kFiltersKey, 0, KEY_READ, &opened) != ERROR_SUCCESS) return values;
  for (DWORD index = 0;; ++index) {
    char name[256];
    DWORD nameSize = sizeof name;
    char data[2048] = {};
    DWORD dataSize = sizeof data - 1;
    if (RegEnumValueA(opened, index, name, &nameSize, nullptr, nullptr, reinterpret_cast<BYTE*>(data),
                      &dataSize) != ERROR_SUCCESS) {
      break;
    }
    values[name] = data;
  }
  RegCloseKey(opened);
  return values;
}

}  // namespace registry

bool FileExists(const std::string& path) {
  return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::optional<LogFileHeader> ReadHeader(const std::string& logFile) {
  LogFileHeader header{};
  std::ifstream file(logFile, std::ios::binary);
  if (!file.read(reinterpret_cast<char*>(&header), sizeof header)) return std::nullopt;
  return header;
}

std::vector<std::string> RingTexts(const std::string& logFile) {
  std::vector<std::string> texts;
  const std::optional<LogFileHeader> header = ReadHeader(logFile);
  if (!header || header->maxMessages <= 0) return texts;
  std::ifstream file(logFile, std::ios::binary);
  for (int age = header->messageCount; age > 0; --age) {
    const int slot = (header->nextSlot - age + header->maxMessages) % header->maxMessages;
    file.seekg(static_cast<std::streamoff>(LogFileSize(static_cast<std::uint64_t>(slot))));
    LogMessage message{};
    if (!file.read(reinterpret_cast<char*>(&message), sizeof message)) break;
    texts.emplace_back(message.body.text, strnlen(message.body.text, kTextSize));
  }
  return texts;
}

LogMessageBody MakeMessage(const std::string& text, const std::string& source, std::uint32_t type,
                           std::int16_t minute) {
  LogMessageBody message{};
  const std::int16_t time[8] = {2024, 5, 17, 12, minute, 30, 250, 0};
  std::memcpy(message.timestamp, time, sizeof time);
  message.type = type;
  source.copy(message.source, kTextSize - 1);
  text.copy(message.text, kTextSize - 1);
  return message;
}

std::string ExecutableFolder() {
  char path[1024] = {};
  GetModuleFileNameA(nullptr, path, sizeof path);
  const std::string whole = path;
  return whole.substr(0, whole.rfind('\\'));
}

std::string SystemText(std::uint32_t code) {
  char* text = nullptr;
  FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                 nullptr, code, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<char*>(&text), 0,
                 nullptr);
  std::string result = text == nullptr ? "" : text;
  LocalFree(text);
  return result;
}

std::string ErrorSuffix(std::uint32_t code) {
  return " - Error code : " + std::to_string(code) + " - " + SystemText(code);
}

std::uint64_t NowMs() {
  return GetTickCount64();
}

int Occurrences(const std::string& text, const std::string& part) {
  int count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

std::string WithoutCarriageReturns(std::string text) {
  std::erase(text, '\r');
  return text;
}
