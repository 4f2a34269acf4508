#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <system_error>

#include "tamlogctl/base/console.h"

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

bool WriteOut(std::string_view text) {
  // A reader that went away is told by the failing write, not by a signal.
  static const auto ignored = std::signal(SIGPIPE, SIG_IGN);
  if (ignored != SIG_ERR && Write(STDOUT_FILENO, text)) return true;
  // It has seen enough; anything else has to be told, once.
  static bool told = errno == EPIPE;
  if (!told) Say("standard output cannot be written: " + std::system_category().message(errno));
  told = true;
  return false;
}

bool WriteErr(std::string_view text) {
  return Write(STDERR_FILENO, text);
}

void Say(std::string_view line) {
  std::string whole = "tamlogctl: ";
  whole.append(line).append("\n");
  Write(STDERR_FILENO, whole);
}

bool ReadLine(std::string& line) {
  if (!std::getline(std::cin, line)) return false;
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return true;
}

void DeferInterrupts() {
  std::signal(SIGINT, OnInterrupt);
}

bool Interrupted() {
  return interrupted != 0;
}

bool SleepFor(std::uint32_t milliseconds) {
  constexpr std::uint64_t kStep = 50;
  const std::uint64_t end = Ticks() + milliseconds;
  while (!Interrupted() && Ticks() < end) {
    usleep(static_cast<useconds_t>(std::min(kStep, end - Ticks()) * 1000));
  }
  return !Interrupted();
}

std::uint64_t Ticks() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

TamLogClient::TimeWords Now() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  const auto word = [](long value) { return static_cast<std::int16_t>(value); };
  return {
      word(local.tm_year + 1900), word(local.tm_mon + 1), word(local.tm_mday),         word(local.tm_hour),
      word(local.tm_min),         word(local.tm_sec),     word(now.tv_nsec / 1000000), 0};
}

int LocalOffsetMinutes(const TamLogClient::TimeWords& utc) {
  tm broken{};
  broken.tm_year = utc[0] - 1900;
  broken.tm_mon = utc[1] - 1;
  broken.tm_mday = utc[2];
  broken.tm_hour = utc[3];
  broken.tm_min = utc[4];
  broken.tm_sec = utc[5];
  const std::time_t moment = timegm(&broken);
  tm local{};
  localtime_r(&moment, &local);
  return static_cast<int>(local.tm_gmtoff / 60);
}

std::uint32_t ProcessId() {
  return static_cast<std::uint32_t>(getpid());
}

bool EnvironmentHas(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr && *value != '\0';
}

std::string EnvironmentValue(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

namespace {

pid_t pagerProcess = 0;

// The child's part: its standard input is the pipe.
[[noreturn]] void BecomePager(const std::array<int, 2>& ends) {
  dup2(ends[0], STDIN_FILENO);
  close(ends[0]);
  close(ends[1]);
  setenv("LESS", "FRX", 0);  // ends by itself when one screen is enough, and shows colours
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
    std::signal(SIGINT, SIG_IGN);  // Ctrl-C is the pager's
    active = true;
  }
  close(ends[1]);
}

bool Pager::End() {
  constexpr int kNoProgram = 127;  // of the shell
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
