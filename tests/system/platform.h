#pragma once

// What the system tests need of the platform: owned handles, bounded waiting, scratch directories, child
// processes with pipes, and a few questions about other processes. Failures of the system throw
// std::runtime_error, which gtest reports as the failure of the test.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

struct HandleCloser {
  void operator()(void* handle) const;
};
using OwnedHandle = std::unique_ptr<void, HandleCloser>;

// Takes over a handle; null and the invalid-handle value both become empty.
OwnedHandle Own(void* handle);

// Throws with `doing`, the last error's number and where it was seen.
[[noreturn]] void ThrowLastError(const std::string& doing);

// True under Wine, where the service manager and file sharing differ in ways that docs/testing.md lists.
bool IsWine();

// Looks at `condition` every 10 ms until it holds or `limit` is over; its last value.
bool Eventually(std::chrono::milliseconds limit, const std::function<bool()>& condition);

// The directory of the running executable, without a backslash at its end.
std::string OwnDirectory();

// The current directory of services, where the server's diagnostic log lies.
std::string ServiceDirectory();

// The bytes of a file that others may have open, at most `limit` of them; empty when there is none.
std::string ReadWholeFile(const std::string& path, std::size_t limit = SIZE_MAX);
void WriteWholeFile(const std::string& path, const std::string& bytes);
bool FileExists(const std::string& path);
void DeleteFileIfThere(const std::string& path);
void CopyFileTo(const std::string& from, const std::string& to);

// A directory of its own below the temporary directory, removed with all that lies in it. Its name has a
// space.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  const std::string& Path() const { return path; }
  std::string File(const std::string& name) const { return path + "\\" + name; }

 private:
  std::string path;
};

// A process by its id, held open so that the id cannot be given to another one meanwhile.
class ProcessById {
 public:
  // Empty handle when there is no such process any more.
  explicit ProcessById(std::uint32_t processId);
  bool Alive() const;
  // Whether its executable has this name; process ids are used again.
  bool Runs(const std::string& executableName) const;
  // The exit code once it has ended within `limit`.
  std::optional<std::uint32_t> WaitForEnd(std::chrono::milliseconds limit) const;
  void Kill();
  // Kernel handles that the process has open.
  std::size_t HandleCount() const;
  std::size_t ThreadCount() const;

 private:
  std::uint32_t id;
  OwnedHandle process;
};

// A child with its standard input and output on pipes; killed when the object goes while it still runs.
// One thread at a time.
class ChildProcess {
 public:
  explicit ChildProcess(const std::string& commandLine);
  ~ChildProcess();
  ChildProcess(ChildProcess&&) = default;
  ChildProcess& operator=(ChildProcess&&) = delete;

  // The next line of its output without the line end; nothing when it does not come in time or the output
  // ended.
  std::optional<std::string> ReadLine(std::chrono::milliseconds limit);
  void WriteLine(const std::string& line);
  void CloseInput();
  // Its exit code once it has ended.
  std::optional<std::uint32_t> WaitForEnd(std::chrono::milliseconds limit);
  // Waits for its end and gives all output that was not read yet, with LF line ends.
  std::string FinishOutput(std::chrono::milliseconds limit);
  void Kill();

 private:
  bool ReadMore();  // what is there now, without waiting; false: nothing was

  OwnedHandle process;
  OwnedHandle input;
  OwnedHandle output;
  std::string unread;
};

struct CommandReport {
  std::string output;  // standard error included
  std::optional<std::uint32_t> exitCode;
};

// Waits a minute at most for a program's end; it has no exit code then.
CommandReport ReportAtEnd(ChildProcess& program);
// Runs a program of OwnDirectory, with `line` as its standard input.
CommandReport RunOwnProgram(const std::string& name, const std::string& arguments,
                            const std::string& line = {});
// tamlogctl.exe.
CommandReport RunTool(const std::string& arguments, const std::string& line = {});
