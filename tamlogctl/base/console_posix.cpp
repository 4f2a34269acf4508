#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <system_error>

#include "tamlogctl/base/console.h"
#include "tamlogctl/base/console_system.h"

namespace TamLogCtl {

namespace {

volatile std::sig_atomic_t interrupted = 0;

volatile std::sig_atomic_t colored = 0;    // the terminal may be in the middle of a colour
volatile std::sig_atomic_t deferring = 0;  // the first Ctrl-C only sets `interrupted`

volatile std::sig_atomic_t terminalOutput = STDOUT_FILENO;  // another file once a pager is in between

// The terminal has dropped what it had not yet shown, the end of a colour perhaps among it. One whose output
// is paused (Ctrl-S) is not waited for.
void SwitchColorsOff() {
  pollfd terminal{terminalOutput, POLLOUT, 0};
  if (colored == 0 || poll(&terminal, 1, 0) != 1 || (terminal.revents & POLLOUT) == 0) return;
  static_cast<void>(!write(terminal.fd, kPlainColor.data(), kPlainColor.size()));
}

// Leaves a signal alone that the caller of the program wanted to be ignored (nohup).
void Handle(int signal, void (*handler)(int)) {
  if (std::signal(signal, handler) == SIG_IGN) std::signal(signal, SIG_IGN);
}

// Ends the program as the signal does without a handler.
void OnEnd(int signal) {
  SwitchColorsOff();
  std::signal(signal, SIG_DFL);
  raise(signal);
}

void OnInterrupt(int signal) {
  if (deferring == 0 || interrupted != 0) return OnEnd(signal);
  SwitchColorsOff();
  interrupted = 1;
}

void OnStop(int /*signal*/) {
  SwitchColorsOff();
  raise(SIGSTOP);
}

// The signals with which a write ends the program: the pipe has no reader, or the file would exceed the size
// limit.
constexpr std::array kFailedWrites{SIGPIPE, SIGXFSZ};
std::array<void (*)(int), kFailedWrites.size()> handlersOfCaller{};

bool Write(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(file, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace

void ReportFailedWrites() {
  for (std::size_t i = 0; i < kFailedWrites.size(); ++i) {
    handlersOfCaller[i] = std::signal(kFailedWrites[i], SIG_IGN);
  }
}

bool StdoutIsTerminal() {
  return isatty(STDOUT_FILENO) != 0;
}

bool StdinIsTerminal() {
  return isatty(STDIN_FILENO) != 0;
}

bool StderrIsTerminal() {
  return isatty(STDERR_FILENO) != 0;
}

std::size_t StdoutColumns() {
  winsize size{};
  const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
  return known ? size.ws_col : kUsualColumns;
}

bool TerminalIsCapable() {
  const std::string terminal = EnvironmentValue("TERM");
  return !terminal.empty() && terminal != "dumb";
}

bool EnableColors() {
  if (!StdoutIsTerminal()) return false;
  if (colored == 0) {
    Handle(SIGINT, OnInterrupt);
    for (const int signal : {SIGTERM, SIGHUP, SIGQUIT}) Handle(signal, OnEnd);
    Handle(SIGTSTP, OnStop);
  }
  colored = 1;
  return true;
}

bool WriteStdout(std::string_view text) {
  return Write(STDOUT_FILENO, text);
}

std::string StdoutProblem() {
  const int error = errno;
  return error == EPIPE ? "" : std::system_category().message(error);
}

bool WriteErr(std::string_view text) {
  return Write(STDERR_FILENO, text);
}

bool ReadLine(std::string& line) {
  return ReadFileLine(std::cin, line);
}

void DeferInterrupts() {
  deferring = 1;
  std::signal(SIGINT, OnInterrupt);
}

bool Interrupted() {
  return interrupted != 0;
}

std::string EnvironmentValue(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

namespace {

pid_t pagerProcess = 0;

// Turns the child process into the pager, with the pipe as its standard input.
[[noreturn]] void BecomePager(const std::array<int, 2>& ends) {
  dup2(ends[0], STDIN_FILENO);
  close(ends[0]);
  close(ends[1]);
  for (std::size_t i = 0; i < kFailedWrites.size(); ++i) std::signal(kFailedWrites[i], handlersOfCaller[i]);
  setenv("LESS", "FRX", 0);  // quit if one screen is enough, and show colours
  const char* const chosen = std::getenv("PAGER");
  execl("/bin/sh", "sh", "-c", chosen != nullptr ? chosen : "less 2>/dev/null || cat", nullptr);
  _exit(127);
}

}  // namespace

void Pager::Begin() {
  const char* const chosen = std::getenv("PAGER");
  const bool wanted = chosen != nullptr ? *chosen != '\0' : TerminalIsCapable();
  if (active || !wanted || !StdoutIsTerminal()) return;
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) return;
  pagerProcess = fork();
  if (pagerProcess == 0) BecomePager(ends);
  close(ends[0]);
  if (pagerProcess > 0) {
    terminalOutput = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    dup2(ends[1], STDOUT_FILENO);
    std::signal(SIGINT, SIG_IGN);  // Ctrl-C belongs to the pager
    active = true;
  }
  close(ends[1]);
}

bool Pager::End() {
  constexpr int kNoProgram = 127;  // the shell's exit code
  if (!active) return true;
  active = false;
  close(STDOUT_FILENO);
  int status = 0;
  while (waitpid(pagerProcess, &status, 0) < 0 && errno == EINTR) {
  }
  SwitchColorsOff();  // Ctrl-C may have ended it in the middle of a line
  close(terminalOutput);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != kNoProgram) return true;
  Say("PAGER '" + EnvironmentValue("PAGER") +
      "': cannot be started; name another program, or add --no-pager");
  return false;
}

}  // namespace TamLogCtl
