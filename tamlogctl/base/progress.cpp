#include "tamlogctl/base/progress.h"

#include <chrono>

#include "tamlogctl/base/console.h"
#include "tamlogctl/base/wait.h"

namespace TamLogCtl {

namespace {

constexpr std::uint64_t kFirstMs = 1000;
constexpr std::uint64_t kEveryMs = 250;
constexpr std::size_t kLineWidth = 78;

}  // namespace

Progress::Progress(const std::string& purpose, std::uint64_t total)
    : what(Shown(purpose)), all(total), next(Ticks() + kFirstMs), terminal(StderrIsTerminal()) {}

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
  if (IsDue()) Write(std::to_string(done) + (all > 0 ? " of " + std::to_string(all) : ""));
}

void Progress::Show(const std::string& state) {
  if (IsDue()) Write(state);
}

void Progress::Write(const std::string& state) {
  std::string line = what + " " + state;
  line.resize(kLineWidth, ' ');
  WriteErr("\r" + line);
}

Busy::Busy(std::string purpose) {
  if (StderrIsTerminal()) thread = std::thread([this, what = std::move(purpose)] { Run(what); });
}

Busy::~Busy() {
  if (!thread.joinable()) return;
  {
    const std::lock_guard held(lock);
    done = true;
  }
  ends.notify_one();
  thread.join();
}

void Busy::Run(const std::string& purpose) {
  const std::uint64_t begin = Ticks();
  Progress progress(purpose);
  std::unique_lock held(lock);
  while (!ends.wait_for(held, std::chrono::milliseconds(kEveryMs), [this] { return done; })) {
    progress.Show("(" + std::to_string((Ticks() - begin) / 1000) + " s)");
  }
}

}  // namespace TamLogCtl
