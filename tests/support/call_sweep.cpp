#include "tests/support/call_sweep.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string_view>
#include <utility>

#include "tests/support/swept_calls.h"
#include "tests/support/watchdog.h"
#include "util/exceptions.h"

namespace TestSupport {
namespace Swept {
namespace {

// Any lock other than the run-time's would use the system's loader while threads start and end.
class Lock {
 public:
  void lock() { AcquireSRWLockExclusive(&word); }
  void unlock() { ReleaseSRWLockExclusive(&word); }

 private:
  SRWLOCK word = SRWLOCK_INIT;
};

struct Resource {
  std::string openedBy;
  bool gate = false;
};

struct Books {
  Lock lock;
  std::map<std::pair<char, std::uintptr_t>, Resource> open;
  std::vector<std::string> wrongCloses;
  std::vector<HANDLE> threads;  // duplicates of our own
  std::set<std::pair<std::string, void*>> failedSites;
};

Books& TheBooks() {
  static auto* const books = new Books;
  return *books;
}

std::atomic<bool> armed{false};
std::atomic<int> callsLeft{0};
std::atomic<bool> eventsAreSet{false};
std::atomic<const char*> failedCall{nullptr};
std::string failingName;
std::string standingFault;

// Appends the site to the file that the script for counting call sites reads; works also in a process that a
// failed call ends.
void RecordSite(const Call& call, void* site) {
  const char* const file = std::getenv("TAMLOG_CALL_SITES");
  if (file == nullptr || !TheBooks().failedSites.emplace(call.name, site).second) return;
  std::array<char, 512> path{};
  GetModuleFileNameA(nullptr, path.data(), static_cast<DWORD>(path.size() - 1));
  const std::string whole = path.data();
  const auto image = reinterpret_cast<std::uintptr_t>(GetModuleHandleA(nullptr));
  if (std::FILE* const out = std::fopen(file, "ab")) {
    std::fprintf(out, "%s %llx %s\n", whole.substr(whole.rfind('\\') + 1).c_str(),
                 reinterpret_cast<std::uintptr_t>(site) - image, call.name);
    std::fclose(out);
  }
}

bool IsNoResource(std::uintptr_t resource) {
  return resource == 0 || resource == ~std::uintptr_t{0};
}

void FollowThread(const Call& call, std::uintptr_t handle) {
  if (std::string_view(call.name) != "CreateThread") return;
  HANDLE own = nullptr;
  // NOLINTNEXTLINE(performance-no-int-to-ptr): a handle
  DuplicateHandle(GetCurrentProcess(), reinterpret_cast<HANDLE>(handle), GetCurrentProcess(), &own, 0, FALSE,
                  DUPLICATE_SAME_ACCESS);
  TheBooks().threads.push_back(own);
}

}  // namespace

bool TakeFault(const Call& call, void* site) {
  if (!armed) return false;
  const DWORD before = GetLastError();
  bool fails = false;
  {
    const std::lock_guard<Lock> guard(TheBooks().lock);
    const bool counts = failingName.empty() || failingName == call.name;
    if (standingFault == call.name) {
      fails = true;
    } else if (counts && callsLeft > 0 && --callsLeft == 0) {
      fails = true;
      failedCall = call.name;
      RecordSite(call, site);
    }
  }
  SetLastError(before);
  return fails;
}

bool IsDoneAllTheSame(const Call& call, std::uintptr_t first) {
  if (call.when == WhenItFails::AsAsked) return eventsAreSet && !IsGate(first);
  return call.when == WhenItFails::ItWasDoneAllTheSame;
}

bool IsGate(std::uintptr_t handle) {
  const std::lock_guard<Lock> guard(TheBooks().lock);
  const auto found = TheBooks().open.find({kHandle, handle});
  return found != TheBooks().open.end() && found->second.gate;
}

void NoteOpened(const Call& call, std::uintptr_t resource, bool gate) {
  if (IsNoResource(resource)) return;
  const std::lock_guard<Lock> guard(TheBooks().lock);
  TheBooks().open[{call.opens, resource}] = {.openedBy = call.name, .gate = gate};
  FollowThread(call, resource);
}

void NoteClosed(const Call& call, std::uintptr_t resource) {
  if (IsNoResource(resource)) return;
  const DWORD before = GetLastError();
  {
    const std::lock_guard<Lock> guard(TheBooks().lock);
    const char kind = call.closes == 0 ? kHandle : call.closes;
    if (TheBooks().open.erase({kind, resource}) == 0) TheBooks().wrongCloses.emplace_back(call.name);
  }
  SetLastError(before);
}

NobodyNotes::NobodyNotes() {
  TheBooks().lock.lock();
}

NobodyNotes::~NobodyNotes() {
  TheBooks().lock.unlock();
}

}  // namespace Swept

namespace {

using Swept::TheBooks;
using Guard = std::lock_guard<Swept::Lock>;

constexpr int kMostRounds = 2000;
constexpr std::uint32_t kThreadEndMs = 20000;
constexpr int kRoundLimitSeconds = 180;

void Arm(int n, const std::string& name, bool eventsAreSet, const std::string& failsAlways = "") {
  const Guard guard(TheBooks().lock);
  Swept::standingFault = failsAlways;
  Swept::failingName = name;
  Swept::eventsAreSet = eventsAreSet;
  Swept::failedCall = nullptr;
  Swept::callsLeft = n;
  Swept::armed = true;
}

std::string SystemText(std::uint32_t code) {
  std::array<char, 1024> text{};
  const DWORD length =
      FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
                     MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), text.data(), text.size(), nullptr);
  return {text.data(), length};
}

void ReplaceAll(std::string& text, const std::string& part, const std::string& by) {
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += by.size()) {
    text.replace(at, part.size(), by);
  }
}

bool IsWished(const char* variable) {
  const char* const wish = std::getenv(variable);
  return wish != nullptr && *wish != '\0';
}

std::string Joined(const std::string& failure, const std::string& report) {
  if (failure.empty() || report.empty()) return failure + report;
  return failure + " | " + report;
}

}  // namespace

void ArmCallFault(int n, const std::string& name, bool eventsAreSet) {
  Arm(n, name, eventsAreSet);
}

void DisarmCallFault() {
  const Guard guard(TheBooks().lock);
  Swept::armed = false;
}

std::string FailedCall() {
  const char* const name = Swept::failedCall;
  return name == nullptr ? "" : name;
}

std::string PlainText(const std::string& composed) {
  const std::string mark = " - Error code : ";
  std::string text = composed;
  for (std::size_t at = 0; (at = text.find(mark, at)) != std::string::npos;) {
    char* end = nullptr;
    const char* const digits = text.c_str() + at + mark.size();
    const auto code = static_cast<std::uint32_t>(std::strtoul(digits, &end, 10));
    std::size_t length = mark.size() + static_cast<std::size_t>(end - digits) + std::string(" - ").size();
    const std::string system = SystemText(code);
    if (text.compare(at + length, system.size(), system) == 0) length += system.size();
    text.replace(at, length, " (" + std::to_string(code) + ")");
  }
  ReplaceAll(text, "\n", " / ");
  return text;
}

std::string PlainFailureOf(const std::function<void()>& action) {
  try {
    action();
    return {};
  } catch (const TamLogUtil::Exceptions::ExceptionBase& failure) {
    return PlainText(failure.Compose("\n"));
  } catch (...) {
    ADD_FAILURE() << "what was thrown is no ExceptionBase";
    return "not an ExceptionBase";
  }
}

std::multiset<std::string> OpenResources() {
  std::multiset<std::string> names;
  const Guard guard(TheBooks().lock);
  for (const auto& [key, resource] : TheBooks().open) names.insert(resource.openedBy);
  for (const HANDLE thread : TheBooks().threads) {
    if (WaitForSingleObject(thread, 0) != WAIT_OBJECT_0) names.insert("thread");
  }
  return names;
}

std::vector<std::string> WrongCloses() {
  const Guard guard(TheBooks().lock);
  return TheBooks().wrongCloses;
}

bool ThreadsEnd(std::uint32_t milliseconds) {
  std::vector<HANDLE> threads;
  {
    const Guard guard(TheBooks().lock);
    threads.swap(TheBooks().threads);
  }
  const std::uint64_t end = GetTickCount64() + milliseconds;
  bool allEnded = true;
  for (const HANDLE thread : threads) {
    const std::uint64_t now = GetTickCount64();
    const DWORD rest = now < end ? static_cast<DWORD>(end - now) : 0;
    if (WaitForSingleObject(thread, rest) == WAIT_OBJECT_0) {
      CloseHandle(thread);
      continue;
    }
    allEnded = false;
    const Guard guard(TheBooks().lock);
    TheBooks().threads.push_back(thread);
  }
  return allEnded;
}

Outcomes Beyond(const Outcomes& outcomes, const Outcomes& allowed) {
  Outcomes beyond;
  for (const auto& [call, texts] : outcomes) {
    const auto known = allowed.find(call);
    for (const std::string& text : texts) {
      if (known == allowed.end() || !known->second.contains(text)) beyond[call].insert(text);
    }
  }
  return beyond;
}

Outcomes Sweep(const SweptOperation& swept) {
  Outcomes outcomes;
  const int stride = IsWished("TAMLOG_SWEEP_ALL") ? 1 : swept.stride;
  for (int n = 1; n < kMostRounds; n += stride) {
    const std::string round = "call " + std::to_string(n);
    const testing::ScopedTrace trace(__FILE__, __LINE__, round);
    SetWatchdogLimit(kRoundLimitSeconds);
    const std::multiset<std::string> before = OpenResources();
    const std::size_t wrongBefore = WrongCloses().size();

    swept.prepare();
    Arm(n, "", swept.eventsAreSet, swept.failsAlways);
    const std::string failure = PlainFailureOf(swept.operation);
    DisarmCallFault();
    const std::string failed = FailedCall();
    const std::string outcome = Joined(failure, swept.report());
    if (IsWished("TAMLOG_SWEEP_TRACE")) {
      std::fprintf(stderr, "%s: %s: %s\n", round.c_str(), failed.c_str(), outcome.c_str());
    }
    swept.check();

    EXPECT_TRUE(ThreadsEnd(kThreadEndMs)) << failed;
    EXPECT_EQ(OpenResources(), before) << failed;
    EXPECT_EQ(WrongCloses().size(), wrongBefore) << failed << " made " << WrongCloses().back();
    if (failed.empty()) {
      if (swept.failsAlways.empty()) {
        EXPECT_EQ(failure, "");
      }
      if (!outcome.empty()) outcomes[""].insert(outcome);
      return outcomes;
    }
    outcomes[failed].insert(outcome);
    if (testing::Test::HasFailure()) return outcomes;
  }
  ADD_FAILURE() << "the operation does not get through";
  return outcomes;
}

}  // namespace TestSupport
