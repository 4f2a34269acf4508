#include "check/system.h"

#include <array>
#include <stdexcept>

#include "client/message/win32.h"

// Both require windows.h.
#include <aclapi.h>
#include <sddl.h>

namespace TamLogCheck {

void Fail(const std::string& doing) {
  Fail(doing, GetLastError());
}

void Fail(const std::string& doing, std::uint32_t error) {
  throw std::runtime_error(doing + " failed with " + ErrorText(error));
}

std::string ErrorText(std::uint32_t error) {
  return "error " + std::to_string(error);
}

bool Eventually(std::uint32_t limitMs, const std::function<bool()>& condition) {
  const std::uint64_t end = Ticks() + limitMs;
  while (!condition()) {
    if (Ticks() > end) return condition();
    Sleep(20);
  }
  return true;
}

std::uint64_t Ticks() {
  return GetTickCount64();
}

std::string WineVersion() {
  using Function = const char*(__cdecl*)();
  const HMODULE ntdll = GetModuleHandleA("ntdll.dll");
  if (ntdll == nullptr) return "";
  const auto version =
      reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(ntdll, "wine_get_version")));
  return version == nullptr ? "" : version();
}

std::string OwnPath() {
  std::array<char, 1024> path{};
  const DWORD length = GetModuleFileNameA(nullptr, path.data(), static_cast<DWORD>(path.size()));
  if (length == 0 || length >= path.size()) Fail("GetModuleFileName");
  return {path.data(), length};
}

std::string OwnDirectory() {
  const std::string path = OwnPath();
  return path.substr(0, path.find_last_of("\\/"));
}

std::string SystemDirectory() {
  std::array<char, 1024> path{};
  const UINT length = GetSystemDirectoryA(path.data(), static_cast<UINT>(path.size()));
  if (length == 0 || length >= path.size()) Fail("GetSystemDirectory");
  return {path.data(), length};
}

std::string PathIn(const std::string& directory, const std::string& name) {
  return directory + "\\" + name;
}

bool Exists(const std::string& path) {
  return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::uint64_t SizeOf(const std::string& path) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data) == 0) return 0;
  return (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32U) | data.nFileSizeLow;
}

void CreateProtectedDirectory(const std::string& path) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (ConvertStringSecurityDescriptorToSecurityDescriptorA(
          "D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)", SDDL_REVISION_1, &descriptor,
          nullptr) == 0) {
    Fail("ConvertStringSecurityDescriptorToSecurityDescriptor");
  }
  SECURITY_ATTRIBUTES strict{sizeof(SECURITY_ATTRIBUTES), descriptor, FALSE};
  const DWORD error = CreateDirectoryA(path.c_str(), &strict) != 0 ? ERROR_SUCCESS : GetLastError();
  LocalFree(descriptor);
  if (error != ERROR_SUCCESS) Fail("creating the directory " + path, error);
}

void WriteTextFile(const std::string& path, const std::string& text) {
  const Handle file(
      CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr));
  DWORD written = 0;
  if (!file || WriteFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) == 0 ||
      written != text.size()) {
    Fail("writing " + path);
  }
}

std::string ReadTextFile(const std::string& path) {
  const Handle file = OpenAt(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
  std::string text;
  std::array<char, 4096> part{};
  DWORD count = 0;
  while (file && ReadFile(file.Get(), part.data(), static_cast<DWORD>(part.size()), &count, nullptr) != 0 &&
         count > 0) {
    text.append(part.data(), count);
  }
  return text;
}

bool RemoveDirectoryAt(const std::string& path) {
  WIN32_FIND_DATAA found{};
  const HANDLE search = FindFirstFileA(PathIn(path, "*").c_str(), &found);
  if (search != INVALID_HANDLE_VALUE) {
    do {
      if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        DeleteFileA(PathIn(path, found.cFileName).c_str());
      }
    } while (FindNextFileA(search, &found) != 0);
    FindClose(search);
  }
  return RemoveDirectoryA(path.c_str()) != 0 || !Exists(path);
}

Handle OpenAt(const std::string& path, std::uint32_t access, std::uint32_t sharing, bool create) {
  return Handle(
      CreateFileA(path.c_str(), access, sharing, nullptr, create ? OPEN_ALWAYS : OPEN_EXISTING, 0, nullptr));
}

std::string AccessListOf(void* object, ObjectKind kind) {
  const SE_OBJECT_TYPE type = kind == ObjectKind::Kernel ? SE_KERNEL_OBJECT
                              : kind == ObjectKind::File ? SE_FILE_OBJECT
                                                         : SE_REGISTRY_KEY;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  const DWORD error = GetSecurityInfo(object, type, DACL_SECURITY_INFORMATION, nullptr, nullptr, nullptr,
                                      nullptr, &descriptor);
  if (error != ERROR_SUCCESS) Fail("GetSecurityInfo", error);
  char* text = nullptr;
  const BOOL converted = ConvertSecurityDescriptorToStringSecurityDescriptorA(
      descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr);
  LocalFree(descriptor);
  if (converted == 0) Fail("ConvertSecurityDescriptorToStringSecurityDescriptor");
  std::string list = text;
  LocalFree(text);
  return list;
}

}  // namespace TamLogCheck
