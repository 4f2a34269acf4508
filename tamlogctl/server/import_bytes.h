#pragma once

// The bytes of a file that is imported, read forward piece by piece: what is held is as long as the longest
// line or value, not as the file. An object belongs to one thread.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "client/file/file_bytes.h"

namespace TamLogCtl {

class ImportBytes {
 public:
  // `bytes` has to outlive this object. Several objects may read the same file.
  explicit ImportBytes(TamLogClient::FileBytes& bytes) : file(bytes) {}

  // Returns the bytes from the present position on, at least `least` of them unless the file ends before.
  // They are valid until the next call.
  std::string_view Window(std::size_t least) {
    if (held.size() - begin < least) Fill(least);
    return std::string_view(held).substr(begin);
  }
  bool AtEnd() { return Window(1).empty(); }
  void Drop(std::size_t count) { begin += std::min(count, held.size() - begin); }

  // Returns how many bytes follow the present position.
  std::uint64_t Left() const { return file.Size() - std::min(next, file.Size()) + (held.size() - begin); }

  // Returns the bytes up to the next line feed, and it as well; all that are left when there is none.
  std::string_view PeekLine();

  // Takes the next line without its line feed and a carriage return before it. Returns false at the end.
  bool TakeLine(std::string_view& line);

  void Restart();

 private:
  void Fill(std::size_t least);

  TamLogClient::FileBytes& file;
  std::string held;        // bytes of the file that end before `next`
  std::size_t begin = 0;   // the present position, in `held`
  std::uint64_t next = 0;  // what is read next
};

// Calls `use(line, number)` for each line that is not empty, without its line end, until `enough()`; numbers
// begin with 1.
template <typename Enough, typename Use>
void ForEachLine(ImportBytes& bytes, const Enough& enough, const Use& use) {
  std::string_view line;
  for (std::size_t number = 1; !enough() && bytes.TakeLine(line); ++number) {
    if (!line.empty()) use(line, number);
  }
}

}  // namespace TamLogCtl
