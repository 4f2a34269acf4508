#pragma once

// A program on a terminal of its own (POSIX).
//
//   Terminal terminal(folder.Path(), "TERM=xterm '" TAMLOGCTL "' show --file Logs.dat");
//   terminal.Type("\x03");
//   EXPECT_NE(terminal.ReadAll().find("..."), std::string::npos);

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace TestSupport {

class Terminal {
 public:
  // `commandLine` is a shell line, which starts in `folder`.
  Terminal(const std::string& folder, const std::string& commandLine);
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // Types on the keyboard.
  void Type(const std::string& keys) const;

  // Waits for output and returns what has appeared, at most `most` bytes; nothing when the program has ended.
  std::string Read(std::size_t most) const;

  // Returns all that appears until the program ends.
  std::string ReadAll() const;

 private:
  int terminal = -1;
  pid_t child = -1;
};

}  // namespace TestSupport
