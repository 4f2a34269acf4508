#include "tests/support/terminal.h"

#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

namespace TestSupport {

Terminal::Terminal(const std::string& folder, const std::string& commandLine) {
  child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    const std::string command = "cd '" + folder + "' && " + commandLine;
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(127);
  }
}

Terminal::~Terminal() {
  close(terminal);
  waitpid(child, nullptr, 0);
}

void Terminal::Type(const std::string& keys) const {
  static_cast<void>(!write(terminal, keys.data(), keys.size()));
}

std::string Terminal::Read(std::size_t most) const {
  std::string shown(most, '\0');
  const ssize_t got = read(terminal, shown.data(), shown.size());
  shown.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  return shown;
}

std::string Terminal::ReadAll() const {
  std::string all;
  for (std::string more; !(more = Read(4096)).empty();) all += more;
  return all;
}

}  // namespace TestSupport
