#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <mutex>

#include "client/live/handle.h"
#include "client/message/win32.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/console_pieces.h"
#include "tamlogctl/base/console_system.h"
#include "tamlogctl/base/program_search.h"
#include "tamlogctl/base/system_text.h"
#include "tamlogctl/base/wide_text.h"

namespace TamLogCtl {

namespace {

std::atomic<bool> interrupted{false};
std::atomic<bool> deferring{false};    // the first Ctrl-C only sets `interrupted`
std::atomic<HANDLE> colored{nullptr};  // the console that may be in the middle of a colour
std::timed_mutex writing;              // held while a piece is written to a console

bool IsConsole(DWORD which) {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(which), &mode) != FALSE;
}

void SwitchColorsOff() {
  const std::wstring plain(kPlainColor.begin(), kPlainColor.end());
  DWORD written = 0;
  if (colored != nullptr)
    WriteConsoleW(colored, plain.data(), static_cast<DWORD>(plain.size()), &written, nullptr);
}

// The system calls this on a thread of its own, and ends the process when it returns FALSE. Then nothing is
// written after the colours are off: the lock is kept. A console whose output is paused is not waited for.
BOOL WINAPI OnControl(DWORD event) {
  if (event == CTRL_LOGOFF_EVENT) return FALSE;
  if (deferring && !interrupted.exchange(true)) return TRUE;
  constexpr auto kPatience = std::chrono::milliseconds(500);
  if (writing.try_lock_for(kPatience)) SwitchColorsOff();
  return FALSE;
}

void HandleControls() {
  static const BOOL handled = SetConsoleCtrlHandler(OnControl, TRUE);
  static_cast<void>(handled);
}

bool WriteConsole(HANDLE console, std::string_view text) {
  const std::wstring wide = Utf8ToWide(text);
  std::wstring_view rest = wide;
  while (!rest.empty()) {
    constexpr std::size_t kMostUnits = 8000;
    const auto piece = static_cast<DWORD>(PieceLength(rest, kMostUnits));
    DWORD written = 0;
    const std::lock_guard held(writing);
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

// Reads UTF-16 from the console: the C library would convert what is typed to the console's code page.
bool ReadConsoleLine(std::string& line) {
  constexpr wchar_t kEnd = 26;  // Ctrl-Z as the first character ends the input
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
  line = WideToUtf8(whole);
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

std::size_t StdoutColumns() {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info) == FALSE) return kUsualColumns;
  const int columns = info.srWindow.Right - info.srWindow.Left + 1;
  return columns > 0 ? static_cast<std::size_t>(columns) : kUsualColumns;
}

bool TerminalIsCapable() {
  return EnvironmentValue("TERM") != "dumb";
}

bool EnableColors() {
  constexpr DWORD kVirtualTerminal = 0x0004;  // ENABLE_VIRTUAL_TERMINAL_PROCESSING
  const HANDLE stream = GetStdHandle(STD_OUTPUT_HANDLE);
  DWORD mode = 0;
  if (GetConsoleMode(stream, &mode) == FALSE) return false;
  if (SetConsoleMode(stream, mode | kVirtualTerminal) == FALSE) return false;
  if (colored.exchange(stream) == nullptr) HandleControls();
  return true;
}

bool WriteStdout(std::string_view text) {
  return Write(STD_OUTPUT_HANDLE, text);
}

std::string StdoutProblem() {
  const DWORD error = GetLastError();
  const bool closed =
      error == ERROR_BROKEN_PIPE || error == ERROR_NO_DATA || error == ERROR_PIPE_NOT_CONNECTED;
  return closed ? "" : SystemText(error);
}

bool WriteErr(std::string_view text) {
  return Write(STD_ERROR_HANDLE, text);
}

bool ReadLine(std::string& line) {
  if (StdinIsTerminal()) return ReadConsoleLine(line);
  static const bool binary = _setmode(_fileno(stdin), _O_BINARY) != -1;
  return binary && ReadFileLine(std::cin, line);
}

void DeferInterrupts() {
  deferring = true;
  HandleControls();
}

bool Interrupted() {
  return interrupted;
}

std::string EnvironmentValue(const char* name) {
  const std::wstring wideName = Utf8ToWide(name);
  std::wstring value(GetEnvironmentVariableW(wideName.c_str(), nullptr, 0), L'\0');
  value.resize(GetEnvironmentVariableW(wideName.c_str(), value.data(), static_cast<DWORD>(value.size())));
  return WideToUtf8(value);
}

namespace {

TamLogClient::Handle pagerProcess;
TamLogClient::Handle pagerPipe;

// Runs the program with `input` as its standard input; its output goes to the console.
TamLogClient::Handle StartWithInput(const ProgramCommand& command, HANDLE input) {
  // A pager that is a script finds its programs without the current directory, too.
  SetEnvironmentVariableW(L"NoDefaultCurrentDirectoryInExePath", L"1");
  std::wstring line = command.line;
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = input;
  startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION process{};
  if (CreateProcessW(command.program.c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                     &startup, &process) == FALSE)
    return {};
  CloseHandle(process.hThread);
  return TamLogClient::Handle(process.hProcess);
}

void SayNoPager(const std::string& chosen) {
  Say("PAGER '" + chosen + "': cannot be started; name a program of PATH or its full path");
}

}  // namespace

// Without the pager the output goes to the console.
void Pager::Begin() {
  const std::string chosen = EnvironmentValue("PAGER");
  if (active || chosen.empty() || !StdoutIsTerminal()) return;
  const auto command = FindProgram(Utf8ToWide(chosen));
  if (!command) return SayNoPager(chosen);
  SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  HANDLE readEnd = nullptr;
  HANDLE writeEnd = nullptr;
  if (CreatePipe(&readEnd, &writeEnd, &inherited, 0) == FALSE) return;
  const TamLogClient::Handle input(readEnd);
  pagerPipe = TamLogClient::Handle(writeEnd);
  SetHandleInformation(writeEnd, HANDLE_FLAG_INHERIT, 0);
  pagerProcess = StartWithInput(*command, input.Get());
  if (!pagerProcess) return SayNoPager(chosen);
  SetStdHandle(STD_OUTPUT_HANDLE, pagerPipe.Get());
  active = true;
}

bool Pager::End() {
  if (!active) return true;
  active = false;
  pagerPipe.Close();
  WaitForSingleObject(pagerProcess.Get(), INFINITE);
  pagerProcess.Close();
  SwitchColorsOff();  // Ctrl-C may have ended it in the middle of a line
  return true;        // Begin has left the output alone if the pager could not be started
}

}  // namespace TamLogCtl
