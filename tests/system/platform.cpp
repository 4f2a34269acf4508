#include "tests/system/platform.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "util/win32.h"

// Requires windows.h.
#include <tlhelp32.h>

namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(10);
constexpr auto kSharingLimit = std::chrono::seconds(5);
constexpr auto kEndLimit = std::chrono::seconds(60);

// A row of the system's handle table, one for each handle of each process. The winternl.h family does not
// declare it.
struct SystemHandle {
  ULONG ownerId;
  BYTE objectType;
  BYTE flags;
  USHORT value;
  void* object;
  ULONG access;
};
constexpr ULONG kSystemHandleInformation = 16;
using QuerySystemInformation = LONG(WINAPI*)(ULONG, void*, ULONG, ULONG*);

struct PipePair {
  OwnedHandle read;
  OwnedHandle write;
};

// Returns an empty handle when the file does not exist. Waits while another process has exclusive access, as
// the server does when it checks whether its file is free.
OwnedHandle OpenForReading(const std::string& path) {
  const auto deadline = std::chrono::steady_clock::now() + kSharingLimit;
  for (;;) {
    OwnedHandle file =
        Own(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                        nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    const DWORD error = GetLastError();
    if (file || error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return file;
    if (error != ERROR_SHARING_VIOLATION || std::chrono::steady_clock::now() >= deadline) {
      SetLastError(error);
      ThrowLastError("opening " + path);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

// Creates a pipe of which the child inherits one end.
PipePair MakePipe(bool childReads) {
  SECURITY_ATTRIBUTES inherit{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  HANDLE read = nullptr;
  HANDLE write = nullptr;
  if (CreatePipe(&read, &write, &inherit, 0) == 0) ThrowLastError("CreatePipe");
  PipePair pipe{Own(read), Own(write)};
  SetHandleInformation(childReads ? write : read, HANDLE_FLAG_INHERIT, 0);
  return pipe;
}

}  // namespace

void HandleCloser::operator()(void* handle) const {
  CloseHandle(handle);
}

OwnedHandle Own(void* handle) {
  return OwnedHandle(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
}

void ThrowLastError(const std::string& doing) {
  const DWORD code = GetLastError();
  throw std::runtime_error(doing + " failed with error " + std::to_string(code));
}

bool IsWine() {
  const HMODULE ntdll = GetModuleHandleA("ntdll.dll");
  return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

bool IsWindowsWorld() {
  return std::getenv("TAMLOG_WINDOWS_WORLD") != nullptr;
}

bool MappedFilesCountAsOpen() {
  return IsWine() && !IsWindowsWorld();
}

bool Eventually(std::chrono::milliseconds limit, const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(kPollInterval);
  }
  return true;
}

std::string OwnDirectory() {
  std::array<char, 1024> name{};
  const DWORD length = GetModuleFileNameA(nullptr, name.data(), static_cast<DWORD>(name.size()));
  if (length == 0 || length >= name.size()) ThrowLastError("GetModuleFileName");
  const std::string path(name.data(), length);
  return path.substr(0, path.rfind('\\'));
}

std::string ServiceDirectory() {
  std::array<char, MAX_PATH> name{};
  // Services run in the system directory; under Wine, in its parent directory.
  const UINT length = IsWine() ? GetWindowsDirectoryA(name.data(), static_cast<UINT>(name.size()))
                               : GetSystemDirectoryA(name.data(), static_cast<UINT>(name.size()));
  if (length == 0 || length >= name.size()) ThrowLastError("asking for the services' directory");
  return {name.data(), length};
}

std::string ReadWholeFile(const std::string& path, std::size_t limit) {
  const OwnedHandle file = OpenForReading(path);
  if (!file) return {};
  LARGE_INTEGER size{};
  if (GetFileSizeEx(file.get(), &size) == 0) ThrowLastError("GetFileSizeEx of " + path);
  std::string bytes(std::min(static_cast<std::size_t>(size.QuadPart), limit), '\0');
  DWORD got = 0;
  if (ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &got, nullptr) == 0) {
    ThrowLastError("ReadFile of " + path);
  }
  bytes.resize(got);
  return bytes;
}

void WriteWholeFile(const std::string& path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!file.flush()) throw std::runtime_error("writing " + path + " failed");
}

bool FileExists(const std::string& path) {
  return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

void DeleteFileIfThere(const std::string& path) {
  if (FileExists(path) && DeleteFileA(path.c_str()) == 0) ThrowLastError("DeleteFile of " + path);
}

void CopyFileTo(const std::string& from, const std::string& to) {
  if (CopyFileA(from.c_str(), to.c_str(), FALSE) == 0) ThrowLastError("CopyFile of " + from);
}

ScratchDirectory::ScratchDirectory() {
  std::array<char, MAX_PATH> base{};
  if (GetTempPathA(static_cast<DWORD>(base.size()), base.data()) == 0) ThrowLastError("GetTempPath");
  path = std::string(base.data()) + "tamlog test " + std::to_string(GetCurrentProcessId());
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
  std::filesystem::create_directories(path);
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
}

ProcessById::ProcessById(std::uint32_t processId)
    : id(processId),
      process(
          Own(OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_TERMINATE | SYNCHRONIZE, FALSE, processId))) {}

bool ProcessById::Alive() const {
  return process && WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT;
}

bool ProcessById::Runs(const std::string& executableName) const {
  std::array<char, 1024> name{};
  DWORD size = name.size();
  if (!Alive() || QueryFullProcessImageNameA(process.get(), 0, name.data(), &size) == 0) return false;
  const std::string path(name.data(), size);
  return path.substr(path.rfind('\\') + 1) == executableName;
}

std::optional<std::uint32_t> ProcessById::WaitForEnd(std::chrono::milliseconds limit) const {
  DWORD code = 0;
  if (!process || WaitForSingleObject(process.get(), static_cast<DWORD>(limit.count())) != WAIT_OBJECT_0 ||
      GetExitCodeProcess(process.get(), &code) == 0) {
    return std::nullopt;
  }
  return code;
}

void ProcessById::Kill() {
  if (!Alive()) return;
  TerminateProcess(process.get(), 1);
  WaitForSingleObject(process.get(), 5000);
}

std::size_t ProcessById::HandleCount() const {
  // GetProcessHandleCount returns 0 under Wine; the list of all handles is correct on both.
  const HMODULE ntdll = GetModuleHandleA("ntdll.dll");
  // NOLINTNEXTLINE(bugprone-casting-through-void): the way from a FARPROC to the function's real type
  const auto query = reinterpret_cast<QuerySystemInformation>(
      reinterpret_cast<void*>(GetProcAddress(ntdll, "NtQuerySystemInformation")));
  std::vector<std::byte> table(std::size_t{1} << 20);
  ULONG needed = 0;
  while (query(kSystemHandleInformation, table.data(), static_cast<ULONG>(table.size()), &needed) != 0) {
    table.resize(table.size() * 2);
    if (table.size() > (std::size_t{1} << 26)) throw std::runtime_error("the table of handles has no end");
  }
  ULONG rows = 0;
  std::memcpy(&rows, table.data(), sizeof(rows));
  std::size_t count = 0;
  for (ULONG row = 0; row < rows; ++row) {
    SystemHandle handle{};
    std::memcpy(&handle, table.data() + sizeof(void*) + row * sizeof(SystemHandle), sizeof(handle));
    count += handle.ownerId == id ? 1 : 0;
  }
  return count;
}

std::size_t ProcessById::ThreadCount() const {
  const OwnedHandle snapshot = Own(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
  if (!snapshot) ThrowLastError("the list of threads");
  THREADENTRY32 entry{};
  entry.dwSize = sizeof(entry);
  std::size_t count = 0;
  for (BOOL more = Thread32First(snapshot.get(), &entry); more != 0;
       more = Thread32Next(snapshot.get(), &entry)) {
    count += entry.th32OwnerProcessID == id ? 1 : 0;
  }
  return count;
}

ChildProcess::ChildProcess(const std::string& commandLine) {
  PipePair toChild = MakePipe(true);
  PipePair fromChild = MakePipe(false);
  STARTUPINFOA startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = toChild.read.get();
  startup.hStdOutput = fromChild.write.get();
  startup.hStdError = fromChild.write.get();
  PROCESS_INFORMATION info{};
  std::string line = commandLine;
  if (CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &info) ==
      0) {
    ThrowLastError("CreateProcess of " + commandLine);
  }
  CloseHandle(info.hThread);
  process = Own(info.hProcess);
  input = std::move(toChild.write);
  output = std::move(fromChild.read);
}

ChildProcess::~ChildProcess() {
  Kill();
}

bool ChildProcess::ReadMore() {
  DWORD waiting = 0;
  if (PeekNamedPipe(output.get(), nullptr, 0, nullptr, &waiting, nullptr) == 0 || waiting == 0) return false;
  std::array<char, 4096> bytes{};
  DWORD got = 0;
  const DWORD wanted = waiting < bytes.size() ? waiting : static_cast<DWORD>(bytes.size());
  if (ReadFile(output.get(), bytes.data(), wanted, &got, nullptr) == 0) return false;
  for (DWORD i = 0; i < got; ++i) {
    if (bytes[i] != '\r') unread += bytes[i];
  }
  return true;
}

std::optional<std::string> ChildProcess::ReadLine(std::chrono::milliseconds limit) {
  const auto complete = [this] {
    const bool ended = WaitForSingleObject(process.get(), 0) == WAIT_OBJECT_0;
    while (ReadMore()) {
    }
    return ended || unread.find('\n') != std::string::npos;
  };
  Eventually(limit, complete);
  const std::size_t end = unread.find('\n');
  if (end == std::string::npos) return std::nullopt;
  std::string line = unread.substr(0, end);
  unread.erase(0, end + 1);
  return line;
}

void ChildProcess::WriteLine(const std::string& line) {
  const std::string text = line + "\n";
  DWORD written = 0;
  if (WriteFile(input.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) == 0) {
    ThrowLastError("writing to a child");
  }
}

void ChildProcess::CloseInput() {
  input.reset();
}

std::optional<std::uint32_t> ChildProcess::WaitForEnd(std::chrono::milliseconds limit) {
  DWORD code = 0;
  if (WaitForSingleObject(process.get(), static_cast<DWORD>(limit.count())) != WAIT_OBJECT_0 ||
      GetExitCodeProcess(process.get(), &code) == 0) {
    return std::nullopt;
  }
  return code;
}

std::string ChildProcess::FinishOutput(std::chrono::milliseconds limit) {
  Eventually(limit, [this] {
    const bool ended = WaitForSingleObject(process.get(), 0) == WAIT_OBJECT_0;
    while (ReadMore()) {
    }
    return ended;
  });
  return std::exchange(unread, {});
}

void ChildProcess::Kill() {
  if (process && WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT) {
    TerminateProcess(process.get(), 1);
    WaitForSingleObject(process.get(), 5000);
  }
}

namespace {

// Calls a function of ntdll that has no import library.
void CallOnProcess(const char* function, void* process) {
  using Call = LONG(NTAPI*)(HANDLE);
  const auto call = reinterpret_cast<Call>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("ntdll.dll"), function)));
  if (call == nullptr) ThrowLastError(function);
  call(process);  // fails for a process that has just ended
}

}  // namespace

void ChildProcess::Suspend() {
  CallOnProcess("NtSuspendProcess", process.get());
}

void ChildProcess::Resume() {
  CallOnProcess("NtResumeProcess", process.get());
}

CommandReport ReportAtEnd(ChildProcess& program) {
  program.CloseInput();
  CommandReport report;
  report.output = program.FinishOutput(kEndLimit);
  report.exitCode = program.WaitForEnd(kEndLimit);
  return report;
}

CommandReport RunOwnProgram(const std::string& name, const std::string& arguments, const std::string& line) {
  ChildProcess program("\"" + OwnDirectory() + "\\" + name + "\" " + arguments);
  if (!line.empty()) program.WriteLine(line);
  return ReportAtEnd(program);
}

CommandReport RunTool(const std::string& arguments, const std::string& line) {
  return RunOwnProgram("tamlogctl.exe", arguments, line);
}
