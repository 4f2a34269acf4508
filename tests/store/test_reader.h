#pragma once

// A reader as another program would implement it: finds the file's objects by name, follows the protocol step
// by step and reads the mapped bytes itself. It shares only the records with the store, so it checks the
// store independently. Its single steps are public for tests that stop a reader in between.

#include <cstdint>
#include <string>
#include <vector>

#include "records/log_file_format.h"

namespace StoreTest {

// The names of one log file's shared objects.
struct ObjectNames {
  std::string map;
  std::string headerLock;
  std::string readWait;
  std::string writeWait;

  // Names that contain `tag` and end in the process id, so that tests do not collide.
  static ObjectNames Of(const std::string& tag);
};

class TestReader {
 public:
  // Maps the whole file; throws std::runtime_error when something is missing.
  explicit TestReader(const ObjectNames& names);
  ~TestReader();
  TestReader(const TestReader&) = delete;
  TestReader& operator=(const TestReader&) = delete;

  // Takes read access; returns false when the time ran out.
  bool Enter(std::uint32_t milliseconds);
  void Leave();

  // Its steps.
  bool WaitForReadWait(std::uint32_t milliseconds) const;
  bool TakeHeaderLock(std::uint32_t milliseconds) const;
  void GiveHeaderLockBack() const;
  void CountIn();

  bool WriteWaitIsSignalled() const;
  void SignalWriteWait() const;
  void SignalReadWait() const;
  void ResetReadWait() const;

  volatile LogFileHeader& Header() { return *reinterpret_cast<LogFileHeader*>(view); }
  LogMessage& Slot(std::int32_t index);
  std::string LockName(int index) const;
  // Newest first, as the ring is walked. Does not take access.
  std::vector<LogMessage> Messages();

 private:
  void* mapping;
  void* headerLock;
  void* readWait;
  void* writeWait;
  unsigned char* view;
};

}  // namespace StoreTest
