#pragma once

// A reader as another program would write it: finds the file's objects by name, follows the protocol step by
// step and looks at the mapped bytes itself. Uses nothing of the store but the records, so it is a second
// witness. The single steps are open to tests that need a reader to stop in between.

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

  // `tag` and names that end in the process id, so that tests do not meet.
  static ObjectNames Of(const std::string& tag);
};

class TestReader {
 public:
  // Maps the whole file; throws std::runtime_error when something is missing.
  explicit TestReader(const ObjectNames& names);
  ~TestReader();
  TestReader(const TestReader&) = delete;
  TestReader& operator=(const TestReader&) = delete;

  // Read access as a whole; false when it did not come in time.
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
  // Newest first, as the ring is walked. Without taking access.
  std::vector<LogMessage> Messages();

 private:
  void* mapping;
  void* headerLock;
  void* readWait;
  void* writeWait;
  unsigned char* view;
};

}  // namespace StoreTest
