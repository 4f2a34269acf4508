#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "client/live/handle.h"
#include "client/message/win32.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/console_pieces.h"

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
  std::wstring_view rest(wide.data(), static_cast<std::size_t>(length));
  while (!rest.empty()) {
    constexpr std::size_t kMostUnits = 8000;
    const auto piece = static_cast<DWORD>(PieceLength(rest, kMostUnits));
    DWORD written = 0;
    if (WriteConsoleW(console, rest.data(), piece, &written, nullptr) == FALSE || written == 0) return false;
    rest.remove_prefix(std::min<std::size_t>(written, rest.size()));
  }
  return true;
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

std::string ToUtf8(std::wstring_view text) {
  if (text.empty()) return {};
  const int units = static_cast<int>(text.size());
  const int bytes = WideCharToMultiByte(CP_UTF8, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
  std::string utf8(static_cast<std::size_t>(std::max(bytes, 0)), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), units, utf8.data(), bytes, nullptr, nullptr);
  return utf8;
}

// What is typed arrives as it is; the C library would bend it into the console's code page.
bool ReadConsoleLine(std::string& line) {
  constexpr wchar_t kEnd = 26;  // Ctrl-Z at the beginning of a line
  const HANDLE console = GetStdHandle(STD_INPUT_HANDLE);
  std::wstring whole;
  while (whole.empty() || whole.back() != L'\n') {
    std::array<wchar_t, 512> piece{};
    DWORD count = 0;
    if (ReadConsoleW(console, piece.data(), static_cast<DWORD>(piece.size()), &count, nullptr) == FALSE ||
        count == 0)
      break;
    whole.append(piece.data(), count);
    if (whole.front() == kEnd) return false;
  }
  if (whole.empty()) return false;
  while (!whole.empty() && (whole.back() == L'\n' || whole.back() == L'\r')) whole.pop_back();
  line = ToUtf8(whole);
  return true;
}

}  // namespace

bool StdoutIsTerminal() {
  return IsConsole(STD_OUTPUT_HANDLE);
}

bool StdinIsTerminal() {
  return IsConsole(STD_INPUT_HANDLE);
}

bool StderrIsTerminal() {
  return IsConsole(STD_ERROR_HANDLE);
}

bool EnableColors() {
  constexpr DWORD kVirtualTerminal = 0x0004;  // ENABLE_VIRTUAL_TERMINAL_PROCESSING
  const HANDLE stream = GetStdHandle(STD_OUTPUT_HANDLE);
  DWORD mode = 0;
  if (GetConsoleMode(stream, &mode) == FALSE) return false;
  return SetConsoleMode(stream, mode | kVirtualTerminal) != FALSE;
}

bool WriteOut(std::string_view text) {
  if (Write(STD_OUTPUT_HANDLE, text)) return true;
  const DWORD error = GetLastError();
  // A reader that went away has seen enough; anything else has to be told, once.
  static bool told =
      error == ERROR_BROKEN_PIPE || error == ERROR_NO_DATA || error == ERROR_PIPE_NOT_CONNECTED;
  if (!told) Say("standard output cannot be written (error " + std::to_string(error) + ")");
  told = true;
  return false;
}

bool WriteErr(std::string_view text) {
  return Write(STD_ERROR_HANDLE, text);
}

void Say(std::string_view line) {
  std::string whole = "tamlogctl: ";
  whole.append(line).append("\n");
  Write(STD_ERROR_HANDLE, whole);
}

bool ReadLine(std::string& line) {
  if (StdinIsTerminal()) return ReadConsoleLine(line);
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

int LocalOffsetMinutes(const TamLogClient::TimeWords& utc) {
  const auto word = [&utc](std::size_t i) { return static_cast<WORD>(utc[i]); };
  const SYSTEMTIME moment{word(0), word(1), 0, word(2), word(3), word(4), word(5), word(6)};
  SYSTEMTIME local{};
  FILETIME utcTicks{};
  FILETIME localTicks{};
  if (SystemTimeToTzSpecificLocalTime(nullptr, &moment, &local) == FALSE ||
      SystemTimeToFileTime(&moment, &utcTicks) == FALSE || SystemTimeToFileTime(&local, &localTicks) == FALSE)
    return 0;
  const auto ticks = [](const FILETIME& time) {
    return static_cast<std::int64_t>((std::uint64_t{time.dwHighDateTime} << 32U) | time.dwLowDateTime);
  };
  constexpr std::int64_t kTicksAMinute = 600000000;
  return static_cast<int>((ticks(localTicks) - ticks(utcTicks)) / kTicksAMinute);
}

std::uint32_t ProcessId() {
  return GetCurrentProcessId();
}

bool EnvironmentHas(const char* name) {
  return GetEnvironmentVariableA(name, nullptr, 0) > 1;
}

std::string EnvironmentValue(const char* name) {
  std::string value(GetEnvironmentVariableA(name, nullptr, 0), '\0');
  value.resize(GetEnvironmentVariableA(name, value.data(), static_cast<DWORD>(value.size())));
  return value;
}

namespace {

TamLogClient::Handle pagerProcess;
TamLogClient::Handle pagerPipe;

std::wstring Environment(const wchar_t* name) {
  std::wstring value(GetEnvironmentVariableW(name, nullptr, 0), L'\0');
  value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
  return value;
}

// Starts the command with `input` as its standard input; its output goes to the console.
TamLogClient::Handle StartWithInput(std::wstring command, HANDLE input) {
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = input;
  startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION process{};
  if (CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                     &process) == FALSE) {
    return {};
  }
  CloseHandle(process.hThread);
  return TamLogClient::Handle(process.hProcess);
}

}  // namespace

void Pager::Begin() {
  const std::wstring chosen = Environment(L"PAGER");
  if (active || chosen.empty() || !StdoutIsTerminal()) return;
  SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  HANDLE readEnd = nullptr;
  HANDLE writeEnd = nullptr;
  if (CreatePipe(&readEnd, &writeEnd, &inherited, 0) == FALSE) return;
  const TamLogClient::Handle input(readEnd);
  pagerPipe = TamLogClient::Handle(writeEnd);
  SetHandleInformation(writeEnd, HANDLE_FLAG_INHERIT, 0);
  pagerProcess = StartWithInput(L"cmd.exe /d /c " + chosen, input.Get());
  if (!pagerProcess) return;
  SetStdHandle(STD_OUTPUT_HANDLE, pagerPipe.Get());
  active = true;
}

bool Pager::End() {
  if (!active) return true;
  active = false;
  pagerPipe.Close();
  WaitForSingleObject(pagerProcess.Get(), INFINITE);
  pagerProcess.Close();
  return true;  // one that cannot be started is none, and the output goes to the console
}

}  // namespace TamLogCtl
