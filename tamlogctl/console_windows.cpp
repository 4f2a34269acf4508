#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "client/win32.h"
#include "tamlogctl/console.h"

namespace TamLogCtl {

namespace {

std::atomic<bool> interrupted{false};

bool IsConsole(DWORD which) {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(which), &mode) != FALSE;
}

// The system calls this on a thread of its own.
BOOL WINAPI OnControl(DWORD event) {
  if (event == CTRL_LOGOFF_EVENT) return FALSE;
  return interrupted.exchange(true) ? FALSE : TRUE;
}

bool WriteConsole(HANDLE console, std::string_view text) {
  const int bytes = static_cast<int>(text.size());
  std::wstring wide(text.size(), L'\0');
  const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, wide.data(), bytes);
  DWORD written = 0;
  return WriteConsoleW(console, wide.data(), static_cast<DWORD>(length), &written, nullptr) != FALSE;
}

bool WriteFully(HANDLE file, std::string_view text) {
  while (!text.empty()) {
    DWORD written = 0;
    const auto bytes = static_cast<DWORD>(std::min<std::size_t>(text.size(), 1U << 20U));
    if (WriteFile(file, text.data(), bytes, &written, nullptr) == FALSE || written == 0) return false;
    text.remove_prefix(written);
  }
  return true;
}

bool Write(DWORD which, std::string_view text) {
  if (text.empty()) return true;
  const HANDLE stream = GetStdHandle(which);
  return IsConsole(which) ? WriteConsole(stream, text) : WriteFully(stream, text);
}

}  // namespace

bool StdoutIsTerminal() {
  return IsConsole(STD_OUTPUT_HANDLE);
}

bool StdinIsTerminal() {
  return IsConsole(STD_INPUT_HANDLE);
}

bool EnableColors() {
  constexpr DWORD kVirtualTerminal = 0x0004;  // ENABLE_VIRTUAL_TERMINAL_PROCESSING
  const HANDLE stream = GetStdHandle(STD_OUTPUT_HANDLE);
  DWORD mode = 0;
  if (GetConsoleMode(stream, &mode) == FALSE) return false;
  return SetConsoleMode(stream, mode | kVirtualTerminal) != FALSE;
}

bool WriteOut(std::string_view text) {
  return Write(STD_OUTPUT_HANDLE, text);
}

void Say(std::string_view line) {
  std::string whole = "tamlogctl: ";
  whole.append(line).append("\n");
  Write(STD_ERROR_HANDLE, whole);
}

bool ReadLine(std::string& line) {
  static const bool binary = _setmode(_fileno(stdin), _O_BINARY) != -1;
  if (!binary || !std::getline(std::cin, line)) return false;
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return true;
}

void DeferInterrupts() {
  SetConsoleCtrlHandler(OnControl, TRUE);
}

bool Interrupted() {
  return interrupted;
}

bool SleepFor(std::uint32_t milliseconds) {
  constexpr std::uint64_t kStep = 50;
  const std::uint64_t end = Ticks() + milliseconds;
  while (!Interrupted() && Ticks() < end) Sleep(static_cast<DWORD>(std::min(kStep, end - Ticks())));
  return !Interrupted();
}

std::uint64_t Ticks() {
  return GetTickCount64();
}

TamLogClient::TimeWords Now() {
  SYSTEMTIME time;
  GetLocalTime(&time);
  const auto word = [](WORD value) { return static_cast<std::int16_t>(value); };
  return {word(time.wYear),   word(time.wMonth),  word(time.wDay),          word(time.wHour),
          word(time.wMinute), word(time.wSecond), word(time.wMilliseconds), 0};
}

std::uint32_t ProcessId() {
  return GetCurrentProcessId();
}

bool EnvironmentHas(const char* name) {
  return GetEnvironmentVariableA(name, nullptr, 0) > 1;
}

}  // namespace TamLogCtl
