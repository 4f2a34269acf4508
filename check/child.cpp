#include "check/child.h"

#include <array>

#include "client/message/win32.h"

namespace TamLogCheck {

namespace {

// Makes a pipe whose `kept` end the child does not inherit.
void MakePipe(Handle& read, Handle& write, const Handle& kept) {
  SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  HANDLE ends[2]{};
  if (CreatePipe(&ends[0], &ends[1], &inherited, 0) == 0) Fail("CreatePipe");
  read = Handle(ends[0]);
  write = Handle(ends[1]);
  if (SetHandleInformation(kept.Get(), HANDLE_FLAG_INHERIT, 0) == 0) Fail("SetHandleInformation");
}

}  // namespace

std::string PartCommand(const std::string& part) {
  return "\"" + OwnPath() + "\" --part " + part;
}

Child::Child(const std::string& commandLine) {
  Handle childInput;
  Handle childOutput;
  MakePipe(childInput, input, input);
  MakePipe(output, childOutput, output);
  STARTUPINFOA start{};
  start.cb = sizeof(start);
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdInput = childInput.Get();
  start.hStdOutput = childOutput.Get();
  start.hStdError = childOutput.Get();
  PROCESS_INFORMATION made{};
  std::string line = commandLine;
  if (CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr, nullptr, &start,
                     &made) == 0) {
    Fail("starting " + commandLine);
  }
  process = Handle(made.hProcess);
  const Handle thread(made.hThread);
}

Child::~Child() {
  Kill();
}

bool Child::ReadMore() {
  std::array<char, 4096> part{};
  DWORD there = 0;
  DWORD count = 0;
  if (PeekNamedPipe(output.Get(), nullptr, 0, nullptr, &there, nullptr) == 0 || there == 0) return false;
  if (ReadFile(output.Get(), part.data(), static_cast<DWORD>(part.size()), &count, nullptr) == 0)
    return false;
  unread.append(part.data(), count);
  return true;
}

std::optional<std::string> Child::ReadLine(std::uint32_t limitMs) {
  std::size_t end = std::string::npos;
  const bool there = Eventually(limitMs, [&] {
    while (ReadMore()) {
    }
    end = unread.find('\n');
    return end != std::string::npos || WaitForEnd(0).has_value();
  });
  if (!there || end == std::string::npos) return std::nullopt;
  std::string line = unread.substr(0, end);
  unread.erase(0, end + 1);
  if (line.ends_with('\r')) line.pop_back();
  return line;
}

std::string Child::ReadAll(std::uint32_t limitMs) {
  Eventually(limitMs, [this] {
    const bool ended = WaitForEnd(0).has_value();
    while (ReadMore()) {
    }
    return ended;
  });
  return std::exchange(unread, "");
}

std::optional<std::uint32_t> Child::WaitForEnd(std::uint32_t limitMs) {
  if (WaitForSingleObject(process.Get(), limitMs) != WAIT_OBJECT_0) return std::nullopt;
  DWORD code = 0;
  if (GetExitCodeProcess(process.Get(), &code) == 0) Fail("GetExitCodeProcess");
  return code;
}

void Child::Kill() {
  TerminateProcess(process.Get(), 1);
  WaitForSingleObject(process.Get(), 5000);
}

}  // namespace TamLogCheck
