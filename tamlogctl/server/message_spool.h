#pragma once

// Messages that are too many for memory: some megabytes of them are held, all others are in a temporary file
// without the zeros at the ends of their texts. Memory: 16 bytes a message. An object belongs to one thread.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/file/file_bytes.h"
#include "records/log_file_format.h"
#include "tamlogctl/base/scratch_file.h"

namespace TamLogCtl {

class MessageSpool {
 public:
  // Messages up to this size are held in memory.
  static constexpr std::size_t kMostHeld = std::size_t{4} << 20U;

  // The messages added from now on are of another file.
  void BeginFile();

  void Add(const LogMessageBody& message);

  // Ends the adding and sorts by time; messages of equal time keep their order. Returns false when the
  // temporary file failed; Problem() says why.
  bool Sort();
  const std::string& Problem() const { return problem; }

  // After Sort: leaves out of each file what an earlier one holds as well. Equal messages are counted: as
  // many stay as the file with most of them has. Returns how many were left out of each file.
  std::vector<std::size_t> LeaveOutRepeated();

  std::size_t Size() const { return entries.size(); }

  // After Sort: returns a message in order of time. Where the temporary file cannot be read any more,
  // Problem() says why, and the message is blank.
  LogMessageBody At(std::size_t index);

 private:
  struct Entry {
    std::uint64_t key = 0;
    std::uint64_t place = 0;  // of its bytes
  };

  void Write();
  std::size_t FileOf(const Entry& entry) const;
  LogMessageBody Missing();

  std::vector<Entry> entries;
  std::vector<std::uint64_t> files;  // the place at which each begins
  std::string held;                  // bytes that are not in the temporary file
  std::uint64_t size = 0;            // of the bytes of all messages
  std::unique_ptr<ScratchFile> scratch;
  std::unique_ptr<TamLogClient::FileBytes> bytes;  // of all messages, after Sort
  std::string problem;
};

}  // namespace TamLogCtl
