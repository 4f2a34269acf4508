// Does to the server's files and settings what other programs on a customer's machine do. Prints "ready", and
// continues until its input ends.
//
//   scan DIRECTORY...   opens every file for a moment without sharing it, again and again, as virus
//                       scanners do; at the end prints "opened N refused N"
//   lock-key            replaces the maker's key in the registry by one under which no lasting key can be
//                       created; removes it at the end
//   null-device         gives the null device the driver's name as well; takes it back at the end

#include <atomic>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>

#include "util/win32.h"

// Requires windows.h.
#include <winternl.h>

namespace {

constexpr char kMakerKey[] = R"(SOFTWARE\Brenmark VORTA)";

std::atomic<bool> ended{false};

void Say(const std::string& line) {
  std::cout << line << std::endl;
}

void AwaitEnd() {
  std::string line;
  while (std::getline(std::cin, line)) {
  }
  ended = true;
}

int Scan(char** begin, char** end) {
  std::uint64_t opened = 0;
  std::uint64_t refused = 0;
  std::thread input(AwaitEnd);
  Say("ready");
  while (!ended) {
    for (char** directory = begin; directory != end; ++directory) {
      std::error_code failure;
      for (const auto& entry : std::filesystem::directory_iterator(*directory, failure)) {
        const HANDLE file =
            CreateFileA(entry.path().string().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        if (file == INVALID_HANDLE_VALUE) {
          ++refused;
          continue;
        }
        ++opened;
        std::this_thread::sleep_for(std::chrono::milliseconds(15));
        CloseHandle(file);
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
  }
  input.join();
  Say("opened " + std::to_string(opened) + " refused " + std::to_string(refused));
  return 0;
}

int LockKey() {
  RegDeleteTreeA(HKEY_LOCAL_MACHINE, kMakerKey);
  HKEY key = nullptr;
  const LSTATUS made = RegCreateKeyExA(HKEY_LOCAL_MACHINE, kMakerKey, 0, nullptr, REG_OPTION_VOLATILE,
                                       KEY_ALL_ACCESS, nullptr, &key, nullptr);
  if (made != ERROR_SUCCESS) {
    Say("error " + std::to_string(made));
    return 1;
  }
  Say("ready");
  AwaitEnd();
  RegCloseKey(key);
  RegDeleteKeyA(HKEY_LOCAL_MACHINE, kMakerKey);
  return 0;
}

// Wine's DefineDosDevice writes such a long name behind the end of its buffer; this function does the same.
int NullDevice() {
  using MakeLink = NTSTATUS(NTAPI*)(HANDLE*, ACCESS_MASK, OBJECT_ATTRIBUTES*, UNICODE_STRING*);
  const auto makeLink = reinterpret_cast<MakeLink>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("ntdll.dll"), "NtCreateSymbolicLinkObject")));
  std::wstring name = L"\\??\\TAMLOG";
  std::wstring target = L"\\Device\\Null";
  const auto text = [](std::wstring& of) {
    const auto bytes = static_cast<USHORT>(of.size() * sizeof(wchar_t));
    return UNICODE_STRING{bytes, bytes, of.data()};
  };
  UNICODE_STRING nameText = text(name);
  UNICODE_STRING targetText = text(target);
  OBJECT_ATTRIBUTES attributes{};
  attributes.Length = sizeof attributes;
  attributes.ObjectName = &nameText;
  HANDLE link = nullptr;
  if (makeLink == nullptr || makeLink(&link, DELETE | READ_CONTROL, &attributes, &targetText) < 0) {
    Say("the name exists already");
    return 1;
  }
  Say("ready");
  AwaitEnd();
  CloseHandle(link);  // the name ends with its last handle
  return 0;
}

}  // namespace

int main(int count, char** arguments) {
  const std::string mode = count > 1 ? arguments[1] : "";
  if (mode == "scan" && count > 2) return Scan(arguments + 2, arguments + count);
  if (mode == "lock-key" && count == 2) return LockKey();
  if (mode == "null-device" && count == 2) return NullDevice();
  std::cerr << "usage: machine_trouble scan DIRECTORY... | lock-key | null-device\n";
  return 2;
}
