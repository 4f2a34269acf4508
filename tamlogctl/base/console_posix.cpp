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

void OnInterrupt(int /*signal*/) {
  interrupted = 1;
  std::signal(SIGINT, SIG_DFL);
}

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

bool StdoutIsTerminal() {
  return isatty(STDOUT_FILENO) != 0;
}

bool StdinIsTerminal() {
  return isatty(STDIN_FILENO) != 0;
}

bool StderrIsTerminal() {
  return isatty(STDERR_FILENO) != 0;
}

bool EnableColors() {
  return StdoutIsTerminal();
}

bool WriteStdout(std::string_view text) {
  // Without the signal the write fails and reports that the reader has closed the pipe.
  static const auto ignored = std::signal(SIGPIPE, SIG_IGN);
  return ignored != SIG_ERR && Write(STDOUT_FILENO, text);
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
  std::signal(SIGINT, OnInterrupt);
}

bool Interrupted() {
  return interrupted != 0;
}

std::uint32_t ProcessId() {
  return static_cast<std::uint32_t>(getpid());
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
  setenv("LESS", "FRX", 0);  // quit if one screen is enough, and show colours
  const char* const chosen = std::getenv("PAGER");
  execl("/bin/sh", "sh", "-c", chosen != nullptr ? chosen : "less 2>/dev/null || cat", nullptr);
  _exit(127);
}

}  // namespace

void Pager::Begin() {
  const char* const chosen = std::getenv("PAGER");
  if (active || !StdoutIsTerminal() || (chosen != nullptr && *chosen == '\0')) return;
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) return;
  pagerProcess = fork();
  if (pagerProcess == 0) BecomePager(ends);
  close(ends[0]);
  if (pagerProcess > 0) {
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
  if (!WIFEXITED(status) || WEXITSTATUS(status) != kNoProgram) return true;
  Say("PAGER '" + EnvironmentValue("PAGER") +
      "': cannot be started; name another program, or add --no-pager");
  return false;
}

}  // namespace TamLogCtl
