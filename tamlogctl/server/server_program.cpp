#include "tamlogctl/server/server_program.h"

#include <array>

#include "client/live/handle.h"
#include "client/message/win32.h"
#include "tamlogctl/base/system_text.h"
#include "tamlogctl/base/wide_text.h"

namespace TamLogCtl {

namespace {

using TamLogClient::Handle;

constexpr DWORD kInstallMs = 60000;

// Returns the full path: a relative one would be looked for in several directories.
std::wstring FullPath(const std::string& path) {
  const std::wstring wide = Utf8ToWide(path);
  std::wstring full(GetFullPathNameW(wide.c_str(), 0, nullptr, nullptr), L'\0');
  full.resize(GetFullPathNameW(wide.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr));
  return full;
}

// An empty input: a failed installation waits for a key.
Handle OpenNothing() {
  SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  return Handle(CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                            &inherited, OPEN_EXISTING, 0, nullptr));
}

bool MayInstall() {
  const SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE);
  if (manager == nullptr) return GetLastError() != ERROR_ACCESS_DENIED;
  CloseServiceHandle(manager);
  return true;
}

}  // namespace

std::string ServerProgramHere() {
  std::array<wchar_t, 1024> own{};
  const DWORD length = GetModuleFileNameW(nullptr, own.data(), static_cast<DWORD>(own.size()));
  const std::wstring path(own.data(), length);
  return WideToUtf8(path.substr(0, path.find_last_of(L'\\') + 1)) + "TamLogServer.exe";
}

std::string RunInstallation(const std::string& program) {
  if (!MayInstall()) return kAccessDeniedText;
  const std::wstring path = FullPath(program);
  std::wstring command = L"\"" + path + L"\" -install";
  const Handle nothing = OpenNothing();
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = nothing.Get();
  startup.hStdOutput = nothing.Get();
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION started{};
  if (CreateProcessW(path.c_str(), command.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr, nullptr,
                     &startup, &started) == FALSE)
    return "'" + program + "' cannot be run: " + SystemText(GetLastError());
  CloseHandle(started.hThread);
  const Handle process(started.hProcess);
  DWORD exitCode = 1;
  if (WaitForSingleObject(process.Get(), kInstallMs) != WAIT_OBJECT_0) return "the installation does not end";
  GetExitCodeProcess(process.Get(), &exitCode);
  return exitCode == 0 ? "" : "'" + program + "' could not install itself";
}

}  // namespace TamLogCtl
