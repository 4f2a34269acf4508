#include "tamlogctl/progress.h"

#include <utility>

#include "tamlogctl/console.h"

namespace TamLogCtl {

namespace {

constexpr std::uint64_t kFirstMs = 1000;
constexpr std::uint64_t kEveryMs = 250;
constexpr std::size_t kLineWidth = 78;

}  // namespace

Progress::Progress(std::string purpose, std::uint64_t total)
    : what(std::move(purpose)), all(total), next(Ticks() + kFirstMs), terminal(StderrIsTerminal()) {}

Progress::~Progress() {
  if (shown) WriteErr("\r" + std::string(kLineWidth, ' ') + "\r");
}

bool Progress::IsDue() {
  if (!terminal || Ticks() < next) return false;
  next = Ticks() + kEveryMs;
  shown = true;
  return true;
}

void Progress::Show(std::uint64_t done) {
  if (!IsDue()) return;
  std::string line = what + " " + std::to_string(done);
  if (all > 0) line += " of " + std::to_string(all);
  line.resize(kLineWidth, ' ');
  WriteErr("\r" + line);
}

void Progress::Show(const std::string& state) {
  if (!IsDue()) return;
  std::string line = what + " " + state;
  line.resize(kLineWidth, ' ');
  WriteErr("\r" + line);
}

}  // namespace TamLogCtl
