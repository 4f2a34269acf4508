#include "tamlogctl/server/import_bytes.h"

namespace TamLogCtl {

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 16U;

}  // namespace

// A file that became shorter ends there.
void ImportBytes::Fill(std::size_t least) {
  held.erase(0, begin);
  begin = 0;
  const std::size_t before = held.size();
  // As much again as is held, so that a long line is not copied too often.
  const std::uint64_t wanted = std::max({kPiece, least - before, before});
  const auto count = static_cast<std::size_t>(std::min(wanted, file.Size() - std::min(next, file.Size())));
  held.resize(before + count);
  const std::size_t read = file.Copy(next, held.data() + before, count);
  held.resize(before + read);
  next = read < count ? file.Size() : next + read;
}

std::string_view ImportBytes::PeekLine() {
  for (std::size_t searched = 0;;) {
    const std::string_view there = Window(searched + 1);
    const std::size_t end = there.find('\n', searched);
    if (end != std::string_view::npos) return there.substr(0, end + 1);
    if (there.size() <= searched) return there;
    searched = there.size();
  }
}

bool ImportBytes::TakeLine(std::string_view& line) {
  line = PeekLine();
  if (line.empty()) return false;
  Drop(line.size());
  if (line.ends_with('\n')) line.remove_suffix(1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  return true;
}

void ImportBytes::Restart() {
  held.clear();
  begin = 0;
  next = 0;
}

}  // namespace TamLogCtl
