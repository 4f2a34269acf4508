#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/program.h"
#include "util/win32.h"

namespace TestSupport {

namespace {

constexpr DWORD kLimitMs = 30000;
constexpr UINT kEndedByTest = 99;

// Opens a file that a child inherits. The caller closes it.
HANDLE OpenForChild(const std::string& path, bool write) {
  SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  return CreateFileA(path.c_str(), write ? GENERIC_WRITE : GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                     &inherited, write ? CREATE_ALWAYS : OPEN_EXISTING, 0, nullptr);
}

int WaitForExitCode(HANDLE process, const std::string& commandLine) {
  if (WaitForSingleObject(process, kLimitMs) != WAIT_OBJECT_0) {
    TerminateProcess(process, kEndedByTest);
    ADD_FAILURE() << "did not end: " << commandLine;
  }
  DWORD exitCode = 0;
  GetExitCodeProcess(process, &exitCode);
  return static_cast<int>(exitCode);
}

}  // namespace

Outcome RunIn(const std::string& folder, const std::string& commandLine, const std::string& input) {
  WriteBytes(folder + "\\in", input);
  STARTUPINFOA startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = OpenForChild(folder + "\\in", false);
  startup.hStdOutput = OpenForChild(folder + "\\out", true);
  startup.hStdError = OpenForChild(folder + "\\err", true);
  PROCESS_INFORMATION process{};
  std::string line = commandLine;
  const BOOL started = CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr,
                                      folder.c_str(), &startup, &process);
  const DWORD error = GetLastError();
  for (const HANDLE stream : {startup.hStdInput, startup.hStdOutput, startup.hStdError}) CloseHandle(stream);
  Outcome outcome;
  if (started == FALSE) {
    ADD_FAILURE() << "cannot start " << commandLine << ": " << error;
    return outcome;
  }
  outcome.exitCode = WaitForExitCode(process.hProcess, commandLine);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  outcome.out = ReadBytes(folder + "\\out");
  outcome.err = ReadBytes(folder + "\\err");
  return outcome;
}

}  // namespace TestSupport
