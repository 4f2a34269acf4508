#pragma once

// Platform helpers of the system tests: owned handles, bounded waiting, scratch directories, child processes
// with pipes, and a few queries about other processes. Failures of the system throw std::runtime_error, which
// gtest reports as the failure of the test.

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

// Takes ownership of a handle; null and the invalid-handle value both become empty.
OwnedHandle Own(void* handle);

// Throws std::runtime_error with `doing`, the number of the last error and its location.
[[noreturn]] void ThrowLastError(const std::string& doing);

// Returns true under Wine, where the service manager and file sharing differ in ways that docs/testing.md
// lists.
bool IsWine();

// Returns whether the tests run against the server of tests/windows_world.
bool IsWindowsWorld();

// Returns whether a file that another process only has mapped counts as open when the server looks whether
// its file is free.
bool MappedFilesCountAsOpen();

// Evaluates `condition` every 10 ms until it holds or `limit` has passed; returns its last value.
bool Eventually(std::chrono::milliseconds limit, const std::function<bool()>& condition);

// Returns the directory of the running executable, without a trailing backslash.
std::string OwnDirectory();

// Returns the current directory of services, where the server's diagnostic log lies.
std::string ServiceDirectory();

// Returns the bytes of a file that others may have open, at most `limit` of them; empty when the file does
// not exist.
std::string ReadWholeFile(const std::string& path, std::size_t limit = SIZE_MAX);
void WriteWholeFile(const std::string& path, const std::string& bytes);
bool FileExists(const std::string& path);
void DeleteFileIfThere(const std::string& path);
void CopyFileTo(const std::string& from, const std::string& to);

// A directory of its own below the temporary directory, removed with its contents. Its name contains a space.
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

// A process by its id, held open so that the id cannot be reused meanwhile.
class ProcessById {
 public:
  // Holds an empty handle when the process no longer exists.
  explicit ProcessById(std::uint32_t processId);
  bool Alive() const;
  // Returns whether its executable has this name; process ids are reused.
  bool Runs(const std::string& executableName) const;
  // Returns the exit code if the process ends within `limit`.
  std::optional<std::uint32_t> WaitForEnd(std::chrono::milliseconds limit) const;
  void Kill();
  // Returns the number of kernel handles that the process has open.
  std::size_t HandleCount() const;
  std::size_t ThreadCount() const;

 private:
  std::uint32_t id;
  OwnedHandle process;
};

// A child process with its standard input and output on pipes; the destructor kills it if it still runs. Use
// from one thread at a time.
class ChildProcess {
 public:
  explicit ChildProcess(const std::string& commandLine);
  ~ChildProcess();
  ChildProcess(ChildProcess&&) = default;
  ChildProcess& operator=(ChildProcess&&) = delete;

  // Returns the next line of its output without the line end; nothing when it does not come in time or the
  // output has ended.
  std::optional<std::string> ReadLine(std::chrono::milliseconds limit);
  void WriteLine(const std::string& line);
  void CloseInput();
  // Returns its exit code once it has ended.
  std::optional<std::uint32_t> WaitForEnd(std::chrono::milliseconds limit);
  // Waits for its end and returns all output that was not read yet, with LF line ends.
  std::string FinishOutput(std::chrono::milliseconds limit);
  void Kill();
  // Suspend stops all of its threads, wherever they are, until Resume.
  void Suspend();
  void Resume();

 private:
  bool ReadMore();  // reads the available output without waiting; false: there was none

  OwnedHandle process;
  OwnedHandle input;
  OwnedHandle output;
  std::string unread;
};

struct CommandReport {
  std::string output;  // standard error included
  std::optional<std::uint32_t> exitCode;
};

// Waits at most a minute for a program's end; after that the report has no exit code.
CommandReport ReportAtEnd(ChildProcess& program);
// Runs a program of OwnDirectory, with `line` as its standard input.
CommandReport RunOwnProgram(const std::string& name, const std::string& arguments,
                            const std::string& line = {});
// Runs tamlogctl.exe.
CommandReport RunTool(const std::string& arguments, const std::string& line = {});
